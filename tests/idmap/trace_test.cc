// What the two passes say: every message, its streams under each pair of options, its log record,
// and the questions to the agent between them.

#include <signal.h>

#include <algorithm>

#include <gtest/gtest.h>

#include "idmap/spare_id.h"
#include "services/exceptions.h"
#include "services/interrupt.h"
#include "tests/idmap/mapping_world.h"

namespace {

// Names and ids that lead a run through every message of both passes. The ids of the strays lie in
// the range of new ids.
constexpr World kTalkative = {
    .users =
        "hidden:900:900 ann:3000000000:100 same:1001:100 bob:51002:100 twin:51002:4294967294 "
        "carl:1003:4294967294 dan:1004:999",
    .groups = "hidden:900 dev:3000000000 kept:100 ops:50300 ops2:50300 free:400",
    .zoneUsers = "annz:4294967294:500 same:1001:500 bob=Bob:7002:500 other:51002:500",
    .zoneGroups = "devz:4294967294 kept:100 third:50300",
    .userNames = "ann=annz",
    .groupNames = "dev=devz"};

// Messages behind a "+" are printed only with traceExtra.
const std::vector<std::string> kGroupMessages = {
    "+Ignoring Group: hidden",
    "Groupname [dev]   MAPPED:[devz]",
    "  Found in Zone ... mapping 3000000000 to 4294967294",
    "Groupname [kept]",
    "Groupname [ops]",
    "+  Looking up gid(50300) in zone...",
    "  Name not in zone, but gid(50300) found in Zone ...",
    "mapping to new-gid",
    "Groupname [ops2]",
    "+  Looking up gid(50300) in zone...",
    "  Name not in zone, but gid(50300) found in Zone ...",
    "Ignoring: gid is already mapped",
    "Groupname [free]",
    "+  Looking up gid(400) in zone...",
    "+  Not found in zone..."};

const std::vector<std::string> kUserMessages = {
    "+Ignoring User: hidden",
    "Username [ann]   MAPPED:[annz]",
    "  Found in zone local ID(18446744072414584320) zone(18446744073709551614)",
    "  Adding UID Map[18446744072414584320] -> 18446744073709551614",
    "Username [same]",
    "  Found in zone local ID(1001) zone(1001)",
    "Username [bob]",
    "  User Matched AD-name, not Unix, IGNORING. Local: bob   zone-unix: Bob",
    "+  Not found looking up uid(51002) in zone...",
    "  Found in Zone ... mapping to new-uid",
    "+  Looking up gid(100) ...\n",
    "+  Found in local database ... Ignoring\n",
    "Username [twin]",
    "+  Not found looking up uid(51002) in zone...",
    "  Found in Zone ... Ignoring: uid is already mapped",
    "+  Looking up gid(18446744073709551614) ...\n",
    "  Found in Zone ... mapping to new-gid",
    "Username [carl]",
    "+  Not found looking up uid(1003) in zone...",
    "+  Looking up gid(18446744073709551614) ...\n",
    "  Found in Zone ... Ignoring: gid is already mapped\n",
    "Username [dan]",
    "+  Not found looking up uid(1004) in zone...",
    "+  Looking up gid(999) ...\n",
    "+  Not found in zone..."};

class MapTraces : public SandboxTest {
 protected:
  void arrange() override {
    recordLog();
    addSetting("nss.group.ignore = hidden");
    addSetting("nss.user.ignore = hidden");
  }

  // Standard error of a run over the talkative world.
  std::string run(bool traceMaps, bool traceExtra) {
    const auto zone = openZone(kTalkative);
    CommandOptions options;
    options.traceMaps = traceMaps;
    options.traceExtra = traceExtra;
    testing::internal::CaptureStderr();
    buildMaps(kTalkative, options);
    asked = zone->requests();
    return testing::internal::GetCapturedStderr();
  }

  std::vector<std::string> asked;
};

std::string printed(bool withExtra) {
  std::string text;
  for (const auto* messages : {&kGroupMessages, &kUserMessages})
    for (const std::string& message : *messages)
      if (withExtra || message[0] != '+')
        text += message.substr(message[0] == '+') + "\n";
  return text;
}

}  // namespace

TEST_F(MapTraces, StandardErrorByOptions) {
  EXPECT_EQ(run(false, true), "");
  EXPECT_EQ(run(true, false), printed(false));
  EXPECT_EQ(run(true, true), printed(true));
}

TEST_F(MapTraces, RecordsBearTheNameOfTheirPass) {
  EXPECT_EQ(run(false, false), "");
  std::vector<std::string> records;
  for (const std::string& record : readLogRecords()) {
    const std::string place = " DEBUG cli.idshift cli_idshift:";
    if (const size_t found = record.find(place); found != std::string::npos)
      records.push_back(record.substr(record.find(' ', found + place.size()) + 1));
  }
  std::vector<std::string> expected;
  expected.reserve(kGroupMessages.size() + kUserMessages.size());
  for (const std::string& message : kGroupMessages)
    expected.push_back("CreateGroupMaps " + message.substr(message[0] == '+'));
  for (const std::string& message : kUserMessages)
    expected.push_back("CreateIdMaps " + message.substr(message[0] == '+'));
  for (std::string& message : expected)  // a line feed inside a text is the record's end
    message.resize(std::min(message.size(), message.find('\n')));
  EXPECT_EQ(records, expected);
}

TEST_F(MapTraces, QuestionsComeOneByOneAndNoMoreThanNeeded) {
  run(false, false);
  const std::vector<std::string> expected = {
      "group devz", "group kept", "group ops",      "gid 50300", "gid 50301",      "group ops2",
      "gid 50300",  "group free", "gid 400",        "user annz", "user same",      "user bob",
      "uid 51002",  "uid 51003",  "user twin",      "uid 51002", "gid 4294967294", "gid 57294",
      "user carl",  "uid 1003",   "gid 4294967294", "user dan",  "uid 1004",       "gid 999"};
  EXPECT_EQ(asked, expected);
}

// ---- passes that end early

TEST_F(MapTraces, WhatTheAgentCannotSayEndsThePass) {
  const auto zone = openZone(kTalkative);
  for (const char* question :
       {"group ops", "gid 50300", "gid 50301", "user twin", "uid 51002", "uid 51003", "gid 999"}) {
    zone->misbehave(Fault::ServiceNotAvailable, question);
    EXPECT_THROW(buildMaps(kTalkative), orvs::IOException) << question;
    zone->misbehave(Fault::None, question);
  }
  CommandOptions options;
  options.newIDRange = {50300, 50300};
  EXPECT_THROW(buildMaps(kTalkative, options), orvs::InvalidRangeException);
  EXPECT_EQ(gidMap.at(50300), 0u);
}

TEST_F(MapTraces, ASignalEndsThePassesBeforeTheNextAccount) {
  const auto zone = openZone(kTalkative);
  interrupt::install();
  raise(SIGTERM);
  buildMaps(kTalkative);
  EXPECT_EQ(mapsAsText(), "");
  EXPECT_EQ(findSpareId(1000, true, {}), 1000u);
}
