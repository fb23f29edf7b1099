// The updates of account files that a run is about to make, as the log's index keeps them.
//
// A plan is laid down, on the disk, before the first account is touched, so that the next run knows
// what is left to do whatever ended this one: which accounts still have their old ids, and which
// update was made and has no line in the log yet. FORMAT.md, "Plans", tells its life.
//
// A plan is a row of records (for each update one with its ids and pieces of its name) and behind
// them one that says that the row is whole. Without that one they count for nothing.
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
  uint64_t position = 0;  // in the index, of the record that makes it whole
  uint64_t section = 0;   // of the section's record; 0 until the section is begun
  std::string date;       // of the section; empty while there is none
  std::vector<PlannedUpdate> updates;
};

// The records of `updates`, and the one that makes them whole. `plan.first` is where they are going
// to stand; the checksum is set here.
std::string formatPlan(std::span<const PlannedUpdate> updates, IndexPlan plan, uint64_t seed);

// Reads the plan whose last record is at `position`. Nothing where there is none, or it is damaged.
// `header` is that record.
std::optional<AccountPlan> readPlan(IndexReader& index, uint64_t position, IndexPlan& header);
