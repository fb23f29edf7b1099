// An update loses nothing of an account file. Each row changes the ids of one account, ann of
// passwd or users of group, to 10001 and 10000, and compares every byte with a text written by
// hand.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "accountdb/file_oddities.h"
#include "accountdb/passwdDB.h"
#include "services/unique_fd.h"
#include "tests/support/sandbox.h"

namespace orvs {
namespace {

using namespace std::string_literals;

class KeptBytes : public SandboxTest {
 protected:
  void arrange() override { recordLog(); }
};

int updateAnn() {
  PasswdDB users(false);
  return users.storage.open() && users.load(users.storage) ? users.updateUser("ann", 10001, 10000)
                                                           : 2;
}

int updateUsers() {
  GroupDB groups(false);
  return groups.storage.open() && groups.load(groups.storage) ? groups.updateGroup("users", 10000)
                                                              : 2;
}

const std::string kOldAnn = "ann:x:500:100:::";
const std::string kNewAnn = "ann:x:10001:10000:::";

// A passwd line of exactly `length` bytes, without its newline.
std::string longLine(const std::string& start, std::size_t length) {
  return start + std::string(length - start.size() - 2, 'g') + "::";
}

TEST_F(KeptBytes, OfPasswd) {
  struct Row {
    std::string what, before, after;
  };
  std::vector<Row> rows = {
      {"lines that are no account",
       "#\nsix:x:1:1::\n:x:1:1:::\n" + kOldAnn + "\n x\neight:x:1:1::::\n",
       "#\nsix:x:1:1::\n:x:1:1:::\n" + kNewAnn + "\n x\neight:x:1:1::::\n"},
      {"behind an empty line", kOldAnn + "\n\n+\n\nbob:x:02:2:::\n\n",
       kNewAnn + "\n\n+\n\nbob:x:02:2:::\n\n"},
      {"no end behind an empty line", kOldAnn + "\n\nbob", kNewAnn + "\n\nbob"},
      {"marker lines", "+a\n" + kOldAnn + "\n-b:::\nbob:x:2:2:::\n+c\n\n+d\n",
       kNewAnn + "\nbob:x:2:2:::\n+a\n-b:::\n+c\n\n+d\n"},
      {"the first of a name", "ann:x\n" + kOldAnn + "\n" + kOldAnn + "\n",
       "ann:x\n" + kNewAnn + "\n" + kOldAnn + "\n"},
      {"no line end", "bob:x:2:2:::\n" + kOldAnn, "bob:x:2:2:::\n" + kNewAnn + "\n"},
      {"a NUL byte in a name, a field, a marker",
       "a\0b:x:02:2:::\n+\0\nann:x:500:100:g\0h::\n\0\n"s,
       "a\0b:x:02:2:::\nann:x:10001:10000:g\0h::\n\0\n+\0\n"s},
      {"8-bit names", "b\xc3\xb6rje:x:2:2:::\n\xff\xfe:x:3:3:\xa0::\r\n" + kOldAnn + "\n",
       "b\xc3\xb6rje:x:2:2:::\n\xff\xfe:x:3:3:\xa0::\r\n" + kNewAnn + "\n"},
      {"numbers with zeros in front", "bob:x:007:00:::\nann:x:0500:0100:::\n",
       "bob:x:7:0:::\n" + kNewAnn + "\n"},
      {"ids that are no numbers",
       "bob:x:abc:7:::\ncid:x: 7:007:::\ndan:x:4294967296:-1:::\neve:x::1:::\n" + kOldAnn + "\n",
       "bob:x:abc:7:::\ncid:x: 7:007:::\ndan:x:4294967296:-1:::\neve:x::1:::\n" + kNewAnn + "\n"},
      {"the largest", "bob:x:4294967295:1:::\n" + kOldAnn + "\n",
       "bob:x:4294967295:1:::\n" + kNewAnn + "\n"},
  };
  for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 100000U}) {
    const std::string ann = longLine("ann:x:500:100:", length);
    const auto text = [length](const std::string& line) {
      return longLine("bob:x:2:2:", length) + "\n" + line + "\n#" + std::string(length - 1, '+') +
             "\ncid:x:3:3:::\n";
    };
    rows.push_back({std::to_string(length) + " bytes", text(ann),
                    text("ann:x:10001:10000:" + ann.substr(14))});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    setPasswd(row.before);
    EXPECT_EQ(updateAnn(), 0);
    EXPECT_EQ(readFile("/etc/passwd"), row.after);
  }
}

