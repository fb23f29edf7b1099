#include "driver/run_plan.h"

#include <gtest/gtest.h>

using enum RunMode;

namespace {

CommandOptions optionsFor(const std::string& letters) {
  const auto has = [&letters](char letter) { return letters.find(letter) != letters.npos; };
  CommandOptions options;
  options.commit = has('c');
  options.undo = has('U');
  options.pretend = has('F');
  options.restart = has('R');
  options.reportFiles = has('r') ? "-" : nullptr;
  return options;
}

}  // namespace

TEST(RunPlan, Combinations) {
  // Columns: root, domain, read-only, reads the log, checks its domain.
  const struct {
    const char* letters;
    RunPlan plan;
  } rows[] = {
      {"", {DryRun, false, true, true, false, false}},
      {"c", {Commit, true, true, false, true, true}},
      {"cR", {Commit, true, true, false, false, true}},
      {"cF", {Commit, false, true, true, true, true}},
      {"crFR", {Commit, false, true, true, false, true}},
      {"r", {Report, false, false, true, true, false}},
      {"U", {Undo, true, false, false, true, false}},
      {"UF", {Undo, false, false, true, true, false}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(planRun(optionsFor(row.letters)), row.plan) << row.letters;
  for (const char* letters : {"Uc", "Ur", "UcrFR"})
    EXPECT_EQ(planRun(optionsFor(letters)), std::nullopt) << letters;
}
