// Somebody who looks on while a tree is walked, and changes nothing.
//
// visit() is told of each entry that the walk deals with, by the walk's own rules: an entry that is
// left out as remote, excluded or beyond a border is not among them. The current directory is the
// one that holds the entry, and what the arguments refer to is gone after the call.
#pragma once

#include <string>

struct FoundEntry;

class WalkVisitor {
 public:
  WalkVisitor() = default;
  WalkVisitor(const WalkVisitor&) = delete;
  WalkVisitor& operator=(const WalkVisitor&) = delete;
  virtual ~WalkVisitor() = default;

  // A directory that was named; `path` is absolute.
  virtual void beginTop(const std::string& path) = 0;

  // `followed`: the entry is what a link leads to, and was found under the link's name.
  virtual void visit(const FoundEntry& entry, bool followed) = 0;
};
