// The facades over their snapshots, the other stores, the commands, and the change of one account.
#include <sys/mount.h>

#include <sstream>

#include <gtest/gtest.h>

#include "accountdb/db_account_file.h"
#include "accountdb/db_ent.h"
#include "accountdb/passwdDB.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

constexpr const char* kAnn = "ann:x:1:1:::";

class Stores : public SandboxTest {
 protected:
  void arrange() override {
    setPasswd("root:x:0:0:::\n");
    setGroup("root:x:0:\n");
    writeFile("/etc/shadow", "root:*:1::::::\n", 0640);
  }
};

// The names, in order, that a facade holds after loading.
template <class Facade>
std::string loadedNames(Facade& facade) {
  if (!facade.storage.open() || !facade.load(facade.storage))
    return "not loaded";
  std::string names;
  for (const auto* entry : facade.getEntries())
    names += entry->name + " ";
  return names;
}

template <class Store>
std::string linesOf() {
  Store store;
  std::string text;
  EXPECT_TRUE(store.open() && store.first());  // from the front again
  for (; store.hasLine(); store.next())
    text += store.getLine() + "\n";
  return text;
}

// Reading

TEST_F(Stores, ASnapshotHasTheUsableLinesUpToAnEmptyOne) {
  const auto lineOf = [](std::size_t length) { return "a:x:1:" + std::string(length - 6, 'm'); };
  const std::pair<std::string, const char*> rows[] = {
      {"a:x:1:\n+\nbroken\n-x:y\n:x:3:\nb:x:2:", "a  b "},
      {"a:x:1:\n\nb:x:2:\n", "a "},
      {lineOf(1022) + "\nb:x:2:\n", "a b "},
      {lineOf(1023) + "\nb:x:2:\n", "a "},  // the newline alone is an empty line
      {lineOf(1023) + "c:x:3:\nb:x:2:\n", "a c b "},
      {lineOf(1023) + "+c:x:3:\nb:x:2:\n", "a b "}};
  for (const auto& [text, names] : rows) {
    setGroup(text);
    GroupDB groups(true);
    EXPECT_EQ(loadedNames(groups), names) << text;
    EXPECT_EQ(loadedNames(groups), names) << "once more, " << text;
    EXPECT_TRUE(groups.tailLines.empty()) << text;  // no marker line came through
  }
}

TEST_F(Stores, EveryOtherStoreWalksItsAccounts) {
  const std::string users = "root:x:0:0:r:/root:/bin/sh\nann:x:4294967294:1:::\n";
  const std::string groups = "root:x:0:\nstaff:x:7:ann,bob\n";
  setPasswd(users);
  setGroup(groups);
  writeFile("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
  EXPECT_EQ(linesOf<DBPwUser>(), users);
  EXPECT_EQ(linesOf<DBGrGroup>(), groups);
  EXPECT_EQ(linesOf<DBPwEnt>(), users);
  EXPECT_EQ(linesOf<DBGrEnt>(), groups);
}

// In memory

TEST(Facade, TheFirstNameAndTheLastGidWin) {
  GroupDB groups(true);
  for (const char* line : {"a:x:1:first", "b:x:1:", "a:x:2:second"}) {
    DBGroup group;
    ASSERT_TRUE(group.parse(line));
    groups.insert(group);
  }
  EXPECT_EQ(groups.find("a").gid, 1u);
  EXPECT_EQ(groups.findByGid(1)->name, "b");
  EXPECT_EQ(groups.findByGid(3), nullptr);
  const DBGroup miss = groups.find("A");
  EXPECT_TRUE(miss.name.empty());
  EXPECT_EQ(miss.gid, 0u);

  std::ostringstream out;
  out << PasswdDB(true) << groups;
  const std::string rule(60, '-');
  EXPECT_EQ(out.str(), "User File: /etc/passwd\n" + rule + "\nGroup File: /etc/group\n" + rule +
                           "\na:x:1:first\nb:x:1:\na:x:2:second\n");
}

// Updates

TEST_F(Stores, AnUpdateRewritesTheFileAsItIsNow) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false);
  loadedNames(users);
  setPasswd(
      "+@net::::::\nnew:x:9:9:::\nsix:x:1:1::\nbob:y:2:2:g:d:s\nann:x:1:1:::\nann:x:5:5:::\n"
      "\nbehind:x:1:1:::\n");  // an empty line ends the file
  EXPECT_EQ(users.updateUser("ann", 4294967295u, 77), 0);
  EXPECT_EQ(readFile("/etc/passwd"),
            "new:x:9:9:::\nbob:y:2:2:g:d:s\nann:x:4294967295:77:::\nann:x:5:5:::\n+@net::::::\n");
  EXPECT_EQ(users.find("ann").uid, 4294967295u);  // memory follows
  EXPECT_EQ(users.updateUser("bob", 22, 23), 0);  // replaced whole by what was loaded
  EXPECT_TRUE(contains(readFile("/etc/passwd"), "\nbob:x:22:23:::\n"));

  setGroup("a:x:1:m,n\nb:x:2:");
  GroupDB groups(false);
  loadedNames(groups);
  EXPECT_EQ(groups.findByGid(50), nullptr);
  EXPECT_EQ(groups.updateGroup("a", 50), 0);
  EXPECT_EQ(groups.findByGid(50)->name, "a");
  EXPECT_EQ(readFile("/etc/group"), "a:x:50:m,n\nb:x:2:\n");
  EXPECT_EQ(groups.updateGroup("zed", 1), 1);
}

