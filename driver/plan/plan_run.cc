#include "driver/plan/plan_run.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "driver/exit_status.h"
#include "driver/plan/plan_differences.h"
#include "driver/plan/plan_file.h"
#include "driver/plan/plan_text.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/say.h"

#include <sha256.h>

namespace {

// The SHA-256 of a name map; empty unless the map is a regular file. A pipe cannot be read again
// after the map was loaded.
std::string digestOf(const char* fileName) {
  struct stat status = {};
  if (fileName == nullptr || stat(fileName, &status) != 0 || !S_ISREG(status.st_mode))
    return "";
  std::array<char, SHA256_DIGEST_STRING_LENGTH> digits = {};
  return SHA256File(fileName, digits.data()) != nullptr ? digits.data() : "";
}

std::string hostName() {
  std::array<char, 256> name = {};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string dateNow() {
  const time_t now = time(nullptr);
  tm parts = {};
  std::array<char, 32> text = {};
  if (gmtime_r(&now, &parts) == nullptr)
    return "";
  return {text.data(), strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

ApprovedPlan presentPlan(const CommandOptions& options, const AccountFiles& accounts) {
  ApprovedPlan plan;
  PrivateLog::getCurrentDomain(plan.domain);
  plan.host = hostName();
  plan.date = dateNow();
  plan.options = {options.newIDRange, digestOf(options.userMapFile),
                  digestOf(options.groupMapFile)};
  plan.users = userConflicts;
  plan.groups = groupConflicts;
  plan.accounts = accountUpdates(accounts);
  return plan;
}

BorneIds borneIds(const AccountFiles& accounts) {
  BorneIds ids;
  for (const orvs::DBGroup* group : accounts.groups.getEntries())
    ids.emplace(std::pair(true, group->name), OwnerIds{0, group->gid});
  for (const orvs::DBPasswd* user : accounts.users.getEntries())
    ids.emplace(std::pair(false, user->name), OwnerIds{user->uid, user->gid});
  return ids;
}

}  // namespace

int readApprovedPlan(const orvs::LoggerPtr& logger,
                     const CommandOptions& options,
                     std::optional<ApprovedPlan>& approved) {
  const char* name = options.expectFile;
  const PlanFileText file = readPlanFile(name);
  if (interrupt::pending() != 0)
    return kExitSuccess;
  if (file.isTerminal) {
    TELL(Echo::Stderr, "Error: the plan %s cannot be read from a terminal", name);
    return kExitNotAsApproved;
  }
  if (!file.text) {
    TELL(Echo::Stderr, "Error: cannot read plan %s: %s", name, strerror(errno));
    return kExitException;
  }
  PlanReading reading = readPlanText(*file.text);
  if (!reading.plan) {
    TELL(Echo::Stderr, "Error: the plan %s %s", name, reading.fault.c_str());
    return kExitNotAsApproved;
  }
  approved = std::move(reading.plan);
  return kExitSuccess;
}

int holdAgainst(const orvs::LoggerPtr& logger,
                const CommandOptions& options,
                const ApprovedPlan& approved,
                const AccountFiles& accounts) {
  const std::vector<std::string> differences =
      differencesOf(approved, presentPlan(options, accounts), borneIds(accounts));
  for (const std::string& line : differences)
    TELL(Echo::Stderr, "Not as approved: %s", line.c_str());
  return differences.empty() ? kExitSuccess : kExitNotAsApproved;
}

int writePlan(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              const AccountFiles& accounts) {
  const std::string reason =
      writePlanFile(options.planFile, formatPlanText(presentPlan(options, accounts)));
  if (reason.empty())
    return kExitSuccess;
  TELL(Echo::Stderr, "Error: cannot write plan %s: %s", options.planFile, reason.c_str());
  return kExitException;
}
