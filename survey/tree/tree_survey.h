// Observes a walk and finds what matters to a conversion in the trees.
//
// Reads extended attributes and inode flags of the entries, and nothing else. The id maps are
// finished. An inode counts once, however many names it has; a name with a line feed counts each
// time. The walk only collects ids that are not in the local account files. askZone() then keeps
// those that the zone does not know either.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "entry/file_ids.h"
#include "idmap/new_ids.h"
#include "survey/findings.h"
#include "walk/walk_visitor.h"

struct LocalIds {
  std::set<uint32_t> uids;
  std::set<uint32_t> gids;
};

class TreeSurvey : public WalkVisitor {
 public:
  // `followsLinks` is --follow, under which the walk can meet any inode twice.
  TreeSurvey(LocalIds localIds, bool followsLinks, size_t examplesForEach, Findings& target);

  void beginTop(const std::string& path) override;
  void visit(const FoundEntry& entry, bool followed) override;

  // Asks the zone about the ids collected, and adds those that it does not know to the findings.
  // Throws what orvs::LocalRpcSession throws, but for a miss. Ends early after a signal.
  void askZone();

  // The named directories, as absolute paths.
  const std::vector<std::string>& trees() const { return tops; }

 private:
  void noteOwner(const FoundEntry& entry, const std::optional<OwnerIds>& newIds);
  void noteUnknown(const FoundEntry& entry);
  // Adds ACL entries with ids that change; true when there is one. `names` are the names of the
  // entry's attributes.
  bool noteAcls(const FoundEntry& entry, bool followed, const std::string& names);
  void noteCapability(const FoundEntry& entry, bool followed, bool changes);
  void noteFlags(const FoundEntry& entry, bool followed);

  LocalIds local;
  bool follows;
  Findings& findings;
  Findings unknown;  // ids that are not in the local files; for askZone()
  NewOwners newOwners;
  std::set<DevInode> seen;  // of the inodes that the walk can meet again
  std::vector<std::string> tops;
};
