#include "driver/cli_idshift.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include "accountdb/passwdDB.h"
#include "driver/account_update.h"
#include "driver/command_line.h"
#include "driver/conflict_summary.h"
#include "driver/exit_status.h"
#include "driver/map_steps.h"
#include "driver/plan/plan_run.h"
#include "driver/run.h"
#include "driver/run_note.h"
#include "driver/survey_run.h"
#include "driver/top_dirs.h"
#include "driver/usage.h"
#include "idmap/id_maps.h"
#include "privatelog/private_log.h"
#include "services/cli_common.h"
#include "services/left_undone.h"
#include "services/logger.h"
#include "services/paths.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"
#include "walk/attribute_changes.h"
#include "walk/visited.h"

namespace {

// Reads the settings; a malformed file throws. A key that neither program reads goes to the log,
// because it may be misspelled.
void readSettings(const orvs::LoggerPtr& logger) {
  for (const std::string& key : orvs::Props(false, false).unknownKeys())
    ORVS_LOG(logger, 3, "cli_idshift", "unknown setting %s in %s", key.c_str(), paths::kSettings);
}

int refuseCombination(const orvs::LoggerPtr& logger, const CommandOptions& options) {
  if (options.undo && (options.commit || options.reportFiles != nullptr))
    TELL(
        Echo::Stderr,
        "Error: option --undo (-U) cannot be used with --commit (-c), --commit-all (-C) or --report (-r)");
  else if (options.survey)
    TELL(
        Echo::Stderr,
        "Error: option --survey cannot be used with --commit (-c), --commit-all (-C), --undo (-U) or --report (-r)");
  else if (options.json && options.reportFiles == nullptr)
    TELL(Echo::Stderr, "Error: option --json needs --survey or --report (-r)");
  else if (options.planFile != nullptr)
    TELL(
        Echo::Stderr,
        "Error: option --plan cannot be used with --commit (-c), --commit-all (-C), --undo (-U) or --report (-r)");
  else
    TELL(
        Echo::Stderr,
        "Error: option --expect cannot be used with --undo (-U), or with --report (-r) without --commit (-c)");
  return kExitUsage;
}

int requireRootAndDomain(const orvs::LoggerPtr& logger, const RunPlan& plan) {
  if (plan.needsRoot && getuid() != 0) {
    TELL(Echo::Stderr, "Error: this command should be run by root to change ids");
    return kExitNotRoot;
  }
  if (plan.needsDomain && !machineJoined(logger, &std::cerr))
    return kExitNotJoined;
  return 0;
}

// --debug and --verbose: the whole logger tree at "DEBUG", and the options on standard error.
void switchToDebug(const CommandOptions& options) {
  orvs::Properties& settings = orvs::Props(false, false);
  settings.set(orvs::PN::ROOT_LOGGER_NAME, "DEBUG");
  orvs::Logger::ReconfigureLevels(settings);
  write2DebugLog(options);
}

int loadUsers(const orvs::LoggerPtr& logger, orvs::PasswdDB& passwdDB) {
  passwdDB.storage.open();
  passwdDB.load(passwdDB.storage);
  if (passwdDB.storage.isOpen() || interrupted())
    return 0;
  SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: cannot load password file %s",
      paths::kPasswd);
  return kExitPasswdNotLoaded;
}

int loadGroups(const orvs::LoggerPtr& logger, orvs::GroupDB& groupDB) {
  groupDB.storage.open();
  groupDB.load(groupDB.storage);
  if (groupDB.storage.isOpen() || interrupted())
    return 0;
  SAY(logger, 3, "cli_idshift", Echo::Stderr, "Error: cannot load group file %s", paths::kGroup);
  return kExitGroupNotLoaded;
}

int refuseForLackOfLog(const orvs::LoggerPtr& logger, ExitStatus status) {
  if (status == kExitUndoRefused)
    TELL(Echo::Stderr,
         "Error: cannot undo changes because private log file %s could not be opened for reading.",
         paths::kPrivateLog);
  else
    TELL(Echo::Stderr,
         "Error: cannot create report because private log file %s could not be opened for reading.",
         paths::kPrivateLog);
  TELL(
      Echo::Stderr,
      "This file should have been created by the last commit operation, however it seems like it was not.  Please check for file permissions as well as for any error messages by the previous commit operation.");
  return status;
}

