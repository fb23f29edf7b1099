// Where answers come from: zone files and the host's modules.
#include <sys/stat.h>
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
      "# a zone\n\nroot:x:0:0:r:/root:/bin/sh\ntoor:*:0:0:::\nz:x:4294967294:7:::\n"
      "root:!:0:0:again::\n",
      "passwd");
  zone.readGroups("wheel:x:0:root,toor\nm\xC3\xBCller:x:7:\n", "group");
  zone.readAliases("admin root\nlast \t z\n", "aliases");
  EXPECT_EQ(user(zone, "toor"), "toor:0:0");
  EXPECT_EQ(user(zone, "admin"), "root:0:0");
  EXPECT_EQ(user(zone, "last"), "z:4294967294:7");
  EXPECT_EQ(user(zone, "wheel"), "not found");
  EXPECT_EQ(find(zone, {Kind::User, {}, 0}), "root:0:0");
  EXPECT_EQ(find(zone, {Kind::User, {}, 7}), "not found");
  EXPECT_EQ(find(zone, {Kind::Group, {}, 7}), "m\xC3\xBCller:7:0");
}

TEST(ZoneTable, RefusesWithFileAndLine) {
  const std::string badId = " is not a number from 0 to 4294967294";
  const std::string badName = "the name is empty, is not UTF-8 or has a control character";
  const std::string nis = "compatibility entries have no place in a zone";
  const struct {
    std::string text;
    std::string why;
  } rows[] = {
      {"a:x:1:1:::\nb:x:2:2::\n", "2: it has 6 fields instead of 7"},
      {"\n#\na:x::1:::\n", "3: the uid" + badId},
      {"a:x:1 :1:::\n", "1: the uid" + badId},
      {"a:x:4294967295:1:::\n", "1: the uid" + badId},
      {"a:x:1:4294967296:::\n", "1: the gid" + badId},
      {"m\xFC:x:1:1:::\n", "1: " + badName},
      {"+::::::\n", "1: " + nis},
      {"-a:x:1:1:::\n", "1: " + nis},
      {"a:x:1:1:::\na:x:2:1:::\n", "2: \"a\" stands in the file with other ids already"},
      {"a:x:1:1:::\na:x:1:2:::\n", "2: \"a\" stands in the file with other ids already"},
      {"a:x:1:1:::\nb:x:2:1:::", "2: the last line has no line end; the file may be cut short"},
  };
  for (const auto& row : rows) {
    ZoneTable zone;
    EXPECT_EQ(refusal([&] { zone.readUsers(row.text, "f"); }), "f:" + row.why) << row.text;
  }
  ZoneTable zone;
  zone.readUsers("a:x:1:1:::\n", "f");
  for (const char* line : {"x\n", "x a b\n", " x a\n", "x a \n", "x nobody\n", "a a\n"})
    EXPECT_NE(refusal([&] { zone.readAliases(line, "f"); }), "accepted") << line;
}

