#include "services/logger.h"

#include <cerrno>
#include <map>

#include <gtest/gtest.h>

#include "services/properties.h"
#include "services/say.h"
#include "tests/support/sandbox.h"

using orvs::Logger;
using orvs::Properties;

TEST(Logger, ThresholdsAreTakenFromTheNearestAncestorThatHasOne) {
  const struct {
    std::map<std::string, std::string> settings;
    const char* logger;
    int lowest;  // the lowest level that is enabled, 6 when none is
  } rows[] = {{{}, "cli.idshift", 3},
              {{{"log.level", "DEBUG"}}, "cli.idshift", 1},
              {{{"log.level", "off"}}, "cli.idshift", 6},
              {{{"log.level", "nonsense"}}, "cli.idshift", 3},
              {{{"log.level.cli", "fatal"}}, "cli.idshift", 5},
              {{{"log.level.cli", "fatal"}}, "nss", 3},
              {{{"log.level.cli", "fatal"}, {"log.level.cli.idshift", "trace"}}, "cli.idshift", 0},
              {{{"log.level", "off"}, {"log.file.level.cli", "info"}}, "cli.idshift", 2}};
  for (const auto& row : rows) {
    Properties properties;
    for (const auto& [key, value] : row.settings)
      properties.set(key, value);
    const orvs::LoggerPtr logger = getLogger(row.logger, false);
    Logger::ReconfigureLevels(properties);
    for (int level = 0; level < 6; ++level)
      EXPECT_EQ(logger->isEnabled(level), level >= row.lowest) << row.logger << " " << level;
  }
}

TEST(Logger, ArgumentsAreEvaluatedOnlyWhenSomebodyListens) {
  const orvs::LoggerPtr logger = getLogger("quiet", false);
  int evaluated = 0;
  const auto count = [&evaluated] { return ++evaluated; };
  ORVS_LOG(logger, 2, "test", "%d", count());
  SAY(logger, 2, "test", Echo::None, "%d", count());
  EXPECT_EQ(evaluated, 0);
  testing::internal::CaptureStderr();
  errno = ENOENT;
  SAY(logger, 2, "test", Echo::Stderr, "%d and %s", count(), "text");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "1 and text\n");
}

using LogFile = SandboxTest;

TEST_F(LogFile, ARecordIsOneLine) {
  recordLog();
  orvs::Props(false, false).set("log.file.level", "debug");
  Logger::ReconfigureLevels(orvs::Props(false, false));
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  logger->log(1, "cli_idshift", 7, "main2", "forged\nline %s\n", "x");
  logger->log(0, "cli_idshift", 8, "main2", "below the threshold");
  const std::vector<std::string> records = readLogRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].substr(24),  // behind the time
            "DEBUG cli.idshift cli_idshift:7 main2 forged\\x0aline x");
}
