#include "services/logger.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

using orvs::Logger;
using orvs::Properties;

namespace {

// The lowest level at which `name` is enabled, 6 when none is.
int lowestLevel(const std::string& name) {
  const orvs::LoggerPtr logger = getLogger(name, false);
  int level = 0;
  while (level < 6 && !logger->isEnabled(level))
    ++level;
  return level;
}

}  // namespace

TEST(Logger, ThresholdsAreTakenFromTheNearestAncestorThatHasOne) {
  const struct {
    std::map<std::string, std::string> settings;
    const char* logger;
    int expected;
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
    getLogger(row.logger, false);
    Logger::ReconfigureLevels(properties);
    EXPECT_EQ(lowestLevel(row.logger), row.expected) << row.logger;
  }
}

TEST(Logger, DiagnosticLoggersHaveAPrefix) {
  EXPECT_EQ(getLogger("x", true)->name(), "diag.x");
  EXPECT_EQ(getLogger("x", false), getLogger("x", false));
}

TEST(Logger, ArgumentsAreEvaluatedOnlyWhenSomebodyListens) {
  Properties properties;
  const orvs::LoggerPtr logger = getLogger("quiet", false);
  Logger::ReconfigureLevels(properties);
  int evaluated = 0;
  const auto count = [&evaluated] { return ++evaluated; };
  ORVS_LOG(logger, 2, "test", "%d", count());
  SAY(logger, 2, "test", Echo::None, "%d", count());
  ORVS_LOG(orvs::LoggerPtr(), 5, "test", "%d", count());
  EXPECT_EQ(evaluated, 0);
  testing::internal::CaptureStderr();
  errno = ENOENT;
  SAY(logger, 2, "test", Echo::Stderr, "%d and %s", count(), "text");
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "1 and text\n");
}

TEST(Logger, ARecordIsOneLineInTheLogFile) {
  const std::string path = testing::TempDir() + "/logger-test-records";
  std::filesystem::remove(path);
  orvs::Props(false, false).set(orvs::PN::LOG_FILE_PATH, path);
  orvs::Props(false, false).set(orvs::PN::ROOT_LOGGER_NAME, "off");
  orvs::Props(false, false).set(orvs::PN::ROOT_LOGGER_FILE_LEVEL, "debug");
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  Logger::ReconfigureLevels(orvs::Props(false, false));
  logger->log(1, "cli_idshift", 7, "main2", "forged\nline %s\n", "x");
  logger->log(0, "cli_idshift", 8, "main2", "below the threshold");
  std::ifstream stream(path);
  std::stringstream text;
  text << stream.rdbuf();
  std::filesystem::remove(path);
  EXPECT_EQ(text.str().substr(24),  // behind the time
            "DEBUG cli.idshift cli_idshift:7 main2 forged\\x0aline x\n");
}
