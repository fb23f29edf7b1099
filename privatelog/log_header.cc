#include "privatelog/log_header.h"

#include "privatelog/log_line.h"
#include "services/exceptions.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

namespace {

orvs::LoggerPtr logger() {
  return getLogger("cli.idshift", false);
}

}  // namespace

bool getHeader(LogReader& reader, std::string& domain) {
  const auto first = reader.next();
  if (!first)
    return false;
  const auto name = parseHeaderLine(first->text);
  if (name)
    domain = *name;
  else
    SAY(logger(), 3, "private_log", Echo::Stderr,
        "Warning: invalid private log file format - ignoring");
  return name.has_value();
}

bool getCurrentDomain(std::string& domain) {
  try {
    domain = orvs::loadSetting(orvs::SETTING_DOMAIN_NAME, false, false);
    return true;
  } catch (const orvs::Base_Exception& error) {
    SAY(logger(), 1, "private_log", Echo::Stderr, "Error: %s", error.what());
    return false;
  }
}

bool verifyInDomain(const std::string& logDomain) {
  std::string domain;
  if (!getCurrentDomain(domain))
    return false;
  if (logDomain == domain)
    return true;
  SAY(logger(), 3, "private_log", Echo::Stderr,
      "Error: previous log was from domain %s, current domain is %s", logDomain.c_str(),
      domain.c_str());
  SAY(logger(), 3, "private_log", Echo::Stderr, "  use --restart option to ignore previous log");
  return false;
}

void reportMisfit(const LogScan& scan) {
  const char* reason =
      scan.indexReader().isOpen() ? "it is of another log" : scan.indexReader().reason();
  SAY(logger(), 3, "private_log", Echo::Stderr,
      "Error: index file %s does not fit private log file %s: %s", paths::kPrivateLogIndex,
      paths::kPrivateLog, reason);
  SAY(logger(), 3, "private_log", Echo::Stderr,
      "  move the index away to have the log taken at its word");
}

void reportUnvouched(const LogScan& scan) {
  const uint64_t count = scan.end().unvouchedLines;
  if (count > 0)
    SAY(logger(), 3, "private_log", Echo::Stderr,
        "Warning: private log file %s was edited: %lu line(s) are not acted on", paths::kPrivateLog,
        static_cast<unsigned long>(count));
}
