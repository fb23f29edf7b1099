#include "driver/run_plan.h"

namespace {

RunMode modeOf(const CommandOptions& options) {
  if (options.commit)
    return RunMode::Commit;
  if (options.undo)
    return RunMode::Undo;
  if (options.reportFiles != nullptr)
    return RunMode::Report;
  return options.survey ? RunMode::Survey : RunMode::DryRun;
}

}  // namespace

std::optional<RunPlan> planRun(const CommandOptions& options) {
  if (options.undo && (options.commit || options.reportFiles != nullptr))
    return std::nullopt;
  const bool hasOtherMode = options.commit || options.undo || options.reportFiles != nullptr;
  if ((options.survey && hasOtherMode) ||
      (options.json && !options.survey && options.reportFiles == nullptr))
    return std::nullopt;

  const RunMode mode = modeOf(options);
  if (options.planFile != nullptr && mode != RunMode::DryRun)
    return std::nullopt;
  if (options.expectFile != nullptr && mode != RunMode::DryRun && mode != RunMode::Commit)
    return std::nullopt;
  const bool changesDisk = mode == RunMode::Commit || mode == RunMode::Undo;
  RunPlan plan = {};
  plan.mode = mode;
  plan.needsRoot = changesDisk && !options.pretend;
  const bool showsMaps = mode == RunMode::DryRun || mode == RunMode::Survey;
  plan.needsDomain = mode == RunMode::Commit || showsMaps;
  plan.readOnly = !plan.needsRoot;
  plan.readsLog = !showsMaps && !options.restart;
  plan.checksLogDomain = mode == RunMode::Commit;
  return plan;
}

LogPlan planLog(RunMode mode, bool previousLogUsable) {
  switch (mode) {
    case RunMode::DryRun:
    case RunMode::Survey:
      break;
    case RunMode::Report:
      return {LogOpening::None, previousLogUsable ? kExitSuccess : kExitReportRefused};
    case RunMode::Undo:
      if (!previousLogUsable)
        return {LogOpening::None, kExitUndoRefused};
      return {LogOpening::Append, kExitSuccess};
    case RunMode::Commit:
      // Required: a log from another domain, or with a bad header, is cut and begun anew as under
      // --restart, although the message about the domain only recommends that option. The log of
      // the former domain must not stop a machine that has moved to another.
      return {previousLogUsable ? LogOpening::Append : LogOpening::Truncate, kExitSuccess};
  }
  return {LogOpening::None, kExitSuccess};
}
