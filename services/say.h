// A message for the user goes two ways from one place and one literal: to the logger, without a
// line end, and to standard output or standard error, with one.
//
//   SAY(logger, 1, "cli_idshift", Echo::Stderr, "Error: cannot chown: %s: %s", path,
//   strerror(errno));
//
// The print does not depend on the logger, and erases a progress line first. With Echo::None and
// the level off the arguments are not evaluated. The call keeps errno.
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

// The usual message of the command: level 1, logger "cli.idshift". The caller has that logger in a
// variable `logger`.
#define TELL(echo, ...) SAY(logger, 1, "cli_idshift", echo, __VA_ARGS__)

#define SAY(logger, level, file, echo, ...)                                            \
  do {                                                                                 \
    const ::Echo sayEcho = (echo);                                                     \
    if (sayEcho != ::Echo::None || ::orvs::logEnabled(logger, level))                  \
      ::issueMessage(logger, level, {file, __LINE__, __func__}, sayEcho, __VA_ARGS__); \
  } while (false)
