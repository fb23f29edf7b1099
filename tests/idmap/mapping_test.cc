// The two passes that fill the maps: their results, their questions to the agent, their messages,
// and how they end early.
#include <signal.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

#include "accountdb/passwdDB.h"
#include "idmap/group_map.h"
#include "idmap/id_maps.h"
#include "idmap/spare_id.h"
#include "idmap/user_map.h"
#include "services/exceptions.h"
#include "services/interrupt.h"
#include "tests/support/fake_zone.h"
#include "tests/support/sandbox.h"

namespace {

// A world of accounts, separated by blanks. A user is name:uid:gid, a group name:gid. A fourth
// field, as in name:gid:0:other, is another name by which the zone knows the account.
struct World {
  const char* about = "";
  const char* users = "";
  const char* groups = "";
  const char* zoneUsers = "";
  const char* zoneGroups = "";
  const char* expected = "";  // in the form of filledMaps()
  NameMap userNames = {};
  NameMap groupNames = {};
};

struct Account {
  std::string name, otherName;
  uint32_t id = 0, gid = 0;
};

std::vector<Account> accounts(const char* text) {
  std::vector<Account> all;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    std::replace(word.begin(), word.end(), ':', ' ');
    Account& account = all.emplace_back();
    std::istringstream(word) >> account.name >> account.id >> account.gid >> account.otherName;
  }
  return all;
}

// Starts the zone of the world on the fixed socket.
std::unique_ptr<FakeZone> openZone(const World& world) {
  auto zone = std::make_unique<FakeZone>();
  for (const Account& user : accounts(world.zoneUsers))
    zone->user(user.name, user.id, user.gid).alias(user.otherName, user.name);
  for (const Account& group : accounts(world.zoneGroups))
    zone->group(group.name, group.id).alias(group.otherName, group.name);
  zone->start();
  return zone;
}

// Runs both passes on the local accounts and name maps of the world. The accounts are inserted
// without a file.
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
  uidMap = gidMap = userZoneGid = userLocalGid = {};
  userConflicts = groupConflicts = {};
  userNameMap = world.userNames;
  groupNameMap = world.groupNames;
  EXPECT_EQ(CreateGroupMaps(groups, options), 0);
  EXPECT_EQ(CreateIdMaps(users, groups, options), 0);
}

// The filled maps, in their order, each entry with ", " behind it:
//   uid 1000 -> 2000 ann is annz        by name
//   gid 100 -> 50100 dev yields to ops  to a spare id
//   primary of 1000: 100 -> 7100
std::string filledMaps() {
  std::ostringstream text;
  const auto tell = [&](const char* kind, const IdMap& ids, const ConflictMap& records) {
    EXPECT_EQ(ids.size(), records.size());
    for (const auto& [oldId, newId] : ids) {
      const ConflictRecord& record = records.at(oldId);
      EXPECT_EQ(record.newId, newId);
      text << kind << " " << oldId << " -> " << newId << " " << record.localName
           << (record.resolution == RESOLUTION_USE_ZONE_ID ? " is " : " yields to ")
           << record.zoneName << ", ";
    }
  };
  tell("uid", uidMap, userConflicts);
  tell("gid", gidMap, groupConflicts);
  for (const auto& [uid, zoneGid] : userZoneGid)
    text << "primary of " << uid << ": " << userLocalGid.at(uid) << " -> " << zoneGid << ", ";
  return text.str();
}

const World kWorlds[] = {
    {.about = "groups",
     .groups = "same:1 dev:100 gone:101 odd:102 free:103 far:4294967294",
     .zoneGroups = "same:1 dev:9 devz:7100 gone:9 x:101 Odd:7102:0:odd far:4000000000",
     .expected = "gid 100 -> 7100 dev is devz, gid 101 -> 50101 gone yields to x, "
                 "gid 102 -> 7102 odd is Odd, gid 4294967294 -> 4000000000 far is far, ",
     .groupNames = {{"dev", "devz"}, {"Dev", "dev"}, {"gone", "away"}}},
    {.about = "a name overwrites a spare gid",
     .groups = "stray:100 dev:100",
     .zoneGroups = "other:100 dev:7100",
     .expected = "gid 100 -> 7100 dev is dev, "},
    {.about = "users",
     .users = "same:1000:100 ann:1001:100 odd:1002:100 Bob:1003:100 carl:1004:100",
     .groups = "users:100",
     .zoneUsers = "same:1000:500 ann:9:9 annz:2001:500 Odd:1002:9:odd bob:9:9:Bob carlz:9:9:carl",
     .zoneGroups = "other:500",
     .expected = "uid 1001 -> 2001 ann is annz, uid 1002 -> 51002 odd yields to Odd, "
                 "primary of 1000: 100 -> 500, primary of 1001: 100 -> 500, ",
     .userNames = {{"ann", "annz"}, {"Ann", "ann"}}},
    {.about = "of two names of one uid the later wins, and both over a spare uid",
     .users = "stray:1000:9 one:1000:100 two:1000:101",
     .zoneUsers = "other:1000:500 one:2001:501 two:2002:502",
     .expected = "uid 1000 -> 2002 two is two, primary of 1000: 101 -> 502, "},
    {.about = "a primary gid that the zone alone knows",
     .users = "ann:1000:100 bob:1001:100",
     .zoneGroups = "other:100",
     .expected = "gid 100 -> 50100  yields to other, "},
    {.about = "spare ids are kept apart by their seeds alone, not by new ids or unmapped accounts",
     .users = "ann:1000:100 bob:11000:100 carl:51000:100",
     .zoneUsers = "x:1000:500 y:11000:500",
     .expected = "uid 1000 -> 51000 ann yields to x, uid 11000 -> 51000 bob yields to y, "}};