TEST_F(KeptBytes, OfGroup) {
  std::string many = "member000";
  for (int i = 1; i < 130; ++i)
    many += ",member" + std::to_string(100 + i);
  const struct {
    const char* what;
    std::string before, after;
  } rows[] = {
      {"130 members", "users:x:100:" + many + "\n", "users:x:10000:" + many + "\n"},
      {"empty items", "a:x:1:,a,,b,\nb:x:2:,\nusers:x:100:a,,b,\n",
       "a:x:1:a,b\nb:x:2:\nusers:x:10000:a,b\n"},
      {"a fifth field", "a:x:01:a,,b:c,d\nb:x:2::\nusers:x:100:a,,b:c:d\n",
       "a:x:01:a,,b:c,d\nb:x:2::\nusers:x:10000:a,,b:c:d\n"},
      {"ids that are no numbers", "a:x:z:a,,b\nb:x::\nthree:x:1\nusers:x:100:\n",
       "a:x:z:a,,b\nb:x::\nthree:x:1\nusers:x:10000:\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    setGroup(row.before);
    EXPECT_EQ(updateUsers(), 0);
    EXPECT_EQ(readFile("/etc/group"), row.after);
  }
}

TEST_F(KeptBytes, OfAnAccountThatWasEditedAfterTheLoad) {
  setPasswd("a\0b:x:2:2:::\n"s + kOldAnn + "\n");
  PasswdDB users(false);
  ASSERT_TRUE(users.storage.open() && users.load(users.storage));
  for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
    EXPECT_FALSE(entry.path().filename().string().starts_with("passwddb.")) << entry;
  EXPECT_EQ(users.getEntries().size(), 1u);  // a name with a NUL byte does not fit into the log
  setPasswd("new:x:9:9:::\nann:!:500:100:Ann:/home/ann:/bin/sh\n");
  EXPECT_EQ(users.updateUser("ann", 10001, 10000), 0);
  EXPECT_EQ(readFile("/etc/passwd"), "new:x:9:9:::\nann:!:10001:10000:Ann:/home/ann:/bin/sh\n");
  EXPECT_EQ(users.updateUser("ann", 10001, 4294967295u), 0);
  EXPECT_TRUE(contains(readFile("/etc/passwd"), "\nann:!:10001:4294967295:Ann:"));
}

TEST_F(KeptBytes, OfAFileThatCannotBeChanged) {
  const std::string rows[] = {
      "ann:x: 500:100:::\n",                    // an id that would change is no plain number
      "ann:x:10001:abc:::\n",                   // the same
      "bob:x:500:100:::\n\n" + kOldAnn + "\n",  // behind an empty line
  };
  for (const std::string& text : rows) {
    SCOPED_TRACE(text);
    setPasswd(kOldAnn + "\n");
    PasswdDB users(false);
    ASSERT_TRUE(users.storage.open() && users.load(users.storage));
    setPasswd(text);
    EXPECT_EQ(users.updateUser("ann", 10001, 10000), 1);
    EXPECT_EQ(readFile("/etc/passwd"), text);
    EXPECT_FALSE(exists("/etc/passwd-") || exists("/etc/passwd.lock"));
  }
}

// Attributes

std::string attribute(const char* name) {
  char value[256];
  const ssize_t length = ::getxattr("/etc/passwd", name, value, sizeof value);
  return length < 0 ? "none" : std::string(value, static_cast<std::size_t>(length));
}

std::string accessList(uint16_t mask) {
  struct Entry {
    uint16_t tag, permissions;
    uint32_t id;
  };
  const Entry entries[] = {{1, 6, ~0u}, {2, 7, 500}, {4, 4, ~0u}, {16, mask, ~0u}, {32, 4, ~0u}};
  return "\2\0\0\0"s + std::string(reinterpret_cast<const char*>(entries), sizeof entries);
}

TEST_F(KeptBytes, OfTheAttributes) {
  const std::string kList = "system.posix_acl_access";
  const std::vector<std::pair<std::string, std::string>> rows = {
      {kList, accessList(7)},
      {"security.label", "system_u:object_r:passwd_file_t:s0\0"s},
      {"trusted.note", std::string(200, '\xff')},
      {"security.empty", ""},
  };
  setPasswd(kOldAnn + "\n");
  for (const auto& [name, value] : rows)
    ASSERT_EQ(::setxattr("/etc/passwd", name.c_str(), value.data(), value.size(), 0), 0) << name;
  ASSERT_EQ(::setxattr("/etc/passwd", "security.ima", "\1x", 2, 0), 0);
  EXPECT_EQ(updateAnn(), 0);
  // The group bits of the mode are the mask of the list. An account file is not executable, so the
  // mode has to be set after the list.
  EXPECT_EQ(takeSnapshot("/etc").at("passwd").mode, 0664u);
  for (const auto& [name, value] : rows)
    EXPECT_EQ(attribute(name.c_str()), name == kList ? accessList(6) : value) << name;
  EXPECT_EQ(attribute("security.ima"), "none");  // it vouches for the former bytes

  // A list that the new file inherits from its directory is removed.
  const std::string inherited = accessList(6);
  ASSERT_EQ(::setxattr("/etc", "system.posix_acl_default", inherited.data(), inherited.size(), 0),
            0);
  ASSERT_EQ(::removexattr("/etc/passwd", kList.c_str()), 0);
  EXPECT_EQ(updateAnn(), 0);
  EXPECT_EQ(attribute(kList.c_str()), "none");
  ASSERT_EQ(::removexattr("/etc", "system.posix_acl_default"), 0);
}

// Oddities

TEST_F(KeptBytes, OdditiesAreToldWhenTheFileIsLoaded) {
  setPasswd("#\n+\nann:x:500:100:::\n#\n\nbehind");
  EXPECT_EQ(updateAnn(), 0);
  std::vector<std::string> told;
  for (const std::string& record : readLogRecords()) {
    if (const std::size_t at = record.find(" /etc/passwd: "); at != std::string::npos)
      told.push_back(record.substr(at + 1));
  }
  const std::vector<std::string> expected = {
      "/etc/passwd: line 5: empty; what is behind it is not compared and stays.",
      "/etc/passwd: line 1 and 1 more: no account; stays as it is.",
      "/etc/passwd: line 2: a marker line ahead of an account; an update moves it behind the last "
      "one."};
  EXPECT_EQ(told, expected);

  const struct {
    AccountKind kind;
    std::string text, words;
  } rows[] = {
      {AccountKind::Passwd, "a:x:1:1:::\nb:x:1:1:::\n+\n", ""},
      {AccountKind::Group, "a:x:1:\nb:x:1:a,b\n", ""},
      {AccountKind::Passwd, "a:x:1:1:::", "line 1: has no newline; an update adds one"},
      {AccountKind::Passwd, "a:x:1:1:\0::\n"s, "line 1: has a NUL byte"},
      {AccountKind::Passwd, longLine("a:x:1:1:", 1023) + "\n", ""},
      {AccountKind::Passwd, longLine("a:x:1:1:", 1024) + "\n", "line 1: of 1024 bytes or more"},
      {AccountKind::Passwd, "b:x:1:1:::\na:x:1:1:::\na:x:2:2:::\na:x:2:2:::\n",
       "line 3 and 1 more: has the name of an account further up, which hides it"},
      {AccountKind::Passwd, "a:x:1:1:::\na:x:x:1:::\n",
       "line 2: has an id that is no plain number; the id is never changed|"
       "line 2: has the name of an account further up, which hides it"},
      {AccountKind::Group, "a:x:1:a:b\nb:x:1:a,,b\n",
       "line 1: a group with a fifth field; stays as it is but for the gid|"
       "line 2: has an empty item in the member list; an update drops it"},
  };
  for (const auto& row : rows) {
    std::string words;
    for (const std::string& oddity : odditiesOf(row.text, row.kind))
      words += (words.empty() ? "" : "|") + oddity;
    EXPECT_EQ(words, row.words) << row.text;
  }
}

// Waiting

// Starts a process that holds the lock of lckpwdf().
pid_t holdSystemLock() {
  int ready[2];
  EXPECT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    const int fd = ::open("/etc/.pwd.lock", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ::_exit(::fcntl(fd, F_SETLK, &lock) == 0 && ::write(ready[1], "", 1) == 1 ? ::pause() : 1);
  }
  char byte = 0;
  ::close(ready[1]);
  EXPECT_EQ(::read(ready[0], &byte, 1), 1);
  ::close(ready[0]);
  return holder;
}

// SIGALRM ends the wait, as the alarm of lckpwdf() does after 15 seconds.
TEST_F(KeptBytes, AHeldLockIsWaitedForOnce) {
  setPasswd(kOldAnn + "\n");
  setGroup("users:x:100:\n");
  const RunResult run = runInChild([] {
    const pid_t holder = holdSystemLock();
    ::signal(SIGALRM, SIG_IGN);
    std::atomic<bool> isOver = false;
    std::thread alarms([&isOver, waiting = ::pthread_self()] {
      while (!isOver) {
        ::usleep(20'000);
        ::pthread_kill(waiting, SIGALRM);
      }
    });
    const int first = updateAnn();
    isOver = true;
    alarms.join();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(first + updateUsers() + updateAnn(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    return updateUsers();
  });
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(readFile("/etc/group"), "users:x:10000:\n");
  EXPECT_EQ(readFile("/etc/passwd"), kOldAnn + "\n");
}

}  // namespace
}  // namespace orvs
