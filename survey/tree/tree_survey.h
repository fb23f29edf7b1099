// What the trees hold that matters to a conversion. Looks on while they are walked.
//
// Reads extended attributes and inode flags of the entries, and nothing else; the id maps are
// finished. An inode counts once, however many names it has. Ids that are not in the local account
// files are only collected during the walk; askZone() then keeps those that the zone does not know
// either.
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
  // `followsLinks` is --follow: then any inode can be met twice.
  TreeSurvey(LocalIds localIds, bool followsLinks, size_t examplesForEach, Findings& target);

  void beginTop(const std::string& path) override;
  void visit(const FoundEntry& entry, bool followed) override;

  // Throws what orvs::LocalRpcSession throws, a miss excepted. Ends early after a signal.
  void askZone();

  // The directories that were named, as walked.
  const std::vector<std::string>& trees() const { return tops; }

 private:
  void noteOwner(const FoundEntry& entry, const std::optional<OwnerIds>& newIds);
  void noteUnknown(const FoundEntry& entry);
  // Whether an ACL of the entry names ids that change. `names` are those of its attributes.
  bool noteAcls(const FoundEntry& entry, bool followed, const std::string& names);
  void noteCapability(const FoundEntry& entry, bool followed, bool changes);
  void noteFlags(const FoundEntry& entry, bool followed);

  LocalIds local;
  bool follows;
  Findings& findings;
  Findings unknown;  // not in the local files; the zone is still to be asked
  NewOwners newOwners;
  std::set<DevInode> seen;  // inodes that can be met again
  std::vector<std::string> tops;
};
