// What a run will do, decided from the options alone. Pure.
//
// There are five modes: commit, undo, report and survey have an option each; without one of these
// the run is a dry run. planRun returns the mode and what it needs. planLog then returns how the
// private log is opened, given whether the previous log can be used. cli_idshift acts on the
// answers. Neither can fail: a refused combination is an answer.
#pragma once

#include <optional>

#include "driver/exit_status.h"
#include "services/command_options.h"

enum class RunMode { DryRun, Commit, Report, Undo, Survey };

struct RunPlan {
  RunMode mode;
  bool needsRoot;        // the real uid has to be 0
  bool needsDomain;      // the machine has to be joined
  bool readOnly;         // the account databases refuse every update
  bool readsLog;         // the previous log is loaded
  bool checksLogDomain;  // the previous log must be from the current domain

  bool operator==(const RunPlan&) const = default;
};

// Nothing for a combination that is refused: undo with commit or report, survey with any of these
// three, --json without survey or report, --plan with another mode than a dry run, --expect with
// another than a dry run or commit.
std::optional<RunPlan> planRun(const CommandOptions& options);

enum class LogOpening { None, Append, Truncate };

struct LogPlan {
  LogOpening opening;
  ExitStatus refusal;  // kExitSuccess when the run goes on
};

// `previousLogUsable` is also false when the log was not read.
LogPlan planLog(RunMode mode, bool previousLogUsable);
