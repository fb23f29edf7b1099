#include "zonagent/zone_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace wire = orvs::wire;

template <class Zone>
std::string find(Zone& zone, const wire::Question& question) {
  const Answer answer = zone.find(question);
  if (answer.verdict == Verdict::NotFound)
    return "not found";
  return answer.record.name + ":" + std::to_string(answer.record.id.value()) + ":" +
         std::to_string(answer.record.gid);
}

template <class Zone>
std::string user(Zone& zone, const std::string& name) {
  return find(zone, {wire::Kind::User, name, std::nullopt});
}

std::string refusal(const std::function<void()>& action) {
  try {
    action();
  } catch (const AgentError& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace

TEST(ZoneTable, FindsByNameAndId) {
  ZoneTable zone;
  zone.readUsers(
      "# a zone\n\nroot:x:0:0:r:/root:/bin/sh\ntoor:*:0:0:::\nz:x:4294967294:7:::\n"
      "root:!:0:0:again::\n",
      "passwd");
  zone.readGroups("wheel:x:0:root,toor\nm\xC3\xBCller:x:7:\n", "group");
  zone.readAliases("admin root\nlast \t z\n", "aliases");
  EXPECT_EQ(user(zone, "toor"), "toor:0:0");
  EXPECT_EQ(user(zone, "admin"), "root:0:0");
  EXPECT_EQ(user(zone, "last"), "z:4294967294:7");
  EXPECT_EQ(user(zone, "wheel"), "not found");
  EXPECT_EQ(find(zone, {wire::Kind::User, {}, 0}), "root:0:0");
  EXPECT_EQ(find(zone, {wire::Kind::User, {}, 7}), "not found");
  EXPECT_EQ(find(zone, {wire::Kind::Group, {}, 7}), "m\xC3\xBCller:7:0");
  EXPECT_EQ(find(zone, {wire::Kind::Group, "wheel", {}}), "wheel:0:0");
  EXPECT_EQ(zone.userCount(), 3u);
}

TEST(ZoneTable, RefusesWithFileAndLine) {
  const std::string badId = " is not a number from 0 to 4294967294";
  const std::string badName = "the name is empty, is not UTF-8 or has a control character";
  const std::string nis = "compatibility entries have no place in a zone";
  const std::string cut = "the last line has no line end; the file may be cut short";
  const struct {
    std::string text;
    std::string why;
  } rows[] = {
      {"a:x:1:1:::\nb:x:2:2::\n", "2: it has 6 fields instead of 7"},
      {"a:x:1:1::::\n", "1: it has 8 fields instead of 7"},
      {"\n#\na:x::1:::\n", "3: the uid" + badId},
      {"a:x:-1:1:::\n", "1: the uid" + badId},
      {"a:x:1 :1:::\n", "1: the uid" + badId},
      {"a:x:+1:1:::\n", "1: the uid" + badId},
      {"a:x:4294967295:1:::\n", "1: the uid" + badId},
      {"a:x:1:4294967296:::\n", "1: the gid" + badId},
      {":x:1:1:::\n", "1: " + badName},
      {"m\xFC:x:1:1:::\n", "1: " + badName},
      {"+::::::\n", "1: " + nis},
      {"-a:x:1:1:::\n", "1: " + nis},
      {"a:x:1:1:::\na:x:2:1:::\n", "2: \"a\" stands in the file with other ids already"},
      {"a:x:1:1:::\na:x:1:2:::\n", "2: \"a\" stands in the file with other ids already"},
      {"a:x:1:1:::\nb:x:2:1:::", "2: " + cut},
  };
  for (const auto& row : rows) {
    ZoneTable zone;
    EXPECT_EQ(refusal([&] { zone.readUsers(row.text, "f"); }), "f:" + row.why) << row.text;
  }
  ZoneTable zone;
  zone.readUsers("a:x:1:1:::\n", "f");
  EXPECT_EQ(refusal([&] { zone.readGroups("g:x:1\n", "f"); }), "f:1: it has 3 fields instead of 4");
  for (const char* line : {"x\n", "x a b\n", " x a\n", "x a \n", "x nobody\n", "a a\n"})
    EXPECT_NE(refusal([&] { zone.readAliases(line, "f"); }), "accepted") << line;
}

TEST(ZoneFilesStamp, AFileCutDownAMomentAgoIsBeingRewritten) {
  const FileStamp good = {true, 1, 2, 100, {50, 0}, {50, 0}};
  const auto rewritten = [&](FileStamp current, timespec now) {
    return beingRewritten(good, current, now);
  };
  FileStamp cut = good;
  cut.size = 99;
  cut.modified = {60, 500'000'000};
  EXPECT_TRUE(rewritten(cut, {61, 0}));
  EXPECT_TRUE(rewritten(cut, {61, 499'999'999}));
  EXPECT_FALSE(rewritten(cut, {61, 500'000'000}));
  EXPECT_FALSE(rewritten(cut, {60, 0})) << "a clock set back must not hold the new zone up";
  FileStamp grown = cut;
  grown.size = 101;
  EXPECT_FALSE(rewritten(grown, {61, 0}));
  FileStamp renamed = cut;
  renamed.inode = 3;
  EXPECT_FALSE(rewritten(renamed, {61, 0}));
  EXPECT_FALSE(rewritten(FileStamp{}, {61, 0}));
}

class ZoneFilesTest : public SandboxTest {
 protected:
  void arrange() override {
    writeFile("/tmp/zone/passwd", "ayla:x:70001:70000:::\n");
    writeFile("/tmp/zone/group", "staff_z:x:70000:\n");
  }
};

TEST_F(ZoneFilesTest, FollowsTheFilesAndKeepsTheLastGoodZone) {
  ZoneFiles zone("/tmp/zone");
  EXPECT_EQ(user(zone, "bo"), "not found");
  writeFile("/tmp/zone/passwd", "ayla:x:70001:70000:::\nbo:x:70002:70000:::\n");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  writeFile("/tmp/zone/aliases", "smith bo\n");
  EXPECT_EQ(user(zone, "smith"), "bo:70002:70000");

  testing::internal::CaptureStderr();
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nbad\n");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  EXPECT_EQ(user(zone, "ayla"), "ayla:70001:70000");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zonagent: zone refused, the last good one stays in force: "
            "/tmp/zone/group:2: it has 1 fields instead of 4\n");
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nother:x:1:\n");
  EXPECT_EQ(unlink("/tmp/zone/aliases"), 0);
  EXPECT_EQ(truncate("/tmp/zone/passwd", 0), 0);
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  zone.reload();  // also takes what was cut down this very moment
  EXPECT_EQ(user(zone, "bo"), "not found");
}

TEST_F(ZoneFilesTest, RefusesToStartFrom) {
  const auto start = [] { return refusal([] { ZoneFiles zone("/tmp/zone"); }); };
  EXPECT_EQ(unlink("/tmp/zone/passwd"), 0);
  EXPECT_EQ(start(), "/tmp/zone/passwd: No such file or directory");
  mkfifo("/tmp/zone/passwd", 0600);
  EXPECT_EQ(start(), "/tmp/zone/passwd: it is not a regular file");
  EXPECT_EQ(unlink("/tmp/zone/passwd"), 0);
  writeFile("/tmp/zone/passwd", "", 0666);
  EXPECT_EQ(start(), "/tmp/zone/passwd: everybody may write to it");
}
