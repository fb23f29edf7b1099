// The two passes that fill the maps: what they find, what they ask the agent, what they say, and
// how they end early.
#include <signal.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

#include "accountdb/passwdDB.h"
#include "idmap/group_map.h"
#include "idmap/id_maps.h"
#include "idmap/name_map.h"
#include "idmap/spare_id.h"
#include "idmap/user_map.h"
#include "services/exceptions.h"
#include "services/interrupt.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"

namespace {

// Accounts are separated by blanks. A user is name:uid:gid, a group name:gid. In the zone,
// asked=name:... also answers to the name `asked`. Name maps are local=zone.
struct World {
  const char* about = "";
  const char* users = "";
  const char* groups = "";
  const char* zoneUsers = "";
  const char* zoneGroups = "";
  const char* expected = "";  // see mapsAsText
  const char* userNames = "";
  const char* groupNames = "";
};

struct Account {
  std::string askedAs;
  std::string name;
  uint32_t id = 0;
  uint32_t gid = 0;
};

std::vector<Account> accounts(const char* text) {
  std::vector<Account> all;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    Account account;
    if (const size_t sign = word.find('='); sign != std::string::npos) {
      account.askedAs = word.substr(0, sign);
      word.erase(0, sign + 1);
    }
    std::replace(word.begin(), word.end(), ':', ' ');
    std::istringstream(word) >> account.name >> account.id >> account.gid;
    all.push_back(account);
  }
  return all;
}

NameMap nameMap(const char* text) {
  NameMap map;
  for (const Account& account : accounts(text))
    map[account.askedAs] = account.name;
  return map;
}

// The world's zone, started on the fixed socket.
std::unique_ptr<FakeZone> openZone(const World& world) {
  auto zone = std::make_unique<FakeZone>();
  for (const Account& user : accounts(world.zoneUsers)) {
    zone->user(user.name, user.id, user.gid);
    if (!user.askedAs.empty())
      zone->alias(user.askedAs, user.name);
  }
  for (const Account& group : accounts(world.zoneGroups)) {
    zone->group(group.name, group.id);
    if (!group.askedAs.empty())
      zone->alias(group.askedAs, group.name);
  }
  zone->start();
  return zone;
}

// Runs both passes on the world's local accounts and name maps. No account touches a file.
void buildMaps(const World& world, const CommandOptions& options = {}) {
  orvs::PasswdDB users(true);
  orvs::GroupDB groups(true);
  for (const Account& row : accounts(world.users)) {
    orvs::DBPasswd entry;
    entry.name = row.name;
    entry.uid = row.id;
    entry.gid = row.gid;
    users.insert(entry);
  }
  for (const Account& row : accounts(world.groups)) {
    orvs::DBGroup entry;
    entry.name = row.name;
    entry.gid = row.id;
    groups.insert(entry);
  }
  for (IdMap* map : {&uidMap, &gidMap, &userZoneGid, &userLocalGid})
    map->clear();
  userConflicts.clear();
  groupConflicts.clear();
  userNameMap = nameMap(world.userNames);
  groupNameMap = nameMap(world.groupNames);
  EXPECT_EQ(CreateGroupMaps(groups, options), 0);
  EXPECT_EQ(CreateIdMaps(users, groups, options), 0);
}

std::string mapAsText(const char* kind, const IdMap& ids, const ConflictMap& records) {
  EXPECT_EQ(ids.size(), records.size());
  std::ostringstream text;
  for (const auto& [oldId, newId] : ids) {
    const ConflictRecord& record = records.at(oldId);
    EXPECT_EQ(record.newId, newId);
    text << kind << " " << oldId << " -> " << newId << " " << record.localName
         << (record.resolution == RESOLUTION_USE_ZONE_ID ? " is " : " yields to ")
         << record.zoneName << ", ";
  }
  return text.str();
}

