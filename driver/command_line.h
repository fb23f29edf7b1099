// Parses argv into the options record.
//
// The parser knows no run modes; run_plan refuses combinations that concern modes. Long names are
// also accepted after one dash, and any unique prefix of a name will do. Errors are statuses. Only
// a bad id range is reported here; the caller prints the usage text.
#pragma once

#include <optional>

#include "services/command_options.h"

// Fills `options`, whose strings then point into `argv`. Reorders `argv`: options first. Returns 0,
// or 7 with `options` in an unspecified state. Can be called again in one process.
int ParseCommandLineOpts(int argc, char** argv, CommandOptions& options);

// Parses the argument of --id: "5-9" is from 5 to 9, "5" is from 5 to 4294967295, an empty text is
// the whole range of ids. Nothing when the text is not valid. Numbers keep their low 32 bits. Pure.
std::optional<IdRange> parseIdRange(const char* text);