// A world in which the passes print every message. The stray ids lie in the range of new ids.
const World kTalkative = {
    .users =
        "hidden:900:900 ann:3000000000:100 same:1001:100 bob:51002:100 twin:51002:4294967294 "
        "carl:1003:4294967294 dan:1004:999",
    .groups = "hidden:900 dev:3000000000 ops:50300 ops2:50300 free:100",
    .zoneUsers = "annz:4294967294:500 same:1001:500 Bob:7002:500:bob other:51002:500",
    .zoneGroups = "devz:4294967294 third:50300",
    .userNames = {{"ann", "annz"}},
    .groupNames = {{"dev", "devz"}}};

// Messages with a "+" in front need traceExtra.
constexpr const char* kMessages[] = {
    "+Ignoring Group: hidden",
    "Groupname [dev]   MAPPED:[devz]",
    "  Found in Zone ... mapping 3000000000 to 4294967294",
    "Groupname [ops]",
    "+  Looking up gid(50300) in zone...",
    "  Name not in zone, but gid(50300) found in Zone ...",
    "mapping to new-gid",
    "Groupname [ops2]",
    "+  Looking up gid(50300) in zone...",
    "  Name not in zone, but gid(50300) found in Zone ...",
    "Ignoring: gid is already mapped",
    "Groupname [free]",
    "+  Looking up gid(100) in zone...",
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

using Mapping = SandboxTest;

}  // namespace

TEST_F(Mapping, Worlds) {
  for (const World& world : kWorlds) {
    const auto zone = openZone(world);
    buildMaps(world);
    EXPECT_EQ(filledMaps(), world.expected) << world.about;
  }
}

TEST_F(Mapping, QuestionsMessagesAndRecords) {
  recordLog();
  addSetting("nss.group.ignore = hidden\nnss.user.ignore = hidden");
  const auto zone = openZone(kTalkative);
  const auto run = [](bool traceMaps, bool traceExtra) {
    testing::internal::CaptureStderr();
    buildMaps(kTalkative, {.traceMaps = traceMaps, .traceExtra = traceExtra});
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(run(false, true), "");
  // The questions are sent one by one, and no more than needed.
  const std::vector<std::string> questions = {
      "group devz", "group ops",      "gid 50300", "gid 50301",      "group ops2", "gid 50300",
      "group free", "gid 100",        "user annz", "user same",      "user bob",   "uid 51002",
      "uid 51003",  "user twin",      "uid 51002", "gid 4294967294", "gid 57294",  "user carl",
      "uid 1003",   "gid 4294967294", "user dan",  "uid 1004",       "gid 999"};
  EXPECT_EQ(zone->requests(), questions);
  // Every message is also a record of the log, under the name of its pass.
  std::string records;
  for (const std::string& record : readLogRecords())
    records += record + "\n";
  EXPECT_EQ(countOf(records, " DEBUG cli.idshift cli_idshift:"), std::size(kMessages));
  EXPECT_TRUE(contains(records, " CreateGroupMaps Ignoring Group: hidden\n"));
  EXPECT_TRUE(contains(records, " CreateIdMaps   Looking up gid(999) ...\n"));

  EXPECT_EQ(run(true, false), printed(false));
  EXPECT_EQ(run(true, true), printed(true));
}

TEST_F(Mapping, APassEndsWhenTheAgentCannotAnswer) {
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
  EXPECT_EQ(filledMaps(), "");
  EXPECT_EQ(findSpareId(1000, true, {}), 1000u);
}

TEST_F(Mapping, SpareIdsSkipOldIdsUnaskedAndZoneIdsOfTheSameKind) {
  const auto zone = openZone({.zoneUsers = "a:53:1 b:50:1", .zoneGroups = "g:52"});
  const CommandOptions options = {.newIDRange = {50, 54}};
  uidMap = {{54, 51}};
  gidMap = {{53, 51}};
  EXPECT_EQ(findSpareId(2, true, options), 52u);
  EXPECT_EQ(findSpareId(3, true, options), 51u);
  EXPECT_EQ(findSpareId(2, false, options), 54u);
  EXPECT_EQ(zone->requests(),
            (std::vector<std::string>{"uid 52", "uid 53", "uid 50", "uid 51", "gid 52", "gid 54"}));
  // 4294967295 is no id.
  constexpr uint32_t kMax = 4294967295u;
  EXPECT_EQ(findSpareId(1, true, {.newIDRange = {kMax - 2, kMax}}), kMax - 1);
  EXPECT_THROW(findSpareId(1, false, {.newIDRange = {kMax, kMax}}), orvs::InvalidRangeException);
}

TEST(SpareIdScan, BeginsAtTheSeedAndTriesEachIdOnce) {
  using Ids = std::vector<uint32_t>;
  const auto scanned = [](uint32_t seed, IdRange range) {
    SpareIdScan scan(seed, range);
    Ids ids = {scan.candidate()};
    while (ids.size() < 4 && scan.advance())
      ids.push_back(scan.candidate());
    return ids;
  };
  constexpr uint32_t kMax = 4294967295u;
  EXPECT_EQ(scanned(2, {50, 52}), (Ids{50, 51, 52}));  // 52 is tried, but no seed begins there
  EXPECT_EQ(scanned(kMax, {0, kMax}), (Ids{0, 1, 2, 3}));
  EXPECT_EQ(scanned(kMax - 2, {1, kMax}), (Ids{kMax - 1, kMax, 1, 2}));
}
