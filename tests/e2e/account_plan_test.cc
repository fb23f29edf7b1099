// The plan of the account phase: what a run that is killed among the accounts leaves, and what each
// kind of run does with it.
#include <sys/syscall.h>

#include <filesystem>

#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

namespace {

constexpr const char* kPasswd =
    "root:x:0:0::/root:/bin/sh\nann:x:500:100::/:\nbob:x:501:101::/:\ncid:x:502:100::/:\n";
constexpr const char* kGroup = "root:x:0:\nusers:x:100:\nbobs:x:101:\n";
constexpr const char* kConvertedPasswd =
    "root:x:0:0::/root:/bin/sh\nann:x:10001:10000::/:\nbob:x:501:101::/:\ncid:x:502:10000::/:\n";
const std::string kPending = " account update(s) of the conversion from ";

class AccountPlans : public WholeRun {
 protected:
  // Runs a --commit-all and kills it before the `nth` rename of an account file.
  static void killBeforeRename(uint64_t nth) {
    std::filesystem::remove_all("/trees/t");
    for (const auto& entry : std::filesystem::directory_iterator("/etc"))
      if (contains(entry.path().filename(), "passwd.") ||
          contains(entry.path().filename(), "group."))
        std::filesystem::remove(entry);
    for (const char* file : {paths::kPrivateLog, paths::kPrivateLogIndex})
      std::filesystem::remove(file);
    setPasswd(kPasswd);
    setGroup(kGroup);
    setZone("ann:x:10001:10000:::\n", "users:x:10000:\n");
    plant("/trees", {"d 0:0 t", "- 500:100 t/f"});
    const auto isRename = [](const SystemCall& call) { return call.number == SYS_rename; };
    const auto kill = [](const SystemCall&) { return CallVerdict{CallVerdict::kKill}; };
    EXPECT_NE(
        runTraced({binaryPath("idshift"), "-C", "/trees/t"}, atCall(isRename, nth, kill)).signal,
        0);
    EXPECT_EQ(readFile(paths::kPasswd), kPasswd);
  }
};

}  // namespace

TEST_F(AccountPlans, EachKindOfRunKnowsThem) {
  killBeforeRename(2);  // the group has its new gid, no user has
  const std::string log = readFile(paths::kPrivateLog);
  const RunResult dry = idshift({"/trees/t"});
  EXPECT_TRUE(contains(dry.err, "2" + kPending)) << dry;
  EXPECT_EQ(countOf(dry.out, "ann"), 0U) << dry;  // no conflict is left
  EXPECT_EQ(idshift({"-c", "/trees/t"}).out,
            "No user-id or group-id conflicts were found, change nothing.\n0 file(s) changed\n");
  EXPECT_EQ(readFile(paths::kPasswd), kPasswd);
  EXPECT_EQ(idshift({"-C", "/trees/t"}).status, 0);
  EXPECT_EQ(readFile(paths::kPasswd), kConvertedPasswd);
  EXPECT_EQ(idshift({"/trees/t"}).err, "");

  killBeforeRename(2);
  EXPECT_EQ(idshift({"-U"}).status, 0);
  EXPECT_EQ(readFile(paths::kGroup), kGroup);
  EXPECT_FALSE(contains(idshift({"/trees/t"}).err, kPending));

  killBeforeRename(2);
  EXPECT_EQ(idshift({"-C", "-R", "/trees/t"}).status, 0);
  EXPECT_TRUE(contains(readFile(paths::kPasswd), "cid:x:502:100:")) << "it went with the log";
}

TEST_F(AccountPlans, WhatWasEditedInBetweenIsLeft) {
  const struct {
    const char* what;
    const char* edit;  // of passwd, by sed
    std::string passwd, words;
  } rows[] = {
      {"nothing", "", kConvertedPasswd, ""},
      {"other ids", "s/^cid:x:502:100:/cid:x:502:55:/",
       "root:x:0:0::/root:/bin/sh\nann:x:10001:10000::/:\nbob:x:501:101::/:\ncid:x:502:55::/:\n",
       "Warning: user cid has neither the old nor the new ids of the conversion from "},
      {"gone", "/^cid/d", "root:x:0:0::/root:/bin/sh\nann:x:10001:10000::/:\nbob:x:501:101::/:\n",
       "Warning: user cid has neither"},
      {"done by hand", "s/^cid:x:502:100:/cid:x:502:10000:/", kConvertedPasswd, ""},
      {"another field", "s/^ann:x:500:100::/ann:x:500:100:Ann:/",
       "root:x:0:0::/root:/bin/sh\nann:x:10001:10000:Ann:/:\nbob:x:501:101::/:\n"
       "cid:x:502:10000::/:\n",
       ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    killBeforeRename(2);
    ASSERT_EQ(shell(std::string("sed -i '") + row.edit + "' /etc/passwd").status, 0);
    const RunResult result = idshift({"-C", "/trees/t"});
    EXPECT_EQ(result.status, 0) << result;
    EXPECT_EQ(readFile(paths::kPasswd), row.passwd) << result;
    EXPECT_TRUE(row.words.empty() ? result.err.empty() : contains(result.err, row.words)) << result;
    EXPECT_FALSE(contains(idshift({"/trees/t"}).err, kPending)) << "it is closed";
  }
}

// A plan that is not whole counts for nothing: it is written before any account is touched.
TEST_F(AccountPlans, CutAnywhereTheyCountForNothing) {
  for (size_t length = 0;; length += kSanitized ? 53 : 17) {
    SCOPED_TRACE(length);
    killBeforeRename(1);
    const std::string index = readFile(paths::kPrivateLogIndex);
    const size_t first = index.find("P\x01", 40);
    ASSERT_NE(first, std::string::npos);
    const size_t end = index.find('O', first) + 40;
    if (first + length >= end)
      break;
    EXPECT_TRUE(contains(idshift({"/trees/t"}).err, "3" + kPending));
    writeFile(paths::kPrivateLogIndex, index.substr(0, first + length), 0644);
    EXPECT_FALSE(contains(idshift({"/trees/t"}).err, kPending));
    EXPECT_EQ(idshift({"-C", "/trees/t"}).status, 0);
    EXPECT_EQ(readFile(paths::kPasswd), kConvertedPasswd);
    for (int undos = 0; undos < 2; ++undos)
      EXPECT_EQ(idshift({"-U"}).status, 0);
    EXPECT_EQ(readFile(paths::kPasswd) + readFile(paths::kGroup), std::string(kPasswd) + kGroup);
    EXPECT_EQ(ownerOf("/trees/t/f"), "500:100");
  }
}
