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

enum class Detail { Usual, Extra };

struct Message {
  Detail detail;
  std::string text;
};

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

const Message kGroupMessages[] = {
    {Detail::Extra, "Ignoring Group: hidden"},
    {Detail::Usual, "Groupname [dev]   MAPPED:[devz]"},
    {Detail::Usual, "  Found in Zone ... mapping 3000000000 to 4294967294"},
    {Detail::Usual, "Groupname [kept]"},
    {Detail::Usual, "Groupname [ops]"},
    {Detail::Extra, "  Looking up gid(50300) in zone..."},
    {Detail::Usual, "  Name not in zone, but gid(50300) found in Zone ..."},
    {Detail::Usual, "mapping to new-gid"},
    {Detail::Usual, "Groupname [ops2]"},
    {Detail::Extra, "  Looking up gid(50300) in zone..."},
    {Detail::Usual, "  Name not in zone, but gid(50300) found in Zone ..."},
    {Detail::Usual, "Ignoring: gid is already mapped"},
    {Detail::Usual, "Groupname [free]"},
    {Detail::Extra, "  Looking up gid(400) in zone..."},
    {Detail::Extra, "  Not found in zone..."}};

const Message kUserMessages[] = {
    {Detail::Extra, "Ignoring User: hidden"},
    {Detail::Usual, "Username [ann]   MAPPED:[annz]"},
    {Detail::Usual, "  Found in zone local ID(18446744072414584320) zone(18446744073709551614)"},
    {Detail::Usual, "  Adding UID Map[18446744072414584320] -> 18446744073709551614"},
    {Detail::Usual, "Username [same]"},
    {Detail::Usual, "  Found in zone local ID(1001) zone(1001)"},
    {Detail::Usual, "Username [bob]"},
    {Detail::Usual, "  User Matched AD-name, not Unix, IGNORING. Local: bob   zone-unix: Bob"},
    {Detail::Extra, "  Not found looking up uid(51002) in zone..."},
    {Detail::Usual, "  Found in Zone ... mapping to new-uid"},
    {Detail::Extra, "  Looking up gid(100) ...\n"},
    {Detail::Extra, "  Found in local database ... Ignoring\n"},
    {Detail::Usual, "Username [twin]"},
    {Detail::Extra, "  Not found looking up uid(51002) in zone..."},
    {Detail::Usual, "  Found in Zone ... Ignoring: uid is already mapped"},
    {Detail::Extra, "  Looking up gid(18446744073709551614) ...\n"},
    {Detail::Usual, "  Found in Zone ... mapping to new-gid"},
    {Detail::Usual, "Username [carl]"},
    {Detail::Extra, "  Not found looking up uid(1003) in zone..."},
    {Detail::Extra, "  Looking up gid(18446744073709551614) ...\n"},
    {Detail::Usual, "  Found in Zone ... Ignoring: gid is already mapped\n"},
    {Detail::Usual, "Username [dan]"},
    {Detail::Extra, "  Not found looking up uid(1004) in zone..."},
    {Detail::Extra, "  Looking up gid(999) ...\n"},
    {Detail::Extra, "  Not found in zone..."}};

class MapTraces : public SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    if (IsSkipped())
      return;
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
  const auto append = [&](const Message& message) {
    if (withExtra || message.detail == Detail::Usual)
      text += message.text + "\n";
  };
  std::for_each(std::begin(kGroupMessages), std::end(kGroupMessages), append);
  std::for_each(std::begin(kUserMessages), std::end(kUserMessages), append);
  return text;
}

}  // namespace

TEST_F(MapTraces, StandardErrorByOptions) {
  EXPECT_EQ(run(false, false), "");
  EXPECT_EQ(run(false, true), "");
  EXPECT_EQ(run(true, false), printed(false));
  EXPECT_EQ(run(true, true), printed(true));
}

TEST_F(MapTraces, RecordsBearTheNameOfTheirPass) {
  run(false, false);
  std::vector<std::string> expected;
  for (const Message& message : kGroupMessages)
    expected.push_back("CreateGroupMaps " + message.text);
  for (const Message& message : kUserMessages)
    expected.push_back("CreateIdMaps " + message.text.substr(0, message.text.find('\n')));

  std::vector<std::string> records;
  for (const std::string& record : readLogRecords()) {
    const std::string place = " DEBUG cli.idshift cli_idshift:";
    if (const size_t found = record.find(place); found != std::string::npos)
      records.push_back(record.substr(record.find(' ', found + place.size()) + 1));
  }
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

// The class of the exception that ends the passes, or an empty string.
std::string endOfPasses(const CommandOptions& options) {
  try {
    buildMaps(kTalkative, options);
    return "";
  } catch (const ORVSException& error) {
    return error.className();
  }
}

TEST_F(MapTraces, WhatTheAgentCannotSayEndsThePass) {
  const auto zone = openZone(kTalkative);
  for (const char* question :
       {"group ops", "gid 50300", "gid 50301", "user twin", "uid 51002", "uid 51003", "gid 999"}) {
    zone->misbehave(Fault::ServiceNotAvailable, question);
    EXPECT_EQ(endOfPasses({}), "orvs::IOException") << question;
    zone->misbehave(Fault::None, question);
  }
  CommandOptions options;
  options.newIDRange = {50300, 50300};
  EXPECT_EQ(endOfPasses(options), "orvs::InvalidRangeException");
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
