// The plan of account updates that a run is about to make, as the log's index keeps it.
//
// A plan is written and synced before the first account is changed. Whatever ends this run, the
// next one can then tell which updates are still to be made, and which were made but have no line
// in the log yet. FORMAT.md, "Plans", describes what each run does with a plan.
//
// A plan is a row of records: for each update one with its ids, and as many as its name needs. A
// last record says that the row is complete. Without that record the others are ignored.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "privatelog/index_reader.h"
#include "privatelog/index_record.h"

struct PlannedUpdate {
  bool isGroup = false;
  std::string name;
  OwnerIds oldIds;  // of a group the gid alone
  OwnerIds newIds;

  bool operator==(const PlannedUpdate&) const = default;
};

struct AccountPlan {
  uint64_t position = 0;  // in the index, of the record that completes it
  uint64_t section = 0;   // of the section's record; 0 until the section is begun
  std::string date;       // of the section; empty while there is none
  std::vector<PlannedUpdate> updates;
};

// The records of `updates` and the one that completes them. `plan.first` is the position at which
// they will be written; this function sets the checksum.
std::string formatPlan(std::span<const PlannedUpdate> updates, IndexPlan plan, uint64_t seed);

// Reads the plan whose last record is at `position`; `header` becomes that record. Nothing when no
// plan is there or it is damaged.
std::optional<AccountPlan> readPlan(IndexReader& index, uint64_t position, IndexPlan& header);
