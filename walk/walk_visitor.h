// An observer of a walk, which changes nothing.
//
// visit() is called for each entry that the walk deals with; not for entries that are remote, lie
// in an excluded directory or behind a mount point that --xdev does not cross, nor for those that
// the log knows. The current directory is the one that holds the entry. The arguments are valid
// during the call alone.
#pragma once

#include <string>

struct FoundEntry;

class WalkVisitor {
 public:
  WalkVisitor() = default;
  WalkVisitor(const WalkVisitor&) = delete;
  WalkVisitor& operator=(const WalkVisitor&) = delete;
  virtual ~WalkVisitor() = default;

  // Called before the walk of a top directory; `path` is absolute.
  virtual void beginTop(const std::string& path) = 0;

  // `followed`: the entry is the target of a link, found under the name of the link.
  virtual void visit(const FoundEntry& entry, bool followed) = 0;
};
