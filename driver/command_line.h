// From argv to the options record.
//
// The parser knows nothing of run modes; combinations that concern modes are refused by run_plan.
// Long names are accepted after one dash too, and any unique prefix will do. Errors are statuses;
// only a bad id range has words of its own, the usage text is up to the caller.
#pragma once

#include <optional>

#include "services/command_options.h"

// Fills `options`, whose strings then point into `argv` (which is reordered: options first).
// Returns 0, or 7 with `options` in an unspecified state. Can be called again in one process.
int ParseCommandLineOpts(int argc, char** argv, CommandOptions& options);

// The text of --id: "5-9" is from 5 to 9, "5" from 5 to the top of the id space, an empty text the
// whole of it. Nothing when the text is not valid. Numbers keep their low 32 bits. Pure.
std::optional<IdRange> parseIdRange(const char* text);
