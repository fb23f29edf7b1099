#include "driver/map_steps.h"

#include <cstring>
#include <exception>
#include <optional>

#include "driver/account_update.h"
#include "driver/exit_status.h"
#include "driver/merge_check.h"
#include "driver/plan/plan_run.h"
#include "idmap/group_map.h"
#include "idmap/id_maps.h"
#include "idmap/name_map.h"
#include "idmap/user_map.h"
#include "privatelog/private_log.h"
#include "services/exceptions.h"
#include "services/say.h"

namespace {

int loadNameMaps(const Run& run) {
  const orvs::LoggerPtr& logger = run.logger;
  if (LoadNameMap(run.options.userMapFile, userNameMap) != 0) {
    TELL(Echo::Stderr, "Error: cannot load user-map file %s", run.options.userMapFile);
    return kExitUserMapNotLoaded;
  }
  if (LoadNameMap(run.options.groupMapFile, groupNameMap) != 0) {
    TELL(Echo::Stderr, "Error: cannot load group-map file %s", run.options.groupMapFile);
    return kExitGroupMapNotLoaded;
  }
  return 0;
}

int runBuilders(const Run& run) {
  const orvs::LoggerPtr& logger = run.logger;
  if (interrupted())
    return 0;
  if (CreateGroupMaps(run.groupDB, run.options) != 0) {
    TELL(Echo::Stderr, "Error: unable to generate group mappings");
    return kExitGroupMappingFailed;
  }
  if (!interrupted() && CreateIdMaps(run.passwdDB, run.groupDB, run.options) != 0) {
    TELL(Echo::Stderr, "Error: unable to generate id mappings");
    return kExitIdMappingFailed;
  }
  return 0;
}

// Prints the message for the exception that is being handled, which left a builder, and returns its
// status.
int reportBuilderException(const orvs::LoggerPtr& logger) {
  try {
    throw;
  } catch (const orvs::InvalidRangeException&) {
    TELL(Echo::Stderr, "ID-Range is not large enough");
    return kExitIdRangeExhausted;
  } catch (const orvs::IOException&) {
    TELL(Echo::Stderr, "Error: zonagent is not available.");
    return kExitAgentUnavailable;
  } catch (const orvs::ConnectionBrokenException& error) {
    TELL(Echo::Stderr, "Error: lost connection to zonagent: %s", error.what());
    return kExitAgentUnavailable;
  } catch (const std::exception& error) {
    TELL(Echo::Stderr, "Error: %s", error.what());
    return kExitException;
  }
}

// Shows the maps the account files as they will be when the plans of former runs are carried out. A
// --commit-all carries them out first. In other modes the entries in memory get the planned ids.
void takeUpOpenPlans(const Run& run) {
  const AccountFiles accounts = {run.passwdDB, run.groupDB};
  const bool isOnlyLooking = run.plan.mode == RunMode::DryRun || run.plan.mode == RunMode::Survey;
  if (isOnlyLooking && !run.options.restart)
    privateLog.loadOpenPlans();
  if (run.options.commitAll && !run.options.pretend)
    finishOpenPlans(run.logger, accounts);
  else if (run.plan.mode == RunMode::DryRun)
    reportOpenPlans(run.logger, accounts);
  seeAccountsAsPlanned(accounts);
}

}  // namespace

int askingAgent(const Run& run, int (*step)(const Run& run)) {
  try {
    return step(run);
  } catch (const std::exception&) {
    // A signal ends a wait for the agent with an exception; the agent is not at fault.
    return interrupted() ? 0 : reportBuilderException(run.logger);
  }
}

int makeMaps(const Run& run) {
  const bool haveMaps = run.options.expectFile != nullptr;
  if (const int status = haveMaps ? 0 : loadNameMaps(run); status != 0)
    return status;
  takeUpOpenPlans(run);
  return haveMaps ? 0 : askingAgent(run, runBuilders);
}

int checkApproval(const Run& run) {
  const AccountFiles accounts = {run.passwdDB, run.groupDB};
  std::optional<ApprovedPlan> approved;
  if (const int status = readApprovedPlan(run.logger, run.options, approved);
      status != 0 || interrupted())
    return status;
  if (const int status = loadNameMaps(run); status != 0)
    return status;
  const KeptIds keptIds(accounts);
  if (!run.options.restart)
    privateLog.loadOpenPlans();
  seeAccountsAsPlanned(accounts);
  if (const int status = askingAgent(run, runBuilders); status != 0 || interrupted())
    return status;
  return holdAgainst(run.logger, run.options, *approved, accounts);
}

int judgeMaps(const Run& run) {
  const MapDoubts doubts = findDoubts({run.passwdDB, run.groupDB});
  const bool isRefused = run.options.commit && !doubts.refusals.empty();
  const orvs::LoggerPtr& logger = run.logger;
  for (const std::string& warning : doubts.warnings)
    TELL(Echo::Stderr, "Warning: %s.", warning.c_str());
  for (const std::string& refusal : doubts.refusals)
    TELL(Echo::Stderr, "%s: %s.", isRefused ? "Error" : "Warning", refusal.c_str());
  if (!doubts.refusals.empty())
    TELL(Echo::Stderr, isRefused ? "Nothing was converted: see idshift.strict in orvantadc.conf(5)."
                                 : "A commit would refuse these conflicts: see idshift.strict in "
                                   "orvantadc.conf(5).");
  return isRefused ? kExitRefused : kExitSuccess;
}
