// The trace of the two passes over the local accounts.
//
// Every message goes to the logger "cli.idshift" at level 1, under the name of the pass
// (`function`), whichever of its functions writes it. With traceMaps (-B) the message is printed on
// standard error too. Messages about accounts that keep their ids need traceExtra (-+) as well. A
// message that nobody wants is not formatted.
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

// Writes a message; `condition` is `usual` or `extra`:
//
//   MAP_TRACE(trace, usual, "Groupname [%s]", name);
#define MAP_TRACE(trace, condition, ...)                                                        \
  do {                                                                                          \
    const ::Echo traceEcho = (trace).condition();                                               \
    if (traceEcho != ::Echo::None || ::orvs::logEnabled((trace).logger, 1))                     \
      ::issueMessage((trace).logger, 1, {"cli_idshift", __LINE__, (trace).function}, traceEcho, \
                     __VA_ARGS__);                                                              \
  } while (false)
