#include "privatelog/private_log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include <gtest/gtest.h>

#include "services/paths.h"
#include "tests/support/sandbox.h"

namespace {

const std::string kLog = paths::kPrivateLog;

// Date lines hold the time of the test.
std::string withoutDates(const std::string& text) {
  return std::regex_replace(
      text, std::regex("!\\w{3} \\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d \\d{4}"), "!DATE");
}

class PrivateLogTest : public SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    if (IsSkipped())
      return;
    joinDomain("corp");
  }
};

TEST_F(PrivateLogTest, WritesTheSampleAndReadsItBack) {
  PrivateLog log;
  ASSERT_FALSE(log.loadPrivateLog(true));
  ASSERT_TRUE(log.openPrivateLog(false));
  ASSERT_TRUE(log.beginRecord({2049, 131}, {500, 100}, "/home/ann/notes", false));
  log.finishRecord({10001, 10000});
  ASSERT_TRUE(log.addLinkRecord({2049, 131}, "/home/ann/notes.bak"));
  ASSERT_TRUE(log.beginRecord({2049, 150}, {500, 100}, "/home/ann/failed", false));
  log.abandonRecord();
  ASSERT_TRUE(log.beginRecord({2049, 140}, {500, 100}, "/home/ann/link", true));
  log.finishRecord({10001, 10000});
  log.addGroupUpdateRecord("staff", 100, 10000);
  log.addPasswdUpdateRecord("ann", {500, 100}, {10001, 10000});
  EXPECT_EQ(log.changeCount, 3u);
  EXPECT_TRUE(log.close());
  EXPECT_EQ(withoutDates(readFile(kLog)),
            "domain:corp\n"
            "!DATE\n"
            "/home/ann/notes:2049:131:500:100:10001:10000\n"
            "+/home/ann/notes.bak:2049:131\n"
            "/home/ann/failed:2049:150:500:100\n"
            ">/home/ann/link:2049:140:500:100:10001:10000\n"
            "@staff:100:10000\n"
            "=ann:500:100:10001:10000\n");

  PrivateLog again;
  ASSERT_TRUE(again.loadPrivateLog(true));
  EXPECT_TRUE(again.hasPath({2049, 131}, "/home/ann/notes"));
  EXPECT_TRUE(again.hasPath({2049, 131}, "/home/ann/notes.bak"));
  EXPECT_TRUE(again.hasPath({2049, 140}, "/home/ann/link"));
  EXPECT_FALSE(again.hasInode({2049, 150}));
}

}  // namespace
