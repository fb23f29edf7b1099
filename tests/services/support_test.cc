// The settings, the logger that takes its thresholds from them, and child processes.
#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "services/exceptions.h"
#include "services/interrupt.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/spawn.h"
#include "services/unique_fd.h"
#include "tests/support/sandbox.h"

using orvs::Logger;
using orvs::Properties;

using SettingsFile = SandboxTest;

TEST_F(SettingsFile, KeysComeFromSectionsAndCompareWithoutCase) {
  writeFile("/etc/x", "; c\n# d\nDomain.Name = corp \n\n[log]\nlevel=ERROR\nfile.path = /var/x\n");
  Properties properties;
  properties.load("/etc/x");
  EXPECT_EQ(properties.getString("domain.name"), "corp");
  EXPECT_EQ(properties.getString("LOG.LEVEL"), "ERROR");
  EXPECT_EQ(properties.getString("log.file.path"), "/var/x");
}

TEST_F(SettingsFile, BadFilesAreNamedWithTheirLine) {
  const std::pair<const char*, std::string> rows[] = {
      {"a = 1\nno equals sign\n", "/etc/x:2: '=' character not found in line"},
      {"# first\nLog.Level = 1\n\n[log]\nlevel = 2\n", "/etc/x:5: duplicate key log.level"},
      {"a = 1\n\nA = 2\n", "/etc/x:3: duplicate key A"},
      {"a = x#y\nb = 1\t# note\n",
       "/etc/x:2: the value of b holds a \"#\" behind a blank; a comment needs a line of its own"},
      {"[idshift]\nHARDENED = on\n",
       "/etc/x:2: the value of idshift.HARDENED is none of true, yes, 1, false, no, 0"},
      {"idshift.progress = off\n",
       "/etc/x:1: the value of idshift.progress is neither auto nor never"},
      {"idshift.read.ahead = 65\n",
       "/etc/x:1: the value of idshift.read.ahead is neither auto nor off nor a number up to 64"},
      {"agent.service = \xff\n",
       "/etc/x:1: the value of agent.service is not UTF-8 or has a control character"}};
  for (const auto& [text, expected] : rows) {
    writeFile("/etc/x", text);
    std::string failure;
    try {
      Properties().load("/etc/x");
    } catch (const ORVSException& error) {
      failure = error.what();
    }
    EXPECT_EQ(failure, expected) << text;
  }
  // An older boolean has its default for any other word.
  writeFile(
      "/etc/x",
      "idshift.preserve.execution.bits = on\nidshift.hardened = YES\nagent.service =\n"
      "Zonagent.Backends = x\nidshift.progress = NEVER\nidshift.read.ahead = 64\nother.key = 1\nzonagent.backend = files:/z\n");
  Properties good;
  good.load("/etc/x");
  EXPECT_EQ(good.unknownKeys(), orvs::StringList{"Zonagent.Backends"});
  Properties().load("/nonexistent/settings");
  EXPECT_THROW(Properties().load("/tmp"), ORVSException);
}

TEST_F(SettingsFile, AListIsOfWordsOrOfTheLinesOfAFile) {
  writeFile("/etc/list", "# c\nroot\n  two words \t\v\f\r\n\n \n#x\nlast");
  const std::pair<const char*, orvs::StringList> rows[] = {
      {" ,ann,\tbob\v\f\r\ncid#, ", {"ann", "bob", "cid#"}},
      {"file:/etc/list", {"root", "two words", "last"}},
      {"file:/etc/none", {}}};
  for (const auto& [value, names] : rows)
    EXPECT_EQ(*Properties().getValueList("list", value), names) << value;
}

TEST_F(SettingsFile, ALogRecordIsOneLine) {
  recordLog();
  orvs::Props(false, false).set("log.file.level", "debug");
  Logger::ReconfigureLevels(orvs::Props(false, false));
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  logger->log(1, "cli_idshift", 7, "main2", "forged\nline %s\n", "x");
  logger->log(0, "cli_idshift", 8, "main2", "below the threshold");
  const std::vector<std::string> records = readLogRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].substr(24),  // without the time
            "DEBUG cli.idshift cli_idshift:7 main2 forged\\x0aline x");
  // Child processes do not inherit the log file.
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink(entry, error) == "/tmp/records.log") {
      EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD), FD_CLOEXEC);
    }
  }
}

TEST(Properties, Booleans) {
  for (const bool otherwise : {true, false}) {
    const std::pair<const char*, bool> rows[] = {
        {"true", true}, {"YES", true},   {"1", true},       {"False", false}, {"no", false},
        {"0", false},   {"", otherwise}, {"on", otherwise}, {"2", otherwise}};
    Properties properties;
    for (const auto& [value, expected] : rows) {
      properties.set("Key", value);  // must drop the cached value
      EXPECT_EQ(properties.getBool("kEY", otherwise), expected) << value;
    }
  }
}

TEST(Logger, ThresholdsAreTakenFromTheNearestAncestorThatHasOne) {
  const struct {
    std::map<std::string, std::string> settings;
    const char* logger;
    int lowest;  // the lowest enabled level, 6 when none is
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

// The status of a shell script that spawnfv() runs.
static int runShell(const std::string& script) {
  const UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  const int descriptors[] = {null.get(), null.get(), null.get()};
  const char* argv[] = {"sh", "-c", script.c_str(), nullptr};
  return spawnfv(0, 3, descriptors, "/bin/sh", argv);
}

TEST(Spawn, TheChildGetsItsThreeDescriptorsAndNoOtherAndItsEndIsTold) {
  const UniqueFd leaked(::open("/dev/null", O_RDONLY));  // NOLINT: inheritable on purpose
  EXPECT_EQ(runShell("test -e /proc/$$/fd/" + std::to_string(leaked.get())), 1);
  EXPECT_EQ(runShell("kill -9 $$"), 128 + 9);
  const int descriptors[] = {0, 1, 2};
  const char* argv[] = {"missing", nullptr};
  EXPECT_EQ(spawnfv(0, 3, descriptors, "/nonexistent/program", argv), kSpawnFailed);
  ::signal(SIGCHLD, SIG_IGN);  // as a parent may leave it
  interrupt::install();
  EXPECT_EQ(runShell("exit 3"), 3);
}
