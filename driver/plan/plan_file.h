// Reads a plan's file whole, and writes one whole.
//
// Reading: "-" is standard input, which must not be a terminal. At most about kLongestPlan bytes
// are read.
//
// Writing: "-" is standard output. Any other name follows the rules of report paths
// (privatelog/report/report_target.h) and may be a regular file or new. The text goes to a new file
// beside it, is synced, and takes the name, so nobody ever sees half a plan. Owner and mode of an
// existing file stay. Failures are results; nothing is printed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct PlanFileText {
  std::optional<std::string> text;  // nothing: not read; errno tells why, or isTerminal
  bool isTerminal = false;
};

PlanFileText readPlanFile(const std::string& fileName);

// Empty, or why the plan was not written.
std::string writePlanFile(const std::string& fileName, std::string_view text);