TEST(ZoneFilesStamp, AFileCutDownAMomentAgoIsBeingRewritten) {
  const FileStamp good = {true, 1, 2, 100, {50, 0}, {50, 0}};
  const timespec cutAt = {60, 500'000'000};
  const struct {
    ino_t inode;
    off_t size;
    timespec now;
    bool expected;
  } rows[] = {
      {2, 99, {61, 499'999'999}, true}, {2, 99, {61, 500'000'000}, false},
      {2, 99, {60, 0}, false},  // a clock set back must not hold a zone up
      {2, 101, {61, 0}, false},         {3, 99, {61, 0}, false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(beingRewritten(good, {true, 1, row.inode, row.size, cutAt, {}}, row.now),
              row.expected)
        << row.size << " " << row.inode << " " << row.now.tv_nsec;
}

class BackendTest : public SandboxTest {};

TEST_F(BackendTest, ZoneFilesFollowsTheFilesAndKeepsTheLastGoodZone) {
  writeFile("/tmp/zone/passwd", "ayla:x:70001:70000:::\n");
  writeFile("/tmp/zone/group", "staff_z:x:70000:\n");
  ZoneFiles zone("/tmp/zone");
  EXPECT_EQ(user(zone, "bo"), "not found");
  writeFile("/tmp/zone/passwd", "ayla:x:70001:70000:::\nbo:x:70002:70000:::\n");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  writeFile("/tmp/zone/aliases", "smith bo\n");
  EXPECT_EQ(user(zone, "smith"), "bo:70002:70000");

  testing::internal::CaptureStderr();
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nbad\n");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");  // refused once
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zonagent: zone refused, the last good one stays in force: "
            "/tmp/zone/group:2: it has 1 fields instead of 4\n");
  writeFile("/tmp/zone/group", "staff_z:x:70000:\nother:x:1:\n");
  EXPECT_EQ(unlink("/tmp/zone/aliases"), 0);
  EXPECT_EQ(truncate("/tmp/zone/passwd", 0), 0);
  EXPECT_EQ(user(zone, "bo"), "bo:70002:70000");
  zone.reload();  // also takes what was cut down this very moment
  EXPECT_EQ(user(zone, "bo"), "not found");

  const auto start = [] { return refusal([] { ZoneFiles("/tmp/zone"); }); };
  writeFile("/tmp/zone/passwd", "", 0666);
  EXPECT_EQ(start(), "/tmp/zone/passwd: everybody may write to it");
  EXPECT_EQ(unlink("/tmp/zone/passwd"), 0);
  mkfifo("/tmp/zone/passwd", 0600);
  EXPECT_EQ(start(), "/tmp/zone/passwd: it is not a regular file");
}

TEST(NssModule, WhatBecomesOfEachStatus) {
  NssModule module("toy", "");
  const std::pair<wire::Question, const char*> rows[] = {
      {{Kind::User, "AYLA", {}}, "ayla:70001:70000"},
      {{Kind::User, "big", {}}, "big:70001:70000"},  // takes the largest buffer
      {{Kind::User, "endless", {}}, "unavailable"},
      {{Kind::User, "notfound", {}}, "not found"},
      {{Kind::User, "unavail", {}}, "unavailable"},
      {{Kind::User, "tryagain", {}}, "unavailable"},
      {{Kind::User, "latin1", {}}, "unavailable"},
      {{Kind::User, "nameless", {}}, "unavailable"},
      {{Kind::User, "minusone", {}}, "unavailable"},
      {{Kind::User, "minusgid", {}}, "unavailable"},
      {{Kind::User, {}, 70001}, "ayla:70001:70000"},
      {{Kind::User, {}, 70000}, "not found"},  // answered with the first record
      {{Kind::User, {}, 70003}, "unavailable"},
      {{Kind::Group, "staff_z", {}}, "staff_z:70000:0"},
      {{Kind::Group, {}, 70000}, "staff_z:70000:0"},
      {{Kind::Group, {}, 70001}, "not found"},  // this too
      {{Kind::Group, {}, 0}, "not found"},
  };
  for (const auto& [question, expected] : rows)
    EXPECT_EQ(find(module, question), expected)
        << question.name.value_or("") << question.id.value_or(0);
}

// A module whose directory is down says "not found" for what it has not cached.
TEST(NssModule, NotFoundWhileTheOnlineCheckFailsIsUnavailable) {
  const struct {
    const char* command;
    const char* expected;
  } rows[] = {{" test  -d /", "not found"},
              {"false", "unavailable"},
              {"true ; false", "not found"},  // no shell looks at it
              {"/nowhere/check", "unavailable"},
              {"sleep 600", "unavailable"}};
  for (const auto& row : rows) {
    NssModule module("toy", row.command);
    EXPECT_EQ(user(module, "notfound"), row.expected) << row.command;
    EXPECT_EQ(user(module, "ayla"), "ayla:70001:70000") << row.command;
  }
}

TEST_F(BackendTest, OnlyANoOfTheOnlineCheckIsRememberedForAWhile) {
  OnlineCheck check("test -e /tmp/online");
  EXPECT_EQ(check.ask(), Online::No);
  writeFile("/tmp/online", "");
  EXPECT_EQ(check.ask(), Online::No);
  check.forget();
  EXPECT_EQ(check.ask(), Online::Yes);
  EXPECT_EQ(unlink("/tmp/online"), 0);
  EXPECT_EQ(check.ask(), Online::No);
  writeFile("/tmp/online", "");
  sleep(4);
  EXPECT_EQ(check.ask(), Online::Yes);
}
