#include "tests/faults/fault_world.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>

#include "services/paths.h"
#include "tests/support/attributes.h"
#include "tests/support/std_trees.h"

namespace {

constexpr const char* kTree = "/trees/t";

constexpr const char* kPasswd =
    "root:x:0:0:root:/root:/bin/sh\n"
    "bob:x:501:101:Bob:/home/bob:/bin/sh\n"
    "ann:x:500:100:Ann:/home/ann:/bin/sh\n"
    "cid:x:502:100:Cid:/home/cid:/bin/sh\n";
constexpr const char* kGroup = "root:x:0:\nusers:x:100:ann,cid\nbobs:x:101:\nlp:x:7:\n";

// The lines of the account files that change, before and after. 10001 stands for `annsUid`.
const std::map<std::string, std::string> kConvertedLines = {
    {"ann:x:500:100:Ann:/home/ann:/bin/sh", "ann:x:10001:10000:Ann:/home/ann:/bin/sh"},
    {"bob:x:501:101:Bob:/home/bob:/bin/sh", "bob:x:50501:50101:Bob:/home/bob:/bin/sh"},
    {"cid:x:502:100:Cid:/home/cid:/bin/sh", "cid:x:502:10000:Cid:/home/cid:/bin/sh"},
    {"users:x:100:ann,cid", "users:x:10000:ann,cid"},
    {"bobs:x:101:", "bobs:x:50101:"}};

const std::map<std::string, std::string> kConvertedOwners = {
    {"500:100", "10001:10000"}, {"501:101", "50501:50101"}, {"502:100", "502:10000"},
    {"500:101", "10001:50101"}, {"0:100", "0:10000"},       {"0:0", "0:0"},
    {"500:0", "10001:0"}};

// The row of `table` for `before`, or `before` itself, with `annsUid` in place of 10001.
std::string convertedBy(const std::map<std::string, std::string>& table,
                        const std::string& before,
                        const std::string& annsUid) {
  const auto row = table.find(before);
  std::string text = row == table.end() ? before : row->second;
  if (const size_t found = text.find("10001"); found != std::string::npos)
    text.replace(found, 5, annsUid);
  return text;
}

// The fields behind the name in the start of an entry's record. Any name of the inode will do.
std::string recordOf(const EntryState& before) {
  return ":" + std::to_string(before.dev) + ":" + std::to_string(before.ino) + ":" +
         std::to_string(before.uid) + ":" + std::to_string(before.gid);
}

bool isChanged(const std::string& path, const EntryState& before) {
  return ownerOf(std::string(kTree) + "/" + path) !=
         std::to_string(before.uid) + ":" + std::to_string(before.gid);
}

}  // namespace

std::string readLog() {
  return exists(paths::kPrivateLog) ? readFile(paths::kPrivateLog) : std::string();
}

void removeAll(const char* directory, const char* start) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().filename().string().starts_with(start))
      std::filesystem::remove(entry);
  }
}

bool isAnyCall(const SystemCall& /*call*/) {
  return true;
}

bool isChange(const SystemCall& call) {
  const bool isOwner =
      call.number == SYS_fchownat || call.number == SYS_lchown || call.number == SYS_fchown;
  return call.number == SYS_rename || call.number == SYS_setxattr ||
         (isOwner && !call.descriptorPath(0).starts_with("/etc"));
}

void FaultTest::TearDown() {
  WholeRun::TearDown();
  // The line is for scripts/fault-table. A sweep ends with the first case that goes wrong, so there
  // is at most one violation.
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  if (!IsSkipped())
    std::printf("\nFAULT %s.%s cases=%d violations=%d\n", test->test_suite_name(), test->name(),
                cases, HasFailure() ? 1 : 0);
}

