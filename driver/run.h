// What every step of one run of idshift works with, and two questions that each may ask.
//
// A step returns 0 when the run goes on, otherwise the status that ends it. A step that a signal
// interrupted returns 0; main2 ends the run.
#pragma once

#include "accountdb/passwdDB.h"
#include "driver/run_plan.h"
#include "services/command_options.h"
#include "services/interrupt.h"
#include "services/logger.h"
#include "services/properties.h"
#include "services/setting_keys.h"

// Lives as long as the run, and so does everything that it refers to.
struct Run {
  const orvs::LoggerPtr& logger;
  const CommandOptions& options;
  const RunPlan& plan;
  orvs::PasswdDB& passwdDB;
  orvs::GroupDB& groupDB;
};

inline bool interrupted() {
  return interrupt::pending() != 0;
}

inline bool isStrict() {
  return orvs::Props(false, false).getBool(orvs::PN::IDSHIFT_STRICT, false);
}
