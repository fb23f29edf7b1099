#include "driver/run_plan.h"

#include <gtest/gtest.h>

using enum RunMode;
using enum LogOpening;

namespace {

CommandOptions optionsFor(const char* letters) {
  CommandOptions options;
  for (const char* letter = letters; *letter != '\0'; ++letter) {
    options.commit |= *letter == 'c';
    options.undo |= *letter == 'U';
    options.pretend |= *letter == 'F';
    options.restart |= *letter == 'R';
    if (*letter == 'r')
      options.reportFiles = "-";
  }
  return options;
}

}  // namespace

TEST(RunPlan, EveryCombination) {
  // Columns: root, domain, read-only, reads the log, checks its domain.
  const struct {
    const char* letters;
    RunPlan plan;
  } rows[] = {
      {"", {DryRun, false, true, true, false, false}},
      {"R", {DryRun, false, true, true, false, false}},
      {"F", {DryRun, false, true, true, false, false}},
      {"FR", {DryRun, false, true, true, false, false}},
      {"c", {Commit, true, true, false, true, true}},
      {"cR", {Commit, true, true, false, false, true}},
      {"cF", {Commit, false, true, true, true, true}},
      {"cFR", {Commit, false, true, true, false, true}},
      {"cr", {Commit, true, true, false, true, true}},
      {"crR", {Commit, true, true, false, false, true}},
      {"crF", {Commit, false, true, true, true, true}},
      {"crFR", {Commit, false, true, true, false, true}},
      {"r", {Report, false, false, true, true, false}},
      {"rR", {Report, false, false, true, false, false}},
      {"rF", {Report, false, false, true, true, false}},
      {"rFR", {Report, false, false, true, false, false}},
      {"U", {Undo, true, false, false, true, false}},
      {"UR", {Undo, true, false, false, false, false}},
      {"UF", {Undo, false, false, true, true, false}},
      {"UFR", {Undo, false, false, true, false, false}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.letters);
    const std::optional<RunPlan> plan = planRun(optionsFor(row.letters));
    ASSERT_TRUE(plan.has_value());
    EXPECT_EQ(plan->mode, row.plan.mode);
    EXPECT_EQ(plan->needsRoot, row.plan.needsRoot);
    EXPECT_EQ(plan->needsDomain, row.plan.needsDomain);
    EXPECT_EQ(plan->readOnly, row.plan.readOnly);
    EXPECT_EQ(plan->readsLog, row.plan.readsLog);
    EXPECT_EQ(plan->checksLogDomain, row.plan.checksLogDomain);
  }
  for (const char* letters : {"Uc", "Ur", "Ucr"}) {
    for (const char* more : {"", "F", "R", "FR"})
      EXPECT_FALSE(planRun(optionsFor((std::string(letters) + more).c_str()))) << letters << more;
  }
}

TEST(RunPlan, EveryModeWithEveryLog) {
  const struct {
    RunMode mode;
    bool usable;
    LogOpening opening;
    int refusal;
  } rows[] = {
      {DryRun, false, None, 0},  {DryRun, true, None, 0},       // the log is left alone
      {Commit, true, Append, 0}, {Commit, false, Truncate, 0},  // continue, begin anew
      {Report, true, None, 0},   {Report, false, None, 160},
      {Undo, true, Append, 0},   {Undo, false, None, 159},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(row.mode) << row.usable);
    const LogPlan plan = planLog(row.mode, row.usable);
    EXPECT_EQ(plan.opening, row.opening);
    EXPECT_EQ(plan.refusal, row.refusal);
  }
}
