// The account files: reading, locking, replacing, changing one account, and what a failed change
// leaves.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "accountdb/lock_file.h"
#include "accountdb/passwdDB.h"
#include "accountdb/unused/db_account_file.h"
#include "accountdb/unused/db_ent.h"
#include "services/unique_fd.h"
#include "tests/support/sandbox.h"

namespace orvs {
namespace {

constexpr const char* kBefore = "root:x:0:0:::\n";
constexpr const char* kAnn = "ann:x:1:1:::";
const std::string kDeadPid = "4194304";  // the kernel's pids end below it

class AccountFiles : public SandboxTest {
 protected:
  void arrange() override {
    setPasswd(kBefore);
    writeFile("/etc/shadow", "root:*:1::::::\n", 0640);
    recordLog();
  }
};

EntryState stateOf(const char* name) {
  return takeSnapshot("/etc").at(name);
}

// Files in /etc and /tmp that an update must not leave behind.
std::set<std::string> leftovers() {
  const std::regex wrong(R"(.*[0-9].*|[^.].*\.lock|.*\+|passwddb\..*)");
  std::set<std::string> names;
  for (const char* directory : {"/etc", "/tmp"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      if (std::regex_match(entry.path().filename().string(), wrong))
        names.insert(entry.path().filename());
    }
  }
  return names;
}

// Checks that the passwd file is the same in every respect, and that at most a backup lies beside
// it.
void expectUntouched(const EntryState& before) {
  EXPECT_EQ(stateOf("passwd"), before);
  EXPECT_EQ(leftovers(), std::set<std::string>{});
  EXPECT_EQ(DBFile::lockCount, 0);
}

// Whether a record of the log ends with `end`.
bool isLogged(const std::string& end) {
  return std::ranges::any_of(readLogRecords(),
                             [&end](const std::string& record) { return record.ends_with(end); });
}

// Whether another process would have to wait for the lock of lckpwdf().
bool systemLockHeld() {
  return runInChild([] {
           const UniqueFd file(::open("/etc/.pwd.lock", O_WRONLY | O_CLOEXEC));
           struct flock lock = {};
           lock.l_type = F_WRLCK;
           EXPECT_EQ(::fcntl(file.get(), F_GETLK, &lock), 0);
           return lock.l_type != F_UNLCK ? 1 : 0;
         }).status == 1;
}

bool replacePasswd(const std::list<std::string>& lines) {
  DBFile file("/etc/passwd");
  const bool done = file.lock() && file.open() && file.closeUpdate(lines);
  file.unlock();
  return done;
}

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
std::string walkOf() {
  Store store;
  std::string text;
  EXPECT_TRUE(store.open() && store.first());  // goes back to the first line
  for (; store.hasLine(); store.next())
    text += store.getLine() + "\n";
  return text;
}

// Locking

TEST_F(AccountFiles, ExistingLocks) {
  const std::string zero(1, '\0');
  const std::string own = std::to_string(::getpid()) + zero;
  const struct {
    const char* what;
    std::string content;
    bool broken;
  } rows[] = {
      {"live", std::to_string(::getppid()), false},
      {"of a former process with our pid", own, true},
      {"dead", kDeadPid + zero, true},
      {"dead, with text behind", " " + kDeadPid + "x", true},
      {"nobody's", "0", false},
      {"empty", "", false},
      {"of our pid, after we had one", own, true},
      {"number behind 31 bytes", std::string(30, ' ') + "-9", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    writeFile("/etc/passwd.lock", row.content);
    EXPECT_EQ(takeLockFile("/etc/passwd"), row.broken);
    EXPECT_EQ(readFile("/etc/passwd.lock"), row.broken ? own : row.content);
    EXPECT_EQ(leftovers(), std::set<std::string>{"passwd.lock"});
    dropLockFile("/etc/passwd");
  }
  EXPECT_TRUE(takeLockFile("/etc/passwd"));
  EXPECT_FALSE(takeLockFile("/etc/passwd"));  // this process holds the lock
  dropLockFile("/etc/passwd");
  // A pid file and a lock that a killed process with our pid left.
  const std::string pidFile = "/etc/group." + std::to_string(::getpid());
  writeFile(pidFile, own);
  ASSERT_EQ(::link(pidFile.c_str(), "/etc/group.lock"), 0);
  EXPECT_TRUE(takeLockFile("/etc/group"));
  EXPECT_FALSE(exists(pidFile));
  // A process that cannot write its pid file breaks no lock.
  writeFile("/etc/passwd.lock", kDeadPid);
  const RunResult full = runInChild([] {
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit nothing = {};
    return ::setrlimit(RLIMIT_FSIZE, &nothing) != 0 || takeLockFile("/etc/passwd") ? 1 : 0;
  });
  EXPECT_EQ(full.status, 0);
  EXPECT_EQ(readFile("/etc/passwd.lock"), kDeadPid);
  // An owner that may not be signalled counts as dead.
  writeFile("/tmp/db/passwd.lock", std::to_string(::getpid()), 0666);
  ASSERT_EQ(::chmod("/tmp/db", 0777), 0);
  RunOptions asAnn;
  asAnn.uid = 500;
  const RunResult run = runInChild([] { return takeLockFile("/tmp/db/passwd") ? 0 : 1; }, asAnn);
  EXPECT_EQ(run.status, 0) << run;
}

TEST_F(AccountFiles, TheSystemLockIsHeldUntilTheLastFileIsUnlockedOrOneCannotBeLocked) {
  DBFile passwd("/etc/passwd"), group("/etc/group");
  ASSERT_TRUE(passwd.lock() && group.lock());
  passwd.unlock();
  passwd.unlock();
  EXPECT_FALSE(exists("/etc/passwd.lock"));
  EXPECT_TRUE(systemLockHeld());
  group.unlock();
  EXPECT_FALSE(systemLockHeld());
  EXPECT_EQ(leftovers(), std::set<std::string>{});

  ASSERT_TRUE(passwd.lock());
  writeFile("/etc/group.lock", std::to_string(::getppid()));
  EXPECT_FALSE(group.lock() || group.isLocked() || systemLockHeld());
  EXPECT_TRUE(isLogged(" cannot lock file /etc/group."));
  passwd.unlock();
}

// Replacing

TEST_F(AccountFiles, OpensAndReplacesNothingThatItMayNot) {
  const EntryState before = stateOf("passwd");
  DBFile file("/etc/passwd");
  EXPECT_FALSE(file.open());  // neither read-only nor locked
  file.setReadOnly(true);
  EXPECT_FALSE(file.openPath("/etc/missing"));
  EXPECT_TRUE(isLogged(" cannot open file /etc/missing."));
  EXPECT_TRUE(file.openPath("/etc/passwd"));
  EXPECT_FALSE(file.closeUpdate({"a"}));
  file.setReadOnly(false);
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not locked
  file.close();
  EXPECT_TRUE(file.lock());
  EXPECT_FALSE(file.closeUpdate({"a"}));  // not open
  file.unlock();
  expectUntouched(before);
}

TEST_F(AccountFiles, OwnerStaysAndModeIsMasked) {
  const struct {
    mode_t before, after;
    uid_t uid;
    gid_t gid;
  } rows[] = {{0640, 0640, 0, 42}, {0666, 0664, 500, 0}, {06755, 0644, 1, 2}, {0, 0, 0, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << std::oct << row.before);
    ASSERT_EQ(::chown("/etc/passwd", row.uid, row.gid), 0);
    ASSERT_EQ(::chmod("/etc/passwd", row.before), 0);
    const mode_t maskBefore = ::umask(027);
    ASSERT_TRUE(replacePasswd({"a", "b"}));
    EXPECT_EQ(::umask(maskBefore), 027u);
    EXPECT_EQ(readFile("/etc/passwd"), "a\nb\n");
    const EntryState state = stateOf("passwd");
    EXPECT_EQ(state.mode, row.after);
    EXPECT_EQ(state.uid, row.uid);
    EXPECT_EQ(state.gid, row.gid);
  }
}

TEST_F(AccountFiles, TheBackupIsTheOldFileWithItsTime) {
  const struct utimbuf old = {1000000, 2000000};
  ASSERT_EQ(::utime("/etc/passwd", &old), 0);
  ASSERT_TRUE(replacePasswd({}));
  EXPECT_EQ(readFile("/etc/passwd-"), kBefore);
  EXPECT_EQ(stateOf("passwd-").mode, 0600u);
  struct stat info = {};
  EXPECT_EQ(::stat("/etc/passwd-", &info), 0);
  EXPECT_EQ(info.st_mtime, 2000000);

  writeFile("/etc/passwd-", "older", 0640);  // the next backup keeps that mode
  ASSERT_TRUE(replacePasswd({"a"}));
  EXPECT_EQ(readFile("/etc/passwd-"), "");
  EXPECT_EQ(stateOf("passwd-").mode, 0640u);
}

TEST_F(AccountFiles, EachFailureHasItsWordsAndChangesNothing) {
  const EntryState before = stateOf("passwd");
  const auto fails = [](const std::string& words) {
    EXPECT_FALSE(DBPwCommand().modify("root:x:9:9:::"));
    EXPECT_TRUE(isLogged(words)) << words;
  };
  const std::pair<std::string, std::string> rows[] = {
      // a directory in the way, the message
      {"/etc/.pwd.lock", " lock lckpwdf() failed."},
      {"/etc/passwd-", " closeUpdate cannot create backup file /etc/passwd- for /etc/passwd."},
      {"/etc/passwd+", " closeUpdate cannot open temporary file /etc/passwd+ for writing."}};
  for (const auto& [obstacle, words] : rows) {
    std::filesystem::remove(obstacle);
    ASSERT_EQ(::mkdir(obstacle.c_str(), 0755), 0);
    fails(words);
    std::filesystem::remove(obstacle);
    expectUntouched(before);
  }
  writeFile("/etc/victim", "keep");
  ASSERT_EQ(::symlink("victim", "/etc/passwd+"), 0);  // must not be followed
  fails(" closeUpdate cannot open temporary file /etc/passwd+ for writing.");
  EXPECT_EQ(readFile("/etc/victim"), "keep");
  expectUntouched(before);
  // A mount point is not replaced.
  ASSERT_EQ(::mount("/etc/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
  fails(" closeUpdate cannot rename file /etc/passwd+ to /etc/passwd.");
  expectUntouched(before);
  ::umount2("/etc/passwd", MNT_DETACH);
}

// Reading

TEST_F(AccountFiles, ALiteralSnapshotHasTheUsableLinesUpToAnEmptyOne) {
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
    GroupDB groups(true, false);
    EXPECT_EQ(loadedNames(groups), names) << text;
    EXPECT_EQ(loadedNames(groups), names) << "once more, " << text;
    EXPECT_TRUE(groups.tailLines.empty()) << text;  // marker lines are left out
  }
}

TEST_F(AccountFiles, TheFirstNameAndTheLastGidWin) {
  setGroup("a:x:1:first\nb:x:1:\na:x:2:second\n");
  GroupDB groups(true);
  loadedNames(groups);
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

// Changing one account

TEST_F(AccountFiles, ALiteralUpdateRewritesTheFileAsItIsNow) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false, false);
  loadedNames(users);
  setPasswd(
      "+@net::::::\nnew:x:9:9:::\nsix:x:1:1::\nbob:y:2:2:g:d:s\nann:x:1:1:::\nann:x:5:5:::\n"
      "\nbehind:x:1:1:::\n");  // an empty line ends the file
  EXPECT_EQ(users.updateUser("ann", 4294967295u, 77), 0);
  EXPECT_EQ(readFile("/etc/passwd"),
            "new:x:9:9:::\nbob:y:2:2:g:d:s\nann:x:4294967295:77:::\nann:x:5:5:::\n+@net::::::\n");
  EXPECT_EQ(users.find("ann").uid, 4294967295u);  // the entry in memory follows
  EXPECT_EQ(users.updateUser("bob", 22, 23), 0);  // the loaded line replaces the whole line
  EXPECT_TRUE(contains(readFile("/etc/passwd"), "\nbob:x:22:23:::\n"));

  setGroup("a:x:1:m,n\nb:x:2:");
  GroupDB groups(false);
  loadedNames(groups);
  EXPECT_EQ(groups.findByGid(50), nullptr);
  EXPECT_EQ(groups.updateGroup("a", 50), 0);
  EXPECT_EQ(groups.findByGid(50)->name, "a");
  EXPECT_EQ(readFile("/etc/group"), "a:x:50:m,n\nb:x:2:\n");
}

TEST_F(AccountFiles, RefusedUpdatesChangeNothing) {
  setPasswd("ann:x:1:1:::\nbob:x:2:2:::\n");
  PasswdDB users(false), reader(true);
  loadedNames(users);
  loadedNames(reader);
  EXPECT_EQ(reader.updateUser("bob", 9, 9), 1);
  // A bad line is refused before any lock is taken.
  DBPwUser userFiles;
  DBGrGroup groupFile;
  for (DBStorage* store :
       std::initializer_list<DBStorage*>{&users.storage, &userFiles, &groupFile}) {
    for (const char* line : {"", "+ann:x:1:1:::", "ann:x:1", ":x:1:1:::"})
      EXPECT_FALSE(store->modify(line) || store->add(line) || store->remove(line)) << line;
  }
  EXPECT_FALSE(exists("/etc/.pwd.lock"));

  setPasswd("bob:x:2:2:::\n");
  const EntryState before = stateOf("passwd");
  EXPECT_EQ(users.updateUser("ann", 9, 9), 1);     // removed since the load
  EXPECT_EQ(users.updateUser("nobody", 9, 9), 1);  // never there
  EXPECT_EQ(users.find("ann").uid, 1u);
  EXPECT_EQ(stateOf("passwd"), before);
  EXPECT_FALSE(exists("/etc/passwd-"));
}

// Stores that no run uses

TEST_F(AccountFiles, TheOtherStoresReadAndChangeTheFilesThemselves) {
  const std::string users = "root:x:0:0:r:/root:/bin/sh\nbob:x:4294967294:1:::\n";
  setPasswd(users);
  setGroup("root:x:0:\nstaff:x:7:ann,bob\n");
  EXPECT_EQ(walkOf<DBPwUser>() + walkOf<DBGrGroup>(), users + readFile("/etc/group"));
  EXPECT_EQ(walkOf<DBPwEnt>() + walkOf<DBGrEnt>(), users + readFile("/etc/group"));
  DBPwUser accounts;
  EXPECT_TRUE(accounts.add(kAnn) && accounts.modify("bob:x:2:2:::"));
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\nann:*:::::::\n");
  EXPECT_TRUE(accounts.remove("ann:y:7:7:::"));  // only the name counts
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:r:/root:/bin/sh\nbob:x:2:2:::\n");
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\n");
  DBGrGroup groups;
  EXPECT_TRUE(groups.add("ops:x:8:") && groups.modify("root:x:5:bob") &&
              groups.remove("staff:x:7:"));
  EXPECT_EQ(readFile("/etc/group"), "root:x:5:bob\nops:x:8:\n");
  EXPECT_FALSE(groups.modify("staff:x:5:") || groups.remove("staff:x:5:"));
}

TEST_F(AccountFiles, AccountsAreAddedAndRemovedByTheSystemsCommands) {
  writeFile("/run/said.sh",
            "#!/bin/sh\nprintf '<%s>' \"$0\" \"$@\" >> /tmp/said; echo noise; exit 9\n", 0755);
  for (const char* program : {"/usr/sbin/useradd", "/usr/sbin/groupdel"})
    ASSERT_EQ(::mount("/run/said.sh", program, nullptr, MS_BIND, nullptr), 0);
  const RunResult run = runInChild([] {
    EXPECT_FALSE(DBPwCommand().add("ann:x:4294967295:6:A B::/s"));
    return DBGrCommand().remove("staff:x:7:") ? 1 : 0;
  });
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(readFile("/tmp/said"),
            "</usr/sbin/useradd><-u><4294967295><-g><6><-c><A B><-d><><-s></s><ann>"
            "</usr/sbin/groupdel><staff>");
  EXPECT_EQ(run.out,
            "executing command (/usr/sbin/useradd -u 4294967295 -g 6 -c A B -d  -s /s ann )...\n"
            "executing command (/usr/sbin/groupdel staff )...\n");
  EXPECT_TRUE(isLogged("ExecuteCommand command (/usr/sbin/groupdel staff ) failed, rc = 9."));
}

}  // namespace
}  // namespace orvs
