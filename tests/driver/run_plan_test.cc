#include "driver/run_plan.h"

#include <gtest/gtest.h>

using enum RunMode;

TEST(RunPlan, Combinations) {
  // Columns: root, domain, read-only, reads the log, checks its domain.
  const struct {
    CommandOptions options;
    std::optional<RunPlan> plan;
  } rows[] = {
      {{}, {{DryRun, false, true, true, false, false}}},
      {{.commit = true}, {{Commit, true, true, false, true, true}}},
      {{.commit = true, .restart = true}, {{Commit, true, true, false, false, true}}},
      {{.commit = true, .reportFiles = "-", .pretend = true},
       {{Commit, false, true, true, true, true}}},
      {{.reportFiles = "-"}, {{Report, false, false, true, true, false}}},
      {{.undo = true}, {{Undo, true, false, false, true, false}}},
      {{.undo = true, .pretend = true}, {{Undo, false, false, true, true, false}}},
      {{.restart = true, .survey = true, .json = true},
       {{Survey, false, true, true, false, false}}},
      {{.commit = true, .survey = true}, std::nullopt},
      {{.undo = true, .survey = true}, std::nullopt},
      {{.reportFiles = "-", .survey = true}, std::nullopt},
      {{.json = true}, std::nullopt},
      {{.reportFiles = "-", .json = true}, {{Report, false, false, true, true, false}}},
      {{.planFile = "-", .expectFile = "p"}, {{DryRun, false, true, true, false, false}}},
      {{.commit = true, .reportFiles = "-", .expectFile = "p"},
       {{Commit, true, true, false, true, true}}},
      {{.commit = true, .planFile = "-"}, std::nullopt},
      {{.survey = true, .planFile = "-"}, std::nullopt},
      {{.reportFiles = "-", .expectFile = "p"}, std::nullopt},
      {{.undo = true, .expectFile = "p"}, std::nullopt},
      {{.survey = true, .expectFile = "p"}, std::nullopt},
      {{.commit = true, .undo = true}, std::nullopt},
      {{.reportFiles = "-", .undo = true}, std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(planRun(row.options), row.plan) << "row " << &row - rows;
}
