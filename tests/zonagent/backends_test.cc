// The two backends: zone files and a name service module.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <functional>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"
#include "zonagent/nss_module.h"
#include "zonagent/zone_files.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace wire = orvs::wire;

using wire::Kind;

template <class Zone>
std::string find(Zone& zone, const wire::Question& question) {
  const Answer answer = zone.find(question);
  if (answer.verdict != Verdict::Found)
    return answer.verdict == Verdict::NotFound ? "not found" : "unavailable";
  return answer.record.name + ":" + std::to_string(answer.record.id.value()) + ":" +
         std::to_string(answer.record.gid);
}

template <class Zone>
std::string user(Zone& zone, const std::string& name) {
  return find(zone, {Kind::User, name, {}});
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
      inOnePiece("# a zone\n\nroot:x:0:0:r:/root:/bin/sh\ntoor:*:0:0:::\nz:x:4294967294:7:::\n"
                 "root:!:0:0:again::\n"),
      "passwd");
  zone.readGroups(inOnePiece("wheel:x:0:root,toor\nm\xC3\xBCller:x:7:\n"), "group");
  zone.readAliases(inOnePiece("admin root\nlast \t z\n"), "aliases");
  EXPECT_EQ(user(zone, "toor"), "toor:0:0");
  EXPECT_EQ(user(zone, "admin"), "root:0:0");
  EXPECT_EQ(user(zone, "last"), "z:4294967294:7");
  EXPECT_EQ(user(zone, "wheel"), "not found");
  EXPECT_EQ(find(zone, {Kind::User, {}, 0}), "root:0:0");
  EXPECT_EQ(find(zone, {Kind::User, {}, 7}), "not found");
  EXPECT_EQ(find(zone, {Kind::Group, {}, 7}), "m\xC3\xBCller:7:0");
}

TEST(ZoneTable, ALargeOneInPiecesAndTheVersionAfterIt) {
  // In the second version every other account has a new id, and one in three is gone.
  constexpr uint32_t kCount = 20'000;
  std::string text[2];
  for (uint32_t i = 0; i < kCount; ++i) {
    const std::string name = "u" + std::to_string(i);
    text[0] += name + ":x:" + std::to_string(i * 4) + ":7:::\n";
    if (i % 3 != 0)
      text[1] += name + ":x:" + std::to_string(i % 2 != 0 ? i * 4 : i * 4 - 4) + ":7:::\n";
  }
  ZoneTable versions[2];
  for (const size_t version : {0U, 1U}) {
    std::string_view left = text[version];
    const Pieces pieces = [&left] {
      const std::string_view piece = left.substr(0, 7);
      left.remove_prefix(piece.size());
      return piece;
    };
    versions[version].readUsers(pieces, "passwd", versions[0]);
  }
  for (uint32_t i = 1; i < kCount; ++i) {
    const std::string name = "u" + std::to_string(i);
    const std::string first = name + ":" + std::to_string(i * 4) + ":7";
    const std::string second = name + ":" + std::to_string(i % 2 != 0 ? i * 4 : i * 4 - 4) + ":7";
    ASSERT_EQ(user(versions[0], name), first);
    ASSERT_EQ(find(versions[0], {Kind::User, {}, i * 4}), first);
    ASSERT_EQ(user(versions[1], name), i % 3 == 0 ? "not found" : second);
    ASSERT_EQ(find(versions[1], {Kind::User, {}, i * 4 + 2}), "not found");
  }
}

TEST(ZoneTable, RefusesWithFileAndLine) {
  const std::string badId = " is not a number from 0 to 4294967294";
  const std::string badName = "the name is empty, is not UTF-8 or has a control character";
  const std::string nis = "entries that begin with + or - are not allowed in a zone";
  const struct {
    std::string text;
    std::string why;
  } rows[] = {
      {"a:x:1:1:::\nb:x:2:2::\n", "2: the line has 6 fields instead of 7"},
      {"\n#\na:x::1:::\n", "3: the uid" + badId},
      {"a:x:1 :1:::\n", "1: the uid" + badId},
      {"a:x:4294967295:1:::\n", "1: the uid" + badId},
      {"a:x:1:4294967296:::\n", "1: the gid" + badId},
      {"m\xFC:x:1:1:::\n", "1: " + badName},
      {"+::::::\n", "1: " + nis},
      {"-a:x:1:1:::\n", "1: " + nis},
      {"a:x:1:1:::\na:x:2:1:::\n", "2: \"a\" is listed twice with different ids"},
      {"a:x:1:1:::\na:x:1:2:::\n", "2: \"a\" is listed twice with different ids"},
      {"a:x:1:1:::\nb:x:2:1:::", "2: the last line has no line feed; the file may be cut short"},
      {"\xEF\xBB\xBF#\na:x:1:1:::\n", "1: the file begins with a byte order mark"},
      {"# nobody\n", " the file has no account"},
  };
  for (const auto& row : rows) {
    ZoneTable zone;
    EXPECT_EQ(refusal([&] { zone.readUsers(inOnePiece(row.text), "f"); }), "f:" + row.why)
        << row.text;
  }
  ZoneTable zone;
  zone.readUsers(inOnePiece("a:x:1:1:::\n"), "f");
  for (const char* line : {"x\n", "x a b\n", " x a\n", "x a \n", "x nobody\n", "a a\n"})
    EXPECT_NE(refusal([&] { zone.readAliases(inOnePiece(line), "f"); }), "accepted") << line;
}

