// A message that the user may see is issued twice from one place and one literal: to the logger,
// without a line end, and as a plain print with one.
//
//   SAY(logger, 1, "cli_idshift", Echo::Stderr, "Error: cannot chown: %s: %s", path,
//   strerror(errno));
//
// The print does not depend on the logger; a progress line gives way to it. With Echo::None and the
// level off nothing is evaluated. errno is what it was when the call returns.
#pragma once

#include "services/logger.h"

enum class Echo { None, Stdout, Stderr };

// Echo::Stderr when `condition` holds, else Echo::None.
constexpr Echo stderrIf(bool condition) {
  return condition ? Echo::Stderr : Echo::None;
}

struct SayPlace {
  const char* file;
  int line;
  const char* function;
};

[[gnu::format(printf, 5, 6)]] void issueMessage(
    const orvs::LoggerPtr& logger, int level, SayPlace place, Echo echo, const char* format, ...);

// The usual message of the command: of level 1, by the logger "cli.idshift", which is in scope as
// `logger`.
#define TELL(echo, ...) SAY(logger, 1, "cli_idshift", echo, __VA_ARGS__)

#define SAY(logger, level, file, echo, ...)                                            \
  do {                                                                                 \
    const ::Echo sayEcho = (echo);                                                     \
    if (sayEcho != ::Echo::None || ::orvs::logEnabled(logger, level))                  \
      ::issueMessage(logger, level, {file, __LINE__, __func__}, sayEcho, __VA_ARGS__); \
  } while (false)
