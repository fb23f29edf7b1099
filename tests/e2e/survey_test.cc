// Surveys find one planted case of each kind that a sandbox can have, and change nothing.
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>

#include "services/paths.h"
#include "services/unique_fd.h"
#include "tests/support/loop_disk.h"
#include "tests/support/std_trees.h"
#include "tests/support/whole_run.h"

using namespace std::string_literals;

namespace {

// Sets an inode flag for its own lifetime, so that the folder can be removed afterwards.
class HeldFlag {
 public:
  HeldFlag(const std::string& path, int flag) : file(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    orDie(ioctl(file.get(), FS_IOC_SETFLAGS, &flag) == 0, "flag of " + path);
  }
  ~HeldFlag() {
    int none = 0;
    ioctl(file.get(), FS_IOC_SETFLAGS, &none);
  }
  HeldFlag(const HeldFlag&) = delete;
  HeldFlag& operator=(const HeldFlag&) = delete;

 private:
  UniqueFd file;
};

void setAttribute(const std::string& path, const char* name, const std::string& bytes) {
  orDie(lsetxattr(path.c_str(), name, bytes.data(), bytes.size(), 0) == 0, path + " " + name);
}

void mountAt(const char* type,
             const std::string& folder,
             unsigned long flags,
             const char* options) {
  mkdir(folder.c_str(), 0755);
  orDie(mount(type, folder.c_str(), type, flags, options) == 0, "mount on " + folder);
}

// A FUSE mount without a program behind it. The kernel lets only ann in.
UniqueFd mountFuseOfAnn(const std::string& folder) {
  orDie(mknod("/tmp/fuse", S_IFCHR | 0600, makedev(10, 229)) == 0, "mknod");
  UniqueFd device(open("/tmp/fuse", O_RDWR | O_CLOEXEC));
  const std::string options =
      "fd=" + std::to_string(device.get()) + ",rootmode=40000,user_id=500,group_id=100";
  if (device)
    mountAt("fuse", folder, 0, options.c_str());
  return device;
}

// The rows of the table without the advice, sorted, because the order of readdir varies.
std::vector<std::string> rowsOf(const std::string& table) {
  std::vector<std::string> rows;
  for (const std::string& line : linesOf(table)) {
    if (!line.starts_with("          -> "))
      rows.push_back(line);
  }
  std::sort(rows.begin() + std::min<ptrdiff_t>(2, std::ssize(rows)), rows.end());
  return rows;
}

using Rows = std::vector<std::string>;
const std::string kHead = "Count     Found";
const std::string kRule = "--------  -----------------------------------------------";

using Survey = WholeRun;

}  // namespace