// The filled maps, in their order, joined with ", ":
//   uid 1000 -> 2000 ann is annz        by name
//   gid 100 -> 50100 dev yields to ops  to a spare id
//   primary of 1000: 100 -> 7100
std::string mapsAsText() {
  std::ostringstream text;
  text << mapAsText("uid", uidMap, userConflicts) << mapAsText("gid", gidMap, groupConflicts);
  for (const auto& [uid, zoneGid] : userZoneGid)
    text << "primary of " << uid << ": " << userLocalGid.at(uid) << " -> " << zoneGid << ", ";
  const std::string all = text.str();
  return all.substr(0, all.size() - std::min<size_t>(all.size(), 2));
}

const World kWorlds[] = {
    {"groups", "", "same:1 dev:100 gone:101 odd:102 free:103 held:104 far:4294967294", "",
     "same:1 dev:9 devz:7100 gone:9 x:101 odd=Odd:7102 y:104 far:4000000000",
     "gid 100 -> 7100 dev is devz, gid 101 -> 50101 gone yields to x, gid 102 -> 7102 odd is Odd, "
     "gid 104 -> 50104 held yields to y, gid 4294967294 -> 4000000000 far is far",
     "", "dev=devz Dev=dev gone=away"},
    {"of two names of one gid the later wins", "", "one:100 two:100", "", "one:7001 two:7002",
     "gid 100 -> 7002 two is two"},
    {"a name overwrites a spare gid", "", "stray:100 dev:100", "", "other:100 dev:7100",
     "gid 100 -> 7100 dev is dev"},
    {"a stray leaves a mapped gid", "", "dev:100 stray:100", "", "other:100 dev:7100",
     "gid 100 -> 7100 dev is dev"},
    {"users", "same:1000:100 ann:1001:100 odd:1002:100 Bob:1003:100 carl:1004:100 held:1005:100",
     "users:100",
     "same:1000:500 ann:9:9 annz:2001:500 odd=Odd:1002:9 Bob=bob:9:9 carl=carlz:9:9 x:1005:9",
     "other:500",
     "uid 1001 -> 2001 ann is annz, uid 1002 -> 51002 odd yields to Odd, "
     "uid 1005 -> 51005 held yields to x, primary of 1000: 100 -> 500, "
     "primary of 1001: 100 -> 500",
     "ann=annz Ann=ann"},
    {"of two names of one uid the later wins", "one:1000:100 two:1000:101", "",
     "one:2001:501 two:2002:502", "", "uid 1000 -> 2002 two is two, primary of 1000: 101 -> 502"},
    {"a name overwrites a spare uid", "stray:1000:100 ann:1000:101", "",
     "other:1000:500 ann:2000:501", "", "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"},
    {"a stray leaves a mapped uid", "ann:1000:101 stray:1000:100", "",
     "other:1000:500 ann:2000:501", "", "uid 1000 -> 2000 ann is ann, primary of 1000: 101 -> 501"},
    {"a primary gid that the zone alone knows", "ann:1000:100 bob:1001:100", "", "", "other:100",
     "gid 100 -> 50100  yields to other"},
    {"a primary gid of a local group", "ann:1000:100 bob:1001:101", "kept:100 moved:101", "",
     "kept:100 moved:7100 other:101", "gid 101 -> 7100 moved is moved"},
    {"spare ids are kept apart by their seeds alone, not by new ids or unmapped accounts",
     "ann:1000:100 bob:11000:100 carl:51000:100", "", "x:1000:500 y:11000:500", "",
     "uid 1000 -> 51000 ann yields to x, uid 11000 -> 51000 bob yields to y"}};

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
constexpr const char* kMessages[] = {
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
    "+  Not found in zone...",
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

std::string printed(bool withExtra) {
  std::string text;
  for (const std::string message : kMessages) {
    if (withExtra || message[0] != '+')
      text += message.substr(message[0] == '+') + "\n";
  }
  return text;
}

class Mapping : public SandboxTest {
 protected:
  void arrange() override {
    recordLog();
    addSetting("nss.group.ignore = hidden");
    addSetting("nss.user.ignore = hidden");
  }
};

}  // namespace

TEST_F(Mapping, Worlds) {
  for (const World& world : kWorlds) {
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(mapsAsText(), world.expected) << world.about;
  }
}

