#include "driver/plan/plan_differences.h"

#include <algorithm>
#include <tuple>

#include "driver/plan/plan_text.h"

namespace {

bool isSame(const ConflictRecord& a, const ConflictRecord& b) {
  const auto all = [](const ConflictRecord& record) {
    return std::tie(record.localName, record.localId, record.zoneName, record.zoneId,
                    record.resolution, record.newId);
  };
  return all(a) == all(b);
}

bool isBefore(const PlannedUpdate& a, const PlannedUpdate& b) {
  const auto all = [](const PlannedUpdate& update) {
    return std::tie(update.isGroup, update.name, update.oldIds.uid, update.oldIds.gid,
                    update.newIds.uid, update.newIds.gid);
  };
  return all(a) < all(b);
}

// The options that differ, as words for the end of each line; empty when none does.
std::string hintOf(const PlanOptions& approved, const PlanOptions& present) {
  std::string others;
  const auto note = [&others](bool isSameOption, const char* name) {
    if (!isSameOption)
      others += (others.empty() ? "" : ", ") + std::string(name);
  };
  note(approved.range.low == present.range.low && approved.range.high == present.range.high,
       "--id");
  note(approved.userMap == present.userMap, "--usermap");
  note(approved.groupMap == present.groupMap, "--groupmap");
  return others.empty() ? "" : " (approved with another " + others + ")";
}

// An approved row and a present row with the same id must be equal. A present row without an
// approved one is always a difference. An approved row without a present one is a difference only
// if it was not made: after a part of the conversion its accounts have their new ids, and their
// conflicts are gone.
class Comparison {
 public:
  Comparison(const ApprovedPlan& itsApproved,
             const ApprovedPlan& itsPresent,
             const BorneIds& itsBorne)
      : approved(itsApproved),
        present(itsPresent),
        borne(itsBorne),
        hint(hintOf(itsApproved.options, itsPresent.options)) {}

  std::vector<std::string> lines() && {
    if (approved.domain != present.domain)
      add("domain: approved " + shownText(approved.domain) + ", now " + shownText(present.domain));
    compare("user", approved.users, present.users, false);
    compare("group", approved.groups, present.groups, true);
    compareAccounts();
    return std::move(found);
  }

 private:
  void add(const std::string& line) { found.push_back(line + hint); }

  template <class Value, class Test>
  bool anyBearer(bool isGroup, const std::string& name, const Value& wanted, Test&& test) const {
    const auto [begin, end] = borne.equal_range({isGroup, name});
    return std::any_of(begin, end, [&](const auto& entry) { return test(entry.second, wanted); });
  }

  bool isMade(const PlannedUpdate& update) const {
    return anyBearer(update.isGroup, update.name, update.newIds,
                     [](OwnerIds ids, OwnerIds wanted) { return ids == wanted; });
  }

  bool isMade(const ConflictRecord& record, bool isGroup) const {
    if (isGroup && record.localName.empty())
      return isMadeByUsers(record);
    return anyBearer(isGroup, record.localName, record.newId, [&](OwnerIds ids, uint32_t wanted) {
      return (isGroup ? ids.gid : ids.uid) == wanted;
    });
  }

  // A gid that no local group has. Made, when at least one approved update moves a user's primary
  // group from this gid, and all such updates were made.
  bool isMadeByUsers(const ConflictRecord& record) const {
    bool isAny = false;
    for (const PlannedUpdate& update : approved.accounts) {
      if (update.isGroup || update.oldIds.gid != record.localId ||
          update.newIds.gid != record.newId)
        continue;
      if (!isMade(update))
        return false;
      isAny = true;
    }
    return isAny;
  }

  void compare(const std::string& kind,
               const ConflictMap& wanted,
               const ConflictMap& actual,
               bool isGroup) {
    for (const auto& [id, record] : wanted) {
      const auto now = actual.find(id);
      if (now != actual.end() && !isSame(record, now->second))
        add(kind + ": approved " + shownConflict(record) + ", now " + shownConflict(now->second));
      else if (now == actual.end() && !isMade(record, isGroup))
        add(kind + ": approved " + shownConflict(record) + ", now no conflict");
    }
    for (const auto& [id, record] : actual) {
      if (!wanted.contains(id))
        add(kind + ": not approved " + shownConflict(record));
    }
  }

  void compareAccounts() {
    std::vector<PlannedUpdate> wanted = approved.accounts;
    std::vector<PlannedUpdate> actual = present.accounts;
    std::sort(wanted.begin(), wanted.end(), isBefore);
    std::sort(actual.begin(), actual.end(), isBefore);
    std::vector<PlannedUpdate> gone;
    std::vector<PlannedUpdate> added;
    std::set_difference(wanted.begin(), wanted.end(), actual.begin(), actual.end(),
                        std::back_inserter(gone), isBefore);
    std::set_difference(actual.begin(), actual.end(), wanted.begin(), wanted.end(),
                        std::back_inserter(added), isBefore);
    for (const PlannedUpdate& update : gone) {
      if (!isMade(update))
        add("account: approved " + shownAccount(update) + ", now no update");
    }
    for (const PlannedUpdate& update : added)
      add("account: not approved " + shownAccount(update));
  }

  const ApprovedPlan& approved;
  const ApprovedPlan& present;
  const BorneIds& borne;
  const std::string hint;
  std::vector<std::string> found;
};

}  // namespace

std::vector<std::string> differencesOf(const ApprovedPlan& approved,
                                       const ApprovedPlan& present,
                                       const BorneIds& borne) {
  return Comparison(approved, present, borne).lines();
}
