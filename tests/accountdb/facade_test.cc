// The facades over their snapshots, the commands, and the rewrite of one account.
#include <unistd.h>

#include <sstream>

#include <gtest/gtest.h>

#include "accountdb/passwdDB.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

class FacadeTest : public SandboxTest {};

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

std::string groupsOf(const std::string& text) {
  setGroup(text);
  GroupDB groups(true);
  return loadedNames(groups);
}

// Reading

TEST_F(FacadeTest, ReadsUsableLinesUpToAnEmptyOne) {
  EXPECT_EQ(groupsOf("a:x:1:\n+\nbroken\n-x:y\nb:x:2:"), "a b ");
  EXPECT_EQ(groupsOf("a:x:1:\n\nb:x:2:\n"), "a ");
  EXPECT_EQ(groupsOf(""), "");

  setPasswd("+@net\nann:x:1:1:::\n:x:2:2:::\n\nbob:x:2:2:::\n");
  PasswdDB users(true);
  EXPECT_EQ(loadedNames(users), "ann  ");
  EXPECT_TRUE(users.tailLines.empty());
  EXPECT_EQ(loadedNames(users), "ann  ");  // once more, with a new snapshot
}

TEST_F(FacadeTest, LongLinesArriveInPieces) {
  const auto lineOf = [](std::size_t length) { return "a:x:1:" + std::string(length - 6, 'm'); };
  EXPECT_EQ(groupsOf(lineOf(1022) + "\nb:x:2:\n"), "a b ");
  EXPECT_EQ(groupsOf(lineOf(1023) + "\nb:x:2:\n"), "a ");  // the newline alone is an empty line
  EXPECT_EQ(groupsOf(lineOf(1023) + "c:x:3:\nb:x:2:\n"), "a c b ");
  EXPECT_EQ(groupsOf(lineOf(1023) + "+c:x:3:\nb:x:2:\n"), "a b ");
}

TEST_F(FacadeTest, TheSnapshotLivesUntilTheStoreIsClosed) {
  {
    PasswdDB users(true);
    GroupDB groups(true);
    EXPECT_TRUE(users.storage.open() && groups.storage.open());
    EXPECT_EQ(leftovers().size(), 2u);
    users.storage.close();
    EXPECT_FALSE(users.storage.isOpen());
    EXPECT_EQ(leftovers().size(), 1u);
  }
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

TEST_F(FacadeTest, AFileThatCannotBeReadLeavesTheStoreClosed) {
  const auto expectClosed = [](const char* what) {
    SCOPED_TRACE(what);
    PasswdDB users(true);
    GroupDB groups(true);
    EXPECT_FALSE(users.storage.open());
    EXPECT_FALSE(groups.storage.open());
    EXPECT_FALSE(users.storage.isOpen() || groups.storage.isOpen());
    EXPECT_FALSE(users.load(users.storage));
    EXPECT_EQ(leftovers(), std::set<std::string>{});
  };
  removeFile("/etc/passwd");
  removeFile("/etc/group");
  expectClosed("no file");
  setPasswd("ann:x:1:1:::\n");
  setGroup("a:x:1:\n");
  const StandIn cat("/bin/cat", "echo 'half:x:1:1:::'\nkill -9 $$\n");
  expectClosed("killed child");
  ASSERT_EQ(::mount("full", "/tmp", "tmpfs", MS_RDONLY, nullptr), 0);
  expectClosed("no temporary file");
}

// Lookups

TEST(Facade, TheFirstNameAndTheLastGidWin) {
  GroupDB groups(true);
  for (const char* line : {"a:x:1:first", "b:x:1:", "a:x:2:second"}) {
    DBGroup group;
    ASSERT_TRUE(group.parse(line));
    groups.insert(group);
  }
  EXPECT_EQ(groups.find("a").gid, 1u);
  EXPECT_EQ(groups.findByGid(1)->name, "b");
  EXPECT_EQ(groups.findByGid(2)->members.front(), "second");
  EXPECT_EQ(groups.findByGid(3), nullptr);
  const DBGroup miss = groups.find("A");
  EXPECT_TRUE(miss.name.empty());
  EXPECT_EQ(miss.gid, 0u);
  groups.erase(groups.entries.begin());
  EXPECT_EQ(groups.find("a").gid, 2u);
}

TEST(Facade, PrintsItsEntries) {
  PasswdDB users(true);
  DBPasswd user;
  ASSERT_TRUE(user.parse("ann:x:1:1:::"));
  users.insert(user);
  std::ostringstream out;
  out << users << GroupDB(true);
  const std::string rule(60, '-');
  EXPECT_EQ(out.str(), "User File: /etc/passwd\n" + rule +
                           "\nann:x:1:1:::\nGroup File: /etc/group\n" + rule + "\n");
}

// Updates

TEST_F(FacadeTest, AnUpdateRewritesTheFileAsItIsNow) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false);
  loadedNames(users);
  const std::list<DBPasswd*> entries = users.getEntries();
  setPasswd(
      "+@net::::::\nnew:x:9:9:::\nsix:x:1:1::\nbob:y:2:2:g:d:s\nann:x:1:1:::\nann:x:5:5:::\n");

  EXPECT_EQ(users.updateUser("ann", 4294967295u, 77), 0);
  EXPECT_EQ(readFile("/etc/passwd"),
            "new:x:9:9:::\nbob:y:2:2:g:d:s\nann:x:4294967295:77:::\nann:x:5:5:::\n+@net::::::\n");
  EXPECT_EQ(entries.front()->uid, 4294967295u);  // memory follows
  EXPECT_EQ(entries.front()->gid, 77u);
  EXPECT_FALSE(users.dirty);

  EXPECT_EQ(users.updateUser("bob", 22, 23), 0);  // replaced whole by what was loaded
  EXPECT_TRUE(contains(readFile("/etc/passwd"), "\nbob:x:22:23:::\n"));
}

