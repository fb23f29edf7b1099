#include "driver/conflict_summary.h"

#include <array>
#include <cstdio>
#include <string>

#include "idmap/id_maps.h"
#include "services/say.h"

namespace {

// Required: a cell is cut after 79 bytes, so that no name makes a row longer than the programs that
// read these tables expect.
using Cell = std::array<char, 80>;

unsigned long wide(uint32_t id) {
  return id;
}

const char* resolutionText(int32_t resolution) {
  switch (resolution) {
    case RESOLUTION_USE_ZONE_ID:
      return "Use zone ID";
    case RESOLUTION_ASSIGN_NEW_ID:
      return "Assign new ID";
    default:
      return "None";
  }
}

Cell localCell(const ConflictRecord& record, const NameMap& nameMap) {
  Cell cell = {};
  const unsigned long id = wide(record.localId);
  const char* name = record.localName.c_str();
  const auto mapped = nameMap.find(record.localName);
  if (mapped != nameMap.end())
    snprintf(cell.data(), cell.size(), "%lu(%s/%s)", id, name, mapped->second.c_str());
  else
    snprintf(cell.data(), cell.size(), "%lu(%s)", id, name);
  return cell;
}

Cell zoneCell(const ConflictRecord& record) {
  Cell cell = {};
  snprintf(cell.data(), cell.size(), "%lu(%s)", wide(record.zoneId), record.zoneName.c_str());
  return cell;
}

Cell newIdCell(const ConflictRecord& record) {
  Cell cell = {};
  if (record.resolution == RESOLUTION_USE_ZONE_ID || record.resolution == RESOLUTION_ASSIGN_NEW_ID)
    snprintf(cell.data(), cell.size(), "%lu", wide(record.newId));
  return cell;
}

// A local name that is in `nameMap` is shown with its zone name.
std::string conflictRow(const ConflictRecord& record, const NameMap& nameMap) {
  char row[4 * sizeof(Cell)];
  snprintf(row, sizeof row, "%-32s%-24s%-16s%-8s", localCell(record, nameMap).data(),
           zoneCell(record).data(), resolutionText(record.resolution), newIdCell(record).data());
  return row;
}

const char* countWords(const IdMap& ids) {
  return ids.size() == 1 ? "conflict was" : "conflicts were";
}

unsigned countOf(const IdMap& ids) {
  return static_cast<unsigned>(ids.size());
}

void printRows(const orvs::LoggerPtr& logger,
               const ConflictMap& conflicts,
               const NameMap& nameMap) {
  TELL(Echo::Stdout,
       "------------------------------  ----------------------  --------------  ------");
  for (const auto& [oldId, record] : conflicts)
    TELL(Echo::Stdout, "%s", conflictRow(record, nameMap).c_str());
}

void printUserTable(const orvs::LoggerPtr& logger) {
  if (uidMap.empty()) {
    TELL(Echo::Stdout, "No user-id conflicts were found.");
  } else {
    TELL(Echo::Stdout, "%u user-id %s found.", countOf(uidMap), countWords(uidMap));
    TELL(Echo::Stdout,
         "Local UID(Name/Map)             Zone UID(Name)          Resolution      ID Map");
    printRows(logger, userConflicts, userNameMap);
  }
  TELL(Echo::Stdout, "%s", "");
}

void printGroupTable(const orvs::LoggerPtr& logger) {
  if (gidMap.empty()) {
    TELL(Echo::Stdout, "No group-id conflicts were found.");
  } else {
    TELL(Echo::Stdout, "%u group-id %s found.", countOf(gidMap), countWords(gidMap));
    TELL(Echo::Stdout,
         "Local GID(Name/Map)             Zone GID(Name)          Resolution      ID Map");
    printRows(logger, groupConflicts, groupNameMap);
  }
  TELL(Echo::Stdout, "%s", "");
}

}  // namespace

void printConflictSummary(const orvs::LoggerPtr& logger) {
  printUserTable(logger);
  printGroupTable(logger);
}
