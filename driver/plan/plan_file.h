// A plan's file: read whole, written whole.
//
// Reading: "-" is standard input, which must not be a terminal; no more than kLongestPlan bytes are
// taken. Writing: "-" is standard output; any other name by the rules of report paths
// (privatelog/report/report_target.h), onto a regular file or where there is none. The text goes to
// a file beside it, to the disk, and then takes the name, so that nobody ever sees half a plan. An
// existing file's owner and mode stay. Failures are told in the result, never printed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct PlanFileText {
  std::optional<std::string> text;  // nothing: it cannot be read, errno tells why
  bool isTerminal = false;          // nothing was read
};

PlanFileText readPlanFile(const std::string& fileName);

// "", or why it was not written.
std::string writePlanFile(const std::string& fileName, std::string_view text);
