// What a run will do, decided from the options alone.
//
// Five modes follow from four options: dry run (none), commit, report, undo, survey. planRun
// answers with the mode and what it asks of the caller and the machine; planLog then says how the
// private log is opened, given whether the previous one can be used. Both are pure; cli_idshift
// acts on the answers. Neither can fail: a refused combination is an answer.
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
  bool checksLogDomain;  // and is usable only if it is from the current domain

  bool operator==(const RunPlan&) const = default;
};

// Nothing when undo is combined with commit or report, survey with any of the three, JSON is asked
// for without a survey or report, a plan without a dry run, or one is expected where there are no
// maps.
std::optional<RunPlan> planRun(const CommandOptions& options);

enum class LogOpening { None, Append, Truncate };

struct LogPlan {
  LogOpening opening;
  ExitStatus refusal;  // kExitSuccess when the run goes on
};

// `previousLogUsable` is false too when the log was not read.
LogPlan planLog(RunMode mode, bool previousLogUsable);