TEST_F(Survey, WhatTheTreesHold) {
  plant("/trees/t",
        {"d 0:0 d", "- 500:0 d/a", "h 0:0 b d/a", "-4755 501:0 d/setid", "- 0:0 d/acl", "d 0:0 d/f",
         "- 502:100 d/cap", "- 777:888 d/lost", "- 10001:10000 d/zones", "l 0:101 d/link nowhere"});
  writeFile("/trees/t/d/n\nl", "");
  const std::string nobody = "\xff\xff\xff\xff"s;
  const std::string acl = "\2\0\0\0"s + "\1\0\6\0"s + nobody + "\2\0\6\0\xf4\1\0\0"s +
                          "\2\0\6\0\xf6\1\0\0"s + "\4\0\4\0"s + nobody + "\x08\0\6\0\x64\0\0\0"s +
                          "\x10\0\6\0"s + nobody + "\x20\0\4\0"s + nobody;
  setAttribute("/trees/t/d/acl", "system.posix_acl_access", acl);
  setAttribute("/trees/t/d/f", "system.posix_acl_default", acl);
  setAttribute("/trees/t/d/cap", "security.capability", "\1\0\0\2"s + std::string(16, '\0'));
  const HeldFlag immutable("/trees/t/d/setid", FS_IMMUTABLE_FL);
  const HeldFlag appendOnly("/trees/t/d/acl", FS_APPEND_FL);
  const HeldFlag ofNoConcern("/trees/t/d/zones", FS_IMMUTABLE_FL);
  const TreeSnapshot trees = takeSnapshot("/trees");
  const TreeSnapshot etc = takeSnapshot("/etc");

  const RunResult result = idshift({"--survey", "-V", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_EQ(result.err, "");
  Rows rows = rowsOf(result.out);
  for (std::string& row : rows) {
    if (const size_t other = row.find("/trees/t/b "); other != row.npos)
      row.replace(other, 11, "/trees/t/d/a ");
  }
  EXPECT_EQ(rows, (Rows{kHead,
                        kRule,
                        "            /trees/t/d/a (500:0 -> 10001:0)",
                        "            /trees/t/d/acl (append-only)",
                        "            /trees/t/d/acl (group 100 -> 10000)",
                        "            /trees/t/d/acl (user 500 -> 10001)",
                        "            /trees/t/d/cap",
                        "            /trees/t/d/cap (502:100 -> 502:10000)",
                        "            /trees/t/d/f (group 100 -> 10000)",
                        "            /trees/t/d/f (user 500 -> 10001)",
                        "            /trees/t/d/link (0:101 -> 0:50101)",
                        "            /trees/t/d/lost",
                        "            /trees/t/d/lost",
                        "            /trees/t/d/n\\012l",
                        "            /trees/t/d/setid (501:0 -> 50501:0)",
                        "            /trees/t/d/setid (501:0 -> 50501:0)",
                        "            /trees/t/d/setid (immutable)",
                        "1         Entries of a gid that no group has: 888",
                        "1         Entries of a uid that nobody has: 777",
                        "1         Entries whose gid changes: 100",
                        "1         Entries whose gid changes: 101",
                        "1         Entries whose uid changes: 500",
                        "1         Entries whose uid changes: 501",
                        "1         File capabilities that are lost or name old ids",
                        "1         Names with a line feed",
                        "1         Set-id files that change hands",
                        "2         Immutable and append-only entries",
                        "4         ACL entries that name ids which change",
                        "4         Entries that would change"}))
      << result;
  EXPECT_TRUE(sameTree(trees, takeSnapshot("/trees")));
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
}

TEST_F(Survey, MountsInTheTrees) {
  LoopDisk disk;
  if (const std::string reason = disk.create("/tmp/disk", "ext4", {"-I", "128"}); !reason.empty())
    GTEST_SKIP() << reason;
  for (const char* folder : {"/trees/t/old", "/trees/other", "/trees/t/file"})
    writeFile(std::string(folder) + "/x", "");
  disk.mountAt("/trees/t/old");
  mountAt("tmpfs", "/trees/t/ro", MS_RDONLY, nullptr);
  mountAt("tmpfs", "/trees/other", MS_RDONLY, nullptr);  // outside of the trees
  const char* file = "/trees/t/file/x";
  ASSERT_TRUE(mount(file, file, nullptr, MS_BIND, nullptr) == 0 &&
              mount(nullptr, file, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0);
  const UniqueFd fuse = mountFuseOfAnn("/trees/t/fuse");

  const RunResult result = idshift({"--survey", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  Rows expected = {kHead,
                   kRule,
                   "            /trees/t/old (ext4)",
                   "            /trees/t/ro (tmpfs)",
                   "1         File systems without birth times",
                   "1         Read-only file systems"};
  if (fuse) {
    expected.insert(expected.begin() + 2, "            /trees/t/fuse (fuse)");
    expected.insert(expected.begin() + 5, "1         FUSE mounts that root cannot enter");
    EXPECT_EQ(result.err, "Warning: skipping /trees/t/fuse: Permission denied\n");
  }
  EXPECT_EQ(rowsOf(result.out), expected) << result;
  umount2("/trees/t/fuse", MNT_DETACH);
  // A mount where nothing can change is not reported for its missing birth times.
  ASSERT_EQ(mount(nullptr, "/trees/t/old", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_EQ(rowsOf(idshift({"--survey", "/trees/t"}).out),
            (Rows{kHead, kRule, "            /trees/t/old (ext4)",
                  "            /trees/t/ro (tmpfs)", "2         Read-only file systems"}));
  umount2("/trees/t/ro", MNT_DETACH);
  umount2("/trees/t/old", MNT_DETACH);
  EXPECT_EQ(idshift({"--survey", "-x", "/trees/t"}).out, "Nothing was found.\n");
}

TEST_F(Survey, WhatTheMachineHolds) {
  const std::pair<const char*, const char*> files[] = {
      {"/etc/subuid", "ann:1:1\n500:100000:65536\n502:1:1\n"},
      {"/etc/subgid", "501:100000:65536\n"},
      {"/etc/sudoers", "# of 500\n#500 ALL=(ALL) ALL\n"},
      {"/etc/sudoers.d/rule", "%#100 ALL=(ALL) ALL\n"},
      {"/etc/systemd/system/a.service", "[Service]\nUser=500\n"},
      {"/etc/systemd/system/a.service.d/b.conf", "[Service]\nSupplementaryGroups=7 101\n"},
      {"/etc/exports", "/srv *(anonuid=500)\n"},
      {"/etc/exports.d/x.exports", "/srv *(anongid=100)\n"},
      {"/etc/exports.d/x", "/srv *(anongid=100)\n"},
      {"/var/spool/cron/atjobs/a1", "#!/bin/sh\n# atrun uid=500 gid=0\n"},
      {"/var/spool/cron/crontabs/ann", ""},
      {"/var/spool/cron/crontabs/cid", ""},
      {"/var/mail/bob", ""},
      {"/var/lib/docker/x", ""},
      {"/home/ann/.local/share/containers/storage/x", ""},
  };
  for (const auto& [path, text] : files)
    writeFile(std::string(path).starts_with("/home") ? "/trees" + std::string(path) : path, text);
  setPasswd(readFile(paths::kPasswd)
                .replace(readFile(paths::kPasswd).find("/home/ann"), 9, "/trees/home/ann"));
  ASSERT_EQ(shell("ln -s mail /var/m; mkdir /var/lib/lxc; chown 500 /var/spool/cron/crontabs/ann"
                  " /etc/subuid; chown 502 /var/spool/cron/crontabs/cid; chown :101 /var/mail/bob")
                .status,
            0);
  const pid_t sleeper = startProgram({"setpriv", "--reuid=500", "--clear-groups", "sleep", "60"});
  std::string status;
  for (int i = 0; i < 500 && !contains(status, "sleep"); ++i, usleep(10000))
    status = readFile("/proc/" + std::to_string(sleeper) + "/status");

  const std::string process =
      "            sleep (process " + std::to_string(sleeper) + ", uid 500)";
  Rows rows = rowsOf(idshift({"--survey", "/trees/t"}).out);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), process), 1);
  // Other processes of this machine may have these ids.
  std::erase_if(rows, [](const std::string& row) {
    return contains(row, "(process ") || contains(row, "Processes of ids");
  });
  const Rows inside = {
      "            /etc/exports (line 1, uid 500)",
      "            /etc/exports.d/x.exports (line 1, gid 100)",
      "            /etc/subgid (line 1, uid 501)",
      "            /etc/subuid (line 2, uid 500)",
      "            /etc/sudoers (line 2, uid 500)",
      "            /etc/sudoers.d/rule (line 1, gid 100)",
      "            /etc/systemd/system/a.service (line 2, uid 500)",
      "            /etc/systemd/system/a.service.d/b.conf (line 2, gid 101)",
      "            /var/spool/cron/atjobs/a1 (line 2, uid 500)",
  };
  for (const std::string& row : inside)
    EXPECT_EQ(std::count(rows.begin(), rows.end(), row), 1) << row;
  const Rows outside = {
      "            /trees/home/ann/.local/share/containers/storage",
      "            /var/lib/docker",
      "            /var/mail/bob (0:101)",
      "            /var/spool/cron/crontabs/ann (500:0)",
  };
  for (const std::string& row : outside)
    EXPECT_EQ(std::count(rows.begin(), rows.end(), row), 1) << row;
  EXPECT_EQ(rows.size(), 2 + inside.size() + outside.size() + 8) << testing::PrintToString(rows);
  // Entries in the trees are converted with them, but not the numbers in a job of at.
  const std::string all = idshift({"--survey", "/var/m/..", "/trees"}).out;
  for (const std::string& row : outside)
    EXPECT_FALSE(contains(all, row + "\n")) << row;
  EXPECT_TRUE(contains(all, "/var/spool/cron/atjobs/a1 (line 2, uid 500)\n"));
  kill(sleeper, SIGKILL);
  stopProgram(sleeper);
}

TEST_F(Survey, StatusAndFormOfTheOutput) {
  plant("/trees/t", {"- 0:0 a", "- 500:100 ro"});
  EXPECT_EQ(rename("/trees/t/ro", "/trees/t/\xff"), 0);
  // As root and as a user. Trees behind one that cannot be walked are surveyed all the same.
  RunResult result = idshift({"--survey", "--json", "/trees/none", "/trees/t"});
  EXPECT_EQ(result.status, 166) << result;
  EXPECT_TRUE(contains(result.out, "\"name_bytes\": \"L3RyZWVzL3Qv/w==\"")) << result;
  result = runProgram({binaryPath("idshift"), "--survey", "/trees/t"}, {.uid = 502});
  EXPECT_EQ(result.status, 0) << result;
  EXPECT_TRUE(contains(result.out, "/trees/t/\\377 (500:100 -> 10001:10000)")) << result;
  // A place that the caller may not read is reported.
  writeFile("/etc/sudoers", "", 0600);
  result = runProgram({binaryPath("idshift"), "--survey", "/trees/t"}, {.uid = 502});
  EXPECT_TRUE(contains(result.out, "Places that could not be read\n            /etc/sudoers\n"));
  const std::pair<Rows, const char*> refused[] = {
      {{"--survey", "-r", "x"},
       "Error: option --survey cannot be used with --commit (-c),"
       " --commit-all (-C), --undo (-U) or --report (-r)\n"},
      {{"--json"}, "Error: option --json needs --survey or --report (-r)\n"}};
  for (const auto& [arguments, words] : refused) {
    result = idshift(arguments);
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.err, words);
  }
  stopAgent();
  EXPECT_EQ(idshift({"--survey", "/trees/t"}).status, 13);
}
