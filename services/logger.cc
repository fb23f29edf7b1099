#include "services/logger.h"

#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>

#include <boost/make_shared.hpp>

#include "services/exceptions.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "services/text.h"

namespace orvs {
namespace {

constexpr int kInherit = -1;
constexpr std::array<const char*, 6> kLevelNames = {"TRACE", "DEBUG", "INFO",
                                                    "WARN",  "ERROR", "FATAL"};

// The level that a setting names, or `otherwise` for an empty or unknown word.
int levelFromText(const std::string& text, int otherwise) {
  const std::string wanted = lower(text);
  for (size_t level = 0; level < kLevelNames.size(); ++level) {
    if (wanted == lower(kLevelNames[level]))
      return static_cast<int>(level);
  }
  return wanted == "off" ? Logger::kOff : otherwise;
}

// Keeps a record on one line, whatever bytes a file name has.
std::string oneLine(std::string text) {
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  std::string line;
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) {
      line += c;
      continue;
    }
    char escaped[5];
    snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
    line += escaped;
  }
  return line;
}

spdlog::level::level_enum nativeLevel(int level) {
  return static_cast<spdlog::level::level_enum>(level < 0 ? 0 : level > 5 ? 5 : level);
}

using SinkPtr = std::shared_ptr<spdlog::sinks::sink>;

std::string& syslogTag() {
  static std::string tag = "idshift";
  return tag;
}

SinkPtr makeSyslogSink() {
  auto sink = std::make_shared<spdlog::sinks::syslog_sink_mt>(syslogTag(), 0, LOG_AUTHPRIV, true);
  sink->set_pattern("%v");
  return sink;
}

// Null when no log file is set or the file cannot be opened. log() keeps the result, so the warning
// appears once.
SinkPtr makeFileSink() {
  const std::string path = Props(false, false).getString(PN::LOG_FILE_PATH);
  if (path.empty())
    return nullptr;
  try {
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const std::string& /*path*/, FILE* stream) {
      fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
    };
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, false, handlers);
    sink->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
    return sink;
  } catch (const std::exception& error) {
    fprintf(stderr, "Warning: cannot open log file %s: %s\n", path.c_str(), error.what());
    return nullptr;
  }
}

void writeTo(const SinkPtr& sink, int level, const std::string& text) {
  if (!sink)
    return;
  try {
    sink->log(spdlog::details::log_msg("idshift", nativeLevel(level), text));
    sink->flush();
  } catch (const std::exception&) {
    // A record that cannot be written must not end a run that changes files.
  }
}

// The nodes of one thread, by name. The root's name is empty. Nodes are made on first use and stay.
class LoggerTree {
 public:
  LoggerPtr node(const std::string& name) {
    if (const auto found = nodes.find(name); found != nodes.end())
      return found->second;
    Logger* parent = nullptr;
    if (!name.empty()) {
      const size_t dot = name.rfind('.');
      parent = node(dot == std::string::npos ? std::string() : name.substr(0, dot)).get();
    }
    LoggerPtr made = boost::make_shared<Logger>(name, parent);
    nodes.emplace(name, made);
    return made;
  }

  std::map<std::string, LoggerPtr> nodes;
};

LoggerTree& threadTree() {
  thread_local LoggerTree tree;
  return tree;
}

std::string keyFor(const char* rootKey, const std::string& name) {
  return name.empty() ? rootKey : std::string(rootKey) + "." + name;
}

struct Thresholds {
  int first = kInherit;
  int second = kInherit;
};

Thresholds thresholdsFor(Properties& properties, const std::string& name) {
  const bool root = name.empty();
  return {levelFromText(properties.getString(keyFor(PN::ROOT_LOGGER_NAME, name)),
                        root ? Logger::kWarn : kInherit),
          levelFromText(properties.getString(keyFor(PN::ROOT_LOGGER_FILE_LEVEL, name)),
                        root ? Logger::kOff : kInherit)};
}

}  // namespace

Logger::Logger(std::string name, Logger* parentNode)
    : loggerName(std::move(name)), parent(parentNode) {
  Thresholds thresholds;
  if (parent == nullptr)
    thresholds = {kWarn, kOff};
  try {
    thresholds = thresholdsFor(Props(false, false), loggerName);
  } catch (const ORVSException&) {
    // The driver reads the settings too and reports what is wrong with them, through this logger.
  }
  firstThreshold = thresholds.first;
  secondThreshold = thresholds.second;
}

void Logger::SetTag(const std::string& tag) {
  syslogTag() = tag;
}

LoggerPtr Logger::GetThreadPrivateLogger(const std::string& name) {
  return threadTree().node(name);
}

void Logger::ReconfigureLevels(Properties& properties) {
  threadTree().node("");
  for (const auto& [name, logger] : threadTree().nodes) {
    const Thresholds thresholds = thresholdsFor(properties, name);
    logger->firstThreshold = thresholds.first;
    logger->secondThreshold = thresholds.second;
  }
}

int Logger::resolvedThreshold(int Logger::*threshold) {
  if (this->*threshold == kInherit) {
    for (const Logger* node = parent; node != nullptr; node = node->parent) {
      if (node->*threshold != kInherit) {
        this->*threshold = node->*threshold;
        break;
      }
    }
  }
  return this->*threshold;
}

bool Logger::isEnabled(int level) {
  return resolvedThreshold(&Logger::firstThreshold) <= level ||
         resolvedThreshold(&Logger::secondThreshold) <= level;
}

void Logger::log(
    int level, const char* file, int line, const char* function, const char* format, ...) {
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  const std::string text = oneLine(formatText(format, arguments));
  va_end(arguments);
  const std::string place = std::string(file) + ":" + std::to_string(line) + " " + function + " ";

  if (resolvedThreshold(&Logger::firstThreshold) <= level) {
    static const SinkPtr syslogSink = makeSyslogSink();
    writeTo(syslogSink, level, loggerName + " " + place + text);
  }
  if (resolvedThreshold(&Logger::secondThreshold) <= level) {
    static const SinkPtr fileSink = makeFileSink();
    const std::string levelName = kLevelNames[static_cast<size_t>(nativeLevel(level))];
    writeTo(fileSink, level, levelName + " " + loggerName + " " + place + text);
  }
  errno = savedErrno;
}

}  // namespace orvs

orvs::LoggerPtr getLogger(const std::string& name, bool diag) {
  return orvs::Logger::GetThreadPrivateLogger(diag ? "diag." + name : name);
}