TEST_F(FacadeTest, RefusedUpdatesChangeNothing) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false);
  PasswdDB reader(true);
  loadedNames(users);
  loadedNames(reader);
  setPasswd("bob:x:2:2:::\n");
  const EntryState before = takeSnapshot("/etc").at("passwd");
  EXPECT_EQ(users.updateUser("ann", 9, 9), 1);     // vanished since
  EXPECT_EQ(users.updateUser("nobody", 9, 9), 1);  // never there
  EXPECT_EQ(reader.updateUser("bob", 9, 9), 1);
  EXPECT_EQ(users.find("ann").uid, 1u);
  users.dirty = true;
  EXPECT_FALSE(users.commit());  // a command store is not written as a whole
  EXPECT_EQ(users.entries.size(), 0u);
  EXPECT_EQ(takeSnapshot("/etc").at("passwd"), before);
  EXPECT_FALSE(exists("/etc/passwd-"));
}

TEST_F(FacadeTest, ABadLineIsRefusedBeforeAnyLock) {
  setPasswd("ann:x:1:1:::\n");
  DBPwCommand users;
  DBGrCommand groups;
  for (const char* line : {"", "+ann:x:1:1:::", "ann:x:1", ":x:1:1:::"}) {
    EXPECT_FALSE(users.modify(line) || users.add(line) || users.remove(line)) << line;
    EXPECT_FALSE(groups.modify(line) || groups.add(line) || groups.remove(line)) << line;
  }
  EXPECT_FALSE(exists("/etc/.pwd.lock"));
}

TEST_F(FacadeTest, AGroupUpdateKeepsTheMembersAndRenewsTheIndex) {
  setGroup("a:x:1:m,n\nb:x:2:\n");
  GroupDB groups(false);
  loadedNames(groups);
  EXPECT_EQ(groups.findByGid(50), nullptr);
  EXPECT_EQ(groups.updateGroup("a", 50), 0);
  EXPECT_EQ(groups.findByGid(50)->name, "a");
  EXPECT_EQ(readFile("/etc/group"), "a:x:50:m,n\nb:x:2:\n");
  EXPECT_EQ(groups.updateGroup("zed", 1), 1);
}

TEST_F(FacadeTest, ACleanCommitClosesAndUnlocksOnly) {
  setPasswd("ann:x:1:1:::\n");
  DBOperator<DBPasswd, DBFile> file("/etc/passwd");
  ASSERT_TRUE(file.storage.lock() && file.storage.open() && file.load(file.storage));
  EXPECT_TRUE(file.commit());
  EXPECT_FALSE(file.storage.isOpen() || file.storage.isLocked() || exists("/etc/passwd-"));
}

// Commands

TEST_F(FacadeTest, AccountsAreAddedAndRemovedByTheSystemsCommands) {
  const std::string script =
      "printf '<%s>' \"$0\" \"$@\" >> /tmp/said; echo noise; echo noise >&2\n";
  const StandIn useradd("/usr/sbin/useradd", script), userdel("/usr/sbin/userdel", script);
  const StandIn groupadd("/usr/sbin/groupadd", script), groupdel("/usr/sbin/groupdel", script);
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
}

TEST_F(FacadeTest, AFailedCommandIsLoggedWithItsResult) {
  recordLog();
  const char* const arguments[] = {"/bin/sh", "-c", "exit 9", nullptr};
  EXPECT_EQ(ExecuteCommand("/bin/sh", arguments), 9);
  EXPECT_TRUE(
      lastRecord().ends_with("ExecuteCommand command (/bin/sh -c exit 9 ) failed, rc = 9."));
}

}  // namespace
}  // namespace orvs