void FaultTest::resetWorld() {
  ++cases;
  std::filesystem::remove_all(kTree);
  plant(kTree, {"- 500:100 file text", "- 501:101 twice text", "h 0:0 again twice",
                "-6755 500:101 suid", "-600 0:0 foreign", "d2755 502:100 dir",
                "- 502:100 dir/inner", "d 501:101 dir/sub", "-640 500:100 dir/sub/deep",
                "h 0:0 dir/sub/more twice", "l 500:100 link file", "l 501:101 dangling nowhere",
                "p 500:100 pipe", "s755 502:100 socket", "c600 0:100 device"});
  std::filesystem::remove(paths::kPrivateLog);
  // Files that one case could not remove must not count in the next. Pids repeat over thousands of
  // cases, and with them the names of pid files.
  removeAll("/etc", "passwd");
  removeAll("/etc", "group");
  removeAll("/tmp", "");
  setPasswd(kPasswd);
  setGroup(kGroup);
  ASSERT_EQ(chown(paths::kPasswd, 0, 42), 0);
  usleep(12'000);  // inode and birth time do not identify a younger file
  start = takeSnapshot(kTree);
  startPasswd = kPasswd;
  startGroup = kGroup;
}

void FaultTest::keepAttributes() {
  for (const char* key : {"preserve.execution.bits", "preserve.capabilities", "convert.acls"})
    addSetting("idshift." + std::string(key) + " = true");
}

void FaultTest::plantAttributes() {
  for (const char* name : {"file", "foreign", "dir/sub"})
    setAcl("/trees/t/" + std::string(name), "u:500:r u:501:rw g:100:r");
  setAcl("/trees/t/dir", "u:501:r", kDefaultAcl);
  setCapability("/trees/t/suid", 2);
  setCapability("/trees/t/file", 3);
  start = takeSnapshot(kTree);
}

void FaultTest::sweep(const std::vector<Instants>& instants,
                      const std::function<bool(const CallHook&)>& tryOne) {
  for (const Instants& row : instants) {
    for (uint64_t nth = 1; nth < kEndless && !HasFailure(); nth += row.stride) {
      SCOPED_TRACE(row.what + (" " + std::to_string(nth)));
      if (!tryOne(atCall(row.matters, nth, row.then)))
        break;
    }
  }
}

std::vector<std::string> FaultTest::commitAll() {
  return {binaryPath("idshift"), "-C", kTree};
}

std::vector<std::string> FaultTest::undo() {
  return {binaryPath("idshift"), "-U"};
}

void FaultTest::expectEveryChangeRecorded() const {
  const std::string log = readLog();
  for (const auto& [path, before] : start.entries)
    EXPECT_TRUE(!isChanged(path, before) || contains(log, recordOf(before)))
        << path << " changed without a record:\n"
        << log;
}

void FaultTest::expectAccountFilesWhole() const {
  for (const auto& [name, text] : {std::pair("passwd", &startPasswd), {"group", &startGroup}}) {
    SCOPED_TRACE(name);
    const EntryState now = takeSnapshot("/etc").at(name);
    EXPECT_EQ(now.mode, 0644U);
    EXPECT_EQ(ownerOf(std::string("/etc/") + name), name == std::string("passwd") ? "0:42" : "0:0");
    const std::vector<std::string> before = linesOf(*text);
    const std::vector<std::string> after = linesOf(now.contents);
    ASSERT_EQ(after.size(), before.size());
    for (size_t i = 0; i < before.size(); ++i)
      EXPECT_TRUE(after[i] == before[i] ||
                  after[i] == convertedBy(kConvertedLines, before[i], annsUid))
          << after[i];
  }
}

void FaultTest::expectNoLeftovers() {
  const std::regex wrong("(passwd|group)-?[^-].*");
  for (const char* directory : {"/etc", "/tmp"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      EXPECT_FALSE(std::regex_match(entry.path().filename().string(), wrong)) << entry.path();
  }
}

void FaultTest::expectTheRestConverts() {
  const RunResult again = runProgram(commitAll());
  EXPECT_EQ(again.status, 0) << again;
  const auto before = start.owners();
  for (const auto& [path, owner] : takeSnapshot(kTree).owners())
    EXPECT_EQ(owner, convertedBy(kConvertedOwners, before.at(path), annsUid)) << path;
  for (const auto& [path, text] :
       {std::pair(paths::kPasswd, &startPasswd), {paths::kGroup, &startGroup}}) {
    std::string converted;
    for (const std::string& line : linesOf(*text))
      converted += convertedBy(kConvertedLines, line, annsUid) + "\n";
    EXPECT_EQ(readFile(path), converted);
  }
}

bool FaultTest::isRestored() const {
  return takeSnapshot(kTree).owners() == start.owners() &&
         readFile(paths::kPasswd) == startPasswd && readFile(paths::kGroup) == startGroup;
}

void FaultTest::expectUndosRestore(Proof proof) {
  bool isOneLeft = false;
  for (int undos = 0; undos < 10 && contains(readLog(), "\n!"); ++undos) {
    const RunResult undone = runProgram(undo());
    EXPECT_EQ(undone.status, 0) << undone;
    isOneLeft = isOneLeft || contains(undone.err, ": Stale file handle");
  }
  if (proof == Proof::None && isOneLeft)
    forgiveLinked();
  EXPECT_TRUE(isRestored()) << readLog() << readFile(paths::kPasswd) << readFile(paths::kGroup);
  EXPECT_EQ(takeSnapshot(kTree).owners(), start.owners());
}

void FaultTest::forgiveLostRecords() {
  const std::string log = readLog();
  const TreeSnapshot now = takeSnapshot(kTree);
  for (auto& [path, before] : start.entries) {
    if (contains(log, recordOf(before)))
      continue;
    before.uid = now.at(path).uid;
    before.gid = now.at(path).gid;
  }
}

void FaultTest::forgiveLinked() {
  const TreeSnapshot now = takeSnapshot(kTree);
  for (auto& [path, before] : start.entries) {
    if (before.type != S_IFREG || before.nlink == 1)
      continue;
    before.uid = now.at(path).uid;
    before.gid = now.at(path).gid;
  }
}

uint64_t sampled(uint64_t stride) {
  if (getenv("IDSHIFT_LONG") != nullptr)
    return 1;
  return kSanitized || getenv("IDSHIFT_SHORT") != nullptr ? 4 * stride : stride;
}