int reportUnsynced(const orvs::LoggerPtr& logger) {
  TELL(Echo::Stderr, "Error: cannot bring private log file %s and the changes to the disk: %s",
       paths::kPrivateLog, strerror(errno));
  return kExitException;
}

// Reads the log and opens it for writing. The approved plan is checked in between. So a run that is
// refused has touched nothing. Opening fails if another run has changed the log since it was read.
int selectLog(const Run& run) {
  const orvs::LoggerPtr& logger = run.logger;
  const RunPlan& plan = run.plan;
  const bool previousLogUsable = plan.readsLog && privateLog.loadPrivateLog(plan.checksLogDomain);
  // A signal may have interrupted the reading, and that must not count as a log that cannot be
  // used.
  if (interrupted())
    return 0;
  const LogPlan logPlan = planLog(plan.mode, previousLogUsable);
  if (logPlan.refusal != kExitSuccess)
    return refuseForLackOfLog(logger, logPlan.refusal);
  if (run.options.expectFile != nullptr) {
    if (const int status = checkApproval(run); status != 0 || interrupted())
      return status;
  }
  if (logPlan.opening == LogOpening::None)
    return 0;
  if (privateLog.openPrivateLog(logPlan.opening == LogOpening::Append))
    return 0;
  TELL(Echo::Stderr, "Error: cannot open private log file %s  for writing.", paths::kPrivateLog);
  return kExitLogNotWritable;
}

// A dry run shows the finished maps, a commit carries them out.
//
// The order of a commit: judge the maps (strict only), walk the trees, sync entries and log, update
// the account files. An earlier update would make a later run find no conflict for the entries that
// are still to be changed. With strict the accounts move only after a walk has found nothing more
// to change and nothing was left undone.
int applyMaps(const Run& run) {
  const CommandOptions& options = run.options;
  const bool isPlanPrinted = options.planFile != nullptr && options.planFile == std::string("-");
  if (run.plan.mode == RunMode::DryRun && !isPlanPrinted)
    printConflictSummary(run.logger);
  if (options.planFile != nullptr) {
    const int status = writePlan(run.logger, options, {run.passwdDB, run.groupDB});
    if (status != 0)
      return status;
  }
  if (isStrict()) {
    if (const int status = judgeMaps(run); status != 0)
      return status;
  }
  if (uidMap.empty() && gidMap.empty()) {
    if (options.commit)
      SAY(run.logger, 1, "cli_idshift", Echo::Stdout,
          "No user-id or group-id conflicts were found, change nothing.");
    if (options.commit && !options.pretend)
      retryInTopDirs(options);
    return 0;
  }
  if (!options.commit && !options.debug && !options.verbose)
    return 0;
  const bool movesAccounts = options.commitAll && !options.pretend;
  const bool isCareful = movesAccounts && isStrict();
  const int status =
      isCareful ? walkUntilQuiet(run.logger, options) : walkTopDirs(run.logger, options);
  if (interrupted())
    return 0;
  if (status != 0 || !movesAccounts)
    return status;
  if (isCareful && left_undone::any()) {
    SAY(run.logger, 1, "cli_idshift", Echo::Stderr,
        "The account files were not updated: mend the errors above, then run --commit-all again.");
    return kExitSuccess;  // carryOut() prints the count and chooses the status
  }
  // Each update of an account file is synced at once. If one reached the disk before the entries, a
  // power cut could leave entries with old ids for which no later commit finds a conflict.
  if (!privateLog.sync())
    return reportUnsynced(run.logger);
  updateAccountFiles(run.logger, {run.passwdDB, run.groupDB});
  return kExitSuccess;
}

int survey(const Run& run) {
  return runSurvey(run.logger, run.options, run.passwdDB, run.groupDB);
}