TEST_F(Stores, RefusedUpdatesChangeNothing) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false), reader(true);
  loadedNames(users);
  loadedNames(reader);
  setPasswd("bob:x:2:2:::\n");
  const EntryState before = takeSnapshot("/etc").at("passwd");
  EXPECT_EQ(users.updateUser("ann", 9, 9), 1);     // vanished since
  EXPECT_EQ(users.updateUser("nobody", 9, 9), 1);  // never there
  EXPECT_EQ(reader.updateUser("bob", 9, 9), 1);
  EXPECT_EQ(users.find("ann").uid, 1u);
  EXPECT_EQ(takeSnapshot("/etc").at("passwd"), before);
  EXPECT_FALSE(exists("/etc/passwd-"));
}

TEST_F(Stores, ABadLineIsRefusedBeforeAnyLock) {
  DBPwCommand userCommands;
  DBGrCommand groupCommands;
  DBPwUser userFiles;
  DBGrGroup groupFile;
  for (DBStorage* store :
       std::initializer_list<DBStorage*>{&userCommands, &groupCommands, &userFiles, &groupFile}) {
    for (const char* line : {"", "+ann:x:1:1:::", "ann:x:1", ":x:1:1:::"})
      EXPECT_FALSE(store->modify(line) || store->add(line) || store->remove(line)) << line;
  }
  EXPECT_FALSE(exists("/etc/.pwd.lock"));
}

TEST_F(Stores, LinesAreAddedChangedAndRemovedInTheFilesThemselves) {
  DBPwUser store;
  EXPECT_TRUE(store.add(kAnn) && store.add(kAnn));  // there twice
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\nann:x:1:1:::\nann:x:1:1:::\n");
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\nann:*:::::::\nann:*:::::::\n");
  EXPECT_TRUE(store.remove("ann:y:7:7:::"));  // the name decides, the first of it goes
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\nann:x:1:1:::\n");
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\nann:*:::::::\n");
  EXPECT_TRUE(store.modify("root:x:8:9:::"));
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:8:9:::\nann:x:1:1:::\n");

  DBGrGroup groups;
  EXPECT_TRUE(groups.add("staff:x:7:ann") && groups.modify("root:x:5:bob"));
  EXPECT_EQ(readFile("/etc/group"), "root:x:5:bob\nstaff:x:7:ann\n");
  EXPECT_TRUE(groups.remove("root:x:0:"));
  EXPECT_FALSE(groups.modify("root:x:5:") || groups.remove("root:x:5:"));
  EXPECT_EQ(readFile("/etc/group"), "staff:x:7:ann\n");
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

TEST_F(Stores, WithoutAUsableShadowFileThePasswdChangeStands) {
  DBPwUser store;
  std::filesystem::remove("/etc/shadow");
  EXPECT_TRUE(store.add(kAnn));
  EXPECT_FALSE(exists("/etc/shadow"));
  EXPECT_TRUE(store.remove(kAnn) && store.add(kAnn));
  writeFile("/etc/shadow", "root:*:1::::::\n");
  EXPECT_FALSE(store.remove(kAnn));  // no shadow line: the passwd line goes all the same
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\n");
}

// Commands

TEST_F(Stores, AccountsAreAddedAndRemovedByTheSystemsCommands) {
  writeFile("/run/said.sh",
            "#!/bin/sh\nprintf '<%s>' \"$0\" \"$@\" >> /tmp/said; echo noise; echo noise >&2\n",
            0755);
  for (const char* name : {"useradd", "userdel", "groupadd", "groupdel"}) {
    const std::string program = std::string("/usr/sbin/") + name;
    ASSERT_EQ(::mount("/run/said.sh", program.c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  const RunResult run = runInChild([] {
    DBPwCommand users;
    DBGrCommand groups;
    EXPECT_TRUE(users.add("ann:x:4294967295:6:A B::/s") && users.remove("ann:x:5:6:::"));
    EXPECT_TRUE(groups.add("staff:x:7:ann") && groups.remove("staff:x:7:"));
    return 0;
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(
      readFile("/tmp/said"),
      "</usr/sbin/useradd><-u><4294967295><-g><6><-c><A B><-d><><-s></s><ann>"
      "</usr/sbin/userdel><ann></usr/sbin/groupadd><-g><7><staff></usr/sbin/groupdel><staff>");
  EXPECT_EQ(run.out,
            "executing command (/usr/sbin/useradd -u 4294967295 -g 6 -c A B -d  -s /s ann )...\n"
            "executing command (/usr/sbin/userdel ann )...\n"
            "executing command (/usr/sbin/groupadd -g 7 staff )...\n"
            "executing command (/usr/sbin/groupdel staff )...\n");
  EXPECT_EQ(run.err, "");

  recordLog();
  const char* const arguments[] = {"/bin/sh", "-c", "exit 9", nullptr};
  EXPECT_EQ(ExecuteCommand("/bin/sh", arguments), 9);
  EXPECT_TRUE(isLogged("ExecuteCommand command (/bin/sh -c exit 9 ) failed, rc = 9."));
}

}  // namespace
}  // namespace orvs
