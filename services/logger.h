// The logger: a tree of named nodes over two sinks, syslog and the log file.
//
// "cli.idshift" is a child of "cli", which is a child of the root. A node has two thresholds, the
// first for syslog, the second for the file. -1 stands for the parent's threshold; the first use
// looks it up and keeps it in the node. A record goes to each sink whose threshold it reaches.
// Levels are 0 (trace) to 5 (fatal). Each thread has a tree of its own, so a handle (a shared
// pointer) must stay in its thread.
//
// Call sites use ORVS_LOG, which tests the level first and evaluates the arguments only when a sink
// wants the record.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

namespace orvs {

class Properties;
class Logger;
using LoggerPtr = boost::shared_ptr<Logger>;

class Logger {
 public:
  enum LogLevel { kTrace = 0, kDebug = 1, kInfo = 2, kWarn = 3, kError = 4, kFatal = 5, kOff = 6 };

  Logger(std::string name, Logger* parentNode);

  static LoggerPtr GetThreadPrivateLogger(const std::string& name);

  // Sets the program's name in syslog; "idshift" otherwise. Call this before the first record.
  static void SetTag(const std::string& tag);

  // Re-reads the thresholds of every node of this thread from the settings.
  static void ReconfigureLevels(Properties& properties);

  // True when one of the sinks wants records of `level`. Resolves inherited thresholds on first
  // use.
  bool isEnabled(int level);

  // Writes one record to each sink that wants it. Keeps errno.
  [[gnu::format(printf, 6, 7)]] void log(
      int level, const char* file, int line, const char* function, const char* format, ...);

  const std::string& name() const { return loggerName; }

 private:
  int resolvedThreshold(int Logger::*threshold);

  std::string loggerName;
  Logger* parent;  // null for the root; owned by the tree, which lives as long as the thread
  int firstThreshold = -1;
  int secondThreshold = -1;
};

// A null logger is never enabled.
inline bool logEnabled(const LoggerPtr& logger, int level) {
  return logger && logger->isEnabled(level);
}

}  // namespace orvs

// The logger `name`, or "diag." + name when `diag` is true.
orvs::LoggerPtr getLogger(const std::string& name, bool diag);

// `file` is a source tag such as "passwdDB".
#define ORVS_LOG(logger, level, file, ...)                         \
  do {                                                             \
    if (::orvs::logEnabled(logger, level))                         \
      (logger)->log(level, file, __LINE__, __func__, __VA_ARGS__); \
  } while (false)
