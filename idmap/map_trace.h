// The running commentary of the two passes over the local accounts.
//
// Every message goes to the logger "cli.idshift" at level 1, as a record of the pass (`function`),
// whichever of its steps speaks. With traceMaps (-B) it is printed on standard error too; messages
// about accounts that stay as they are need traceExtra (-+) beside it. Nothing is formatted for a
// message that nobody wants.
#pragma once

#include "services/command_options.h"
#include "services/logger.h"
#include "services/say.h"

struct MapTrace {
  orvs::LoggerPtr logger;
  const char* function;  // the name of the pass; a literal
  const CommandOptions& options;

  Echo usual() const { return stderrIf(options.traceMaps); }
  Echo extra() const { return stderrIf(options.traceMaps && options.traceExtra); }
};

// A message with the condition of its print, `usual` or `extra`:
//   MAP_TRACE(trace, usual, "Groupname [%s]", name);
#define MAP_TRACE(trace, condition, ...)                                                        \
  do {                                                                                          \
    const ::Echo traceEcho = (trace).condition();                                               \
    if (traceEcho != ::Echo::None || ::orvs::logEnabled((trace).logger, 1))                     \
      ::issueMessage((trace).logger, 1, {"cli_idshift", __LINE__, (trace).function}, traceEcho, \
                     __VA_ARGS__);                                                              \
  } while (false)
