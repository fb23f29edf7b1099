#include "zonagent/agent_log.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>

#include "services/text.h"

namespace zonagent {
namespace {

namespace wire = orvs::wire;

bool stderrIsTheJournal() {
  const char* stream = getenv("JOURNAL_STREAM");
  struct stat status = {};
  return stream && fstat(2, &status) == 0 &&
         std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

}  // namespace

void nameTheLog() {
  orvs::Logger::SetTag("zonagent");
}

orvs::LoggerPtr agentLog() {
  return getLogger("zonagent", false);
}

Echo agentEcho() {
  static const bool journal = stderrIsTheJournal();
  return stderrIf(!journal || !orvs::logEnabled(agentLog(), 3));
}

std::string describe(const wire::Question& question) {
  const bool isUser = question.kind == wire::Kind::User;
  const std::string name =
      question.name ? (isUser ? "user " : "group ") + inQuotes(*question.name) : "";
  const std::string id =
      question.id ? (isUser ? "uid " : "gid ") + std::to_string(*question.id) : "";
  return name + (question.name && question.id ? ", " : "") + id;
}

bool OncePerSecond::passes(const std::string& text, Clock::time_point now) {
  std::erase_if(last,
                [now](const auto& entry) { return now - entry.second >= std::chrono::seconds(1); });
  return last.emplace(text, now).second;
}

}  // namespace zonagent