TEST_F(Mapping, QuestionsMessagesAndRecords) {
  const auto zone = openZone(kTalkative);
  const auto run = [](bool traceMaps, bool traceExtra) {
    CommandOptions options;
    options.traceMaps = traceMaps;
    options.traceExtra = traceExtra;
    testing::internal::CaptureStderr();
    buildMaps(kTalkative, options);
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(run(false, true), "");
  // One by one and no more than needed.
  const std::vector<std::string> questions = {
      "group devz", "group kept", "group ops",      "gid 50300", "gid 50301",      "group ops2",
      "gid 50300",  "group free", "gid 400",        "user annz", "user same",      "user bob",
      "uid 51002",  "uid 51003",  "user twin",      "uid 51002", "gid 4294967294", "gid 57294",
      "user carl",  "uid 1003",   "gid 4294967294", "user dan",  "uid 1004",       "gid 999"};
  EXPECT_EQ(zone->requests(), questions);
  // Every message has a record, which bears the name of its pass.
  std::string records;
  for (const std::string& record : readLogRecords())
    records += record + "\n";
  EXPECT_EQ(countOf(records, " DEBUG cli.idshift cli_idshift:"), std::size(kMessages));
  EXPECT_TRUE(contains(records, " CreateGroupMaps Ignoring Group: hidden\n"));
  EXPECT_TRUE(contains(records, " CreateIdMaps   Looking up gid(999) ...\n"));

  EXPECT_EQ(run(true, false), printed(false));
  EXPECT_EQ(run(true, true), printed(true));
}

TEST_F(Mapping, WhatTheAgentCannotSayEndsThePass) {
  const auto zone = openZone(kTalkative);
  for (const char* question :
       {"group ops", "gid 50300", "gid 50301", "user twin", "uid 51002", "uid 51003", "gid 999"}) {
    zone->misbehave(Fault::ServiceNotAvailable, question);
    EXPECT_THROW(buildMaps(kTalkative), orvs::IOException) << question;
    zone->misbehave(Fault::None, question);
  }
}

TEST_F(Mapping, ASignalEndsThePassesBeforeTheNextAccount) {
  const auto zone = openZone(kTalkative);
  interrupt::install();
  raise(SIGTERM);
  buildMaps(kTalkative);
  EXPECT_EQ(mapsAsText(), "");
  EXPECT_EQ(findSpareId(1000, true, {}), 1000u);
}

TEST_F(Mapping, SpareIdsSkipOldIdsUnaskedAndZoneIdsOfTheSameKind) {
  const auto zone = openZone({.zoneUsers = "a:53:1 b:50:1", .zoneGroups = "g:52"});
  CommandOptions options;
  options.newIDRange = {50, 54};
  uidMap = {{54, 51}};
  gidMap = {{53, 51}};
  EXPECT_EQ(findSpareId(2, true, options), 52u);
  EXPECT_EQ(findSpareId(3, true, options), 51u);
  EXPECT_EQ(findSpareId(2, false, options), 54u);
  EXPECT_EQ(zone->requests(),
            (std::vector<std::string>{"uid 52", "uid 53", "uid 50", "uid 51", "gid 52", "gid 54"}));
}

TEST(SpareIdScan, Rows) {
  constexpr uint32_t kMax = 4294967295u;
  constexpr size_t kAll = 100;
  const struct {
    uint32_t seed;
    IdRange range;
    size_t limit;
    std::vector<uint32_t> expected;
  } rows[] = {{7, {50, 50}, kAll, {50}},
              {2, {50, 53}, kAll, {52, 53, 50, 51}},
              {3, {50, 53}, kAll, {50, 51, 52, 53}},  // high is reached, but never the start
              {kMax, {0, kMax}, 3, {0, 1, 2}},
              {kMax - 1, {0, kMax}, 4, {kMax - 1, kMax, 0, 1}}};
  for (const auto& row : rows) {
    std::vector<uint32_t> ids;
    SpareIdScan scan(row.seed, row.range);
    do {
      ids.push_back(scan.candidate());
    } while (ids.size() < row.limit && scan.advance());
    EXPECT_EQ(ids, row.expected) << row.seed << " in " << row.range.low << "-" << row.range.high;
  }
}

TEST(NameMapFile, ADirectoryIsNotLoaded) {
  NameMap map;
  EXPECT_EQ(LoadNameMap("/", map), 6);
}