TEST(ZoneVersion, AFileThatLostAccountsRestsUntilItIsTenSecondsOld) {
  using std::chrono::milliseconds;
  const ZoneVersion good = {{}, {3, 2, 1}};
  const struct {
    std::array<size_t, 3> accounts;
    bool present;
    timespec now;
    milliseconds expected;
  } rows[] = {
      {{2, 2, 1}, true, {100, 500'000'000}, milliseconds(10'000)},
      {{3, 1, 1}, true, {101, 0}, milliseconds(9500)},
      {{3, 2, 0}, true, {110, 499'000'000}, milliseconds(1)},
      {{2, 2, 1}, true, {110, 500'000'000}, milliseconds(0)},
      {{2, 2, 1}, true, {100, 0}, milliseconds(0)},  // the clock was set back: no waiting
      {{3, 2, 0}, false, {101, 0}, milliseconds(0)},
      {{3, 9, 1}, true, {101, 0}, milliseconds(0)},
  };
  for (const auto& row : rows) {
    const FileStamp stamp = {row.present, 1, 2, 3, {100, 500'000'000}, {}};
    EXPECT_EQ(restOf(good, {{stamp, stamp, stamp}, row.accounts}, row.now), row.expected)
        << row.now.tv_sec;
  }
}

class BackendTest : public SandboxTest {};

TEST_F(BackendTest, ZoneFilesFollowsTheFilesAndKeepsTheLastGoodZone) {
  const std::string ayla = "ayla:x:70001:70000:::\n";
  const std::string bo = "bo:x:70002:70000:::\n";
  const auto pause = [] { usleep(120'000); };
  writeFile("/tmp/zone/passwd", ayla);
  writeFile("/tmp/zone/group", "staff_z:x:70000:\n");
  ZoneFiles zone("/tmp/zone");
  EXPECT_EQ(user(zone, "bo"), "not found");
  testing::internal::CaptureStderr();
  writeFile("/tmp/zone/passwd", ayla + bo);
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  writeFile("/tmp/zone/aliases", "smith bo\n");
  EXPECT_EQ(user(zone, "smith"), "bo:70002:70000");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zonagent: /tmp/zone: 2 users (was 1), 1 groups\n"
            "zonagent: /tmp/zone: 2 users (was 2), 1 groups\n");

  testing::internal::CaptureStderr();
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nbad\n");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  pause();
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");  // reported once
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zonagent: zone refused, the last good zone stays in force: "
            "/tmp/zone/group:2: the line has 1 fields instead of 4\n");
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nother:x:1:\n");
  EXPECT_EQ(unlink("/tmp/zone/aliases"), 0);
  EXPECT_EQ(user(zone, "smith"), "not found");

  // A file that loses accounts waits, also when it is replaced; not when it grows again or is old.
  testing::internal::CaptureStderr();
  EXPECT_EQ(truncate("/tmp/zone/passwd", static_cast<off_t>(ayla.size())), 0);
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  pause();
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  EXPECT_EQ(linesOf(testing::internal::GetCapturedStderr()).size(), 1u);  // read once
  writeFile("/tmp/zone/new", "cy:x:1:1:::\n");
  EXPECT_EQ(rename("/tmp/zone/new", "/tmp/zone/passwd"), 0);
  EXPECT_EQ(user(zone, "cy"), "not found");
  pause();
  writeFile("/tmp/zone/passwd", ayla + "cy:x:1:1:::\n");
  EXPECT_EQ(user(zone, "cy"), "cy:1:1");
  writeFile("/tmp/zone/passwd", ayla);
  const timespec age[] = {{time(nullptr) - 10, 0}, {time(nullptr) - 10, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, "/tmp/zone/passwd", age, 0), 0);
  EXPECT_EQ(user(zone, "cy"), "not found");
  writeFile("/tmp/zone/passwd", ayla + bo);
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  writeFile("/tmp/zone/passwd", bo);
  EXPECT_EQ(user(zone, "ayla"), "ayla:70001:70000");
  zone.reload();  // makes it wait no longer
  EXPECT_EQ(user(zone, "ayla"), "not found");
  writeFile("/tmp/zone/passwd", "");
  zone.reload();
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
}

TEST_F(BackendTest, ARestIsOverWithoutAnotherChange) {
  writeFile("/tmp/zone/passwd", "ayla:x:70001:70000:::\nbo:x:70002:70000:::\n");
  writeFile("/tmp/zone/group", "");
  ZoneFiles zone("/tmp/zone");
  writeFile("/tmp/zone/passwd", "bo:x:70002:70000:::\n");
  const timespec age[] = {{time(nullptr) - 8, 0}, {time(nullptr) - 8, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, "/tmp/zone/passwd", age, 0), 0);
  EXPECT_EQ(user(zone, "ayla"), "ayla:70001:70000");
  sleep(2);
  EXPECT_EQ(user(zone, "ayla"), "not found");
}

TEST_F(BackendTest, RefusesAZoneThatOthersThanRootCanChange) {
  const struct {
    std::string change;       // shell commands, run in the folder above the zone
    std::string by = "fine";  // the part that others can change
  } rows[] = {
      {"true"},
      {"chmod 664 zone/passwd"},  // root's group
      {"chmod 666 zone/passwd", "/zone/passwd"},
      {"chgrp 7 zone/passwd; chmod 664 zone/passwd", "/zone/passwd"},
      {"chown 7 zone/group", "/zone/group"},
      {"chown 7 zone", "/zone"},
      {"touch zone/aliases; chmod 1777 zone", "/zone"},
      {"chmod 1777 ."},
      {"chmod 1777 .; mv zone c; ln -s c zone; chown -h 7 zone", ""},
      {"chmod 777 .", ""},
      {"chown 7 .; chmod 1755 .", ""},
      // By way of links.
      {"mkdir b; mv zone/passwd b; ln -s ../b/passwd zone"},
      {"mkdir b; mv zone/passwd b; ln -s $PWD/b/./passwd zone; chmod 777 b", "/b"},
      {"mkdir -m 777 b; mv zone c; ln -s ../c b/d; ln -s b/d zone", "/b"},
      {"ln -s aliases zone/aliases", "/zone/aliases"},  // a loop
  };
  int number = 0;
  for (const auto& row : rows) {
    const std::string above = "/trees/" + std::to_string(++number);
    writeFile(above + "/zone/passwd", "ayla:x:70001:70000:::\n");
    writeFile(above + "/zone/group", "");
    ASSERT_EQ(runProgram({"sh", "-ec", "cd " + above + "; " + row.change}).status, 0) << row.change;
    const std::string text = refusal([&] { ZoneFiles(above + "/zone"); });
    const std::string open = "others than root can change " + above;
    EXPECT_TRUE(row.by == "fine" ? text == "accepted" : text.ends_with(open + row.by))
        << row.change << "\n"
        << text;
  }

  // user::rw, user:7:rw, group::r, mask::rw, other::r: the group's bits show the mask.
  constexpr unsigned char kList[] = {
      2, 0, 0,    0,    1,    0,    6,    0, 0xff, 0xff, 0xff, 0xff, 2,    0,    6,
      0, 7, 0,    0,    0,    4,    0,    4, 0,    0xff, 0xff, 0xff, 0xff, 0x10, 0,
      6, 0, 0xff, 0xff, 0xff, 0xff, 0x20, 0, 4,    0,    0xff, 0xff, 0xff, 0xff};
  ASSERT_EQ(setxattr("/trees/1/zone/group", "system.posix_acl_access", kList, sizeof kList, 0), 0);
  EXPECT_EQ(refusal([] { ZoneFiles("/trees/1/zone"); }),
            "/trees/1/zone/group: others than root can change /trees/1/zone/group");
}

TEST(NssModule, WhatBecomesOfEachStatus) {
  NssModule module("toy", "", std::chrono::seconds(0));
  const std::pair<wire::Question, const char*> rows[] = {
      {{Kind::User, "AYLA", {}}, "ayla:70001:70000"},
      {{Kind::User, "big", {}}, "big:70001:70000"},  // needs the largest buffer
      {{Kind::User, "endless", {}}, "unavailable"},
      {{Kind::User, "notfound", {}}, "not found"},
      {{Kind::User, "unavail", {}}, "unavailable"},
      {{Kind::User, "tryagain", {}}, "unavailable"},
      {{Kind::User, "latin1", {}}, "unavailable"},
      {{Kind::User, "nameless", {}}, "unavailable"},
      {{Kind::User, "minusone", {}}, "unavailable"},
      {{Kind::User, "minusgid", {}}, "unavailable"},
      {{Kind::User, {}, 70001}, "ayla:70001:70000"},
      {{Kind::User, {}, 70000}, "not found"},  // the module answers with its first record
      {{Kind::User, {}, 70003}, "unavailable"},
      {{Kind::Group, "staff_z", {}}, "staff_z:70000:0"},
      {{Kind::Group, {}, 70000}, "staff_z:70000:0"},
      {{Kind::Group, {}, 70001}, "not found"},  // as above
      {{Kind::Group, {}, 0}, "not found"},
  };
  for (const auto& [question, expected] : rows)
    EXPECT_EQ(find(module, question), expected)
        << question.name.value_or("") << question.id.value_or(0);
}