// The modes that compare accounts: dry run, commit and survey.
int mapAndConvert(const Run& run) {
  if (const int status = makeMaps(run); status != 0 || interrupted())
    return status;
  if (run.plan.mode == RunMode::Survey)
    return askingAgent(run, survey);
  return applyMaps(run);
}

int runMode(const Run& run) {
  switch (run.plan.mode) {
    case RunMode::Report:
      privateLog.Report(run.options.reportFiles, run.options.json);
      return 0;
    case RunMode::Undo:
      privateLog.Undo(run.passwdDB, run.groupDB, run.options);
      return 0;
    case RunMode::DryRun:
    case RunMode::Commit:
    case RunMode::Survey:
      break;
  }
  return mapAndConvert(run);
}

// Success means that log, changes and account files are on the disk. A failed sync is reported and
// sets status 6; the run ends as usual.
int closeLog(const orvs::LoggerPtr& logger) {
  return privateLog.close() ? kExitSuccess : reportUnsynced(logger);
}

void printCount(const Run& run) {
  const orvs::LoggerPtr& logger = run.logger;
  TELL(Echo::Stdout, "%lu file(s) changed", static_cast<unsigned long>(privateLog.changeCount));
  if (orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_CONVERT_ACLS, false)) {
    TELL(Echo::Stdout, "%lu ACL(s) changed", static_cast<unsigned long>(privateLog.aclCount));
    if (run.options.commit && !orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_HARDENED, true))
      TELL(Echo::Stderr, "Warning: ACLs are not converted while idshift.hardened is off.");
  }
  if (attributesLeft > 0)
    TELL(Echo::Stderr, "%lu ACL(s) or capabilities could not be converted or kept.",
         static_cast<unsigned long>(attributesLeft));
}

// Runs the mode, then ends the run: close the log, write the report of a commit, release the lock,
// print the count. A mode that returns a status ends the run at once. Only a commit and an undo
// have the log open for writing. A signal ends the mode between two steps, and what was done is
// counted as in any other run.
int carryOut(const Run& run) {
  if (!interrupted()) {
    if (const int status = runMode(run); status != 0)
      return status;
  }
  const int status = closeLog(run.logger);
  if (run.plan.mode == RunMode::Commit && run.options.reportFiles != nullptr && !interrupted())
    privateLog.Report(run.options.reportFiles, run.options.json);
  privateLog.release();
  if (run.options.commit || run.options.undo)
    printCount(run);
  const bool isIncomplete = left_undone::any() && !interrupted() && isStrict();
  return status == kExitSuccess && isIncomplete ? kExitLeftUndone : status;
}

}  // namespace

int main2(int argc, char** argv) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  excludeList.emplace_back("/proc/");
  excludeList.emplace_back("/dev/fd/");

  static CommandOptions options;
  if (ParseCommandLineOpts(argc, argv, options) != 0) {
    printUsage();
    return kExitUsage;
  }
  if (options.help) {
    printUsage();
    return kExitSuccess;
  }
  if (options.version) {
    printVersion();
    return kExitSuccess;
  }
  const std::optional<RunPlan> plan = planRun(options);
  if (!plan)
    return refuseCombination(logger, options);

  // The command line is accepted. From here on the machine may refuse: its settings, its user, its
  // domain, its account files, its log. The settings come first, because a malformed file throws
  // before anything else is looked at.
  readSettings(logger);
  if (const int status = requireRootAndDomain(logger, *plan); status != 0)
    return status;
  if (options.debug || (options.verbose && !options.survey))
    switchToDebug(options);

  const bool hardened = orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_HARDENED, true);
  orvs::PasswdDB passwdDB(plan->readOnly, hardened);
  if (const int status = loadUsers(logger, passwdDB); status != 0)
    return status;
  orvs::GroupDB groupDB(plan->readOnly, hardened);
  if (const int status = loadGroups(logger, groupDB); status != 0)
    return status;

  // Up to here nothing has been written, not even to the log.
  const Run run = {logger, options, *plan, passwdDB, groupDB};
  if (!interrupted()) {
    if (const int status = selectLog(run); status != 0)
      return status;
  }

  const int status = carryOut(run);
  if (plan->needsRoot)
    noteRun(logger, options, status);
  return status;
}
