// The mounts of this machine, and which of them stand in the way of a conversion.
//
// Everything here is judged from the lines of /proc/self/mountinfo alone, so that no mount is asked
// that might not answer. Pure.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Mount {
  int id = 0;
  int parent = 0;
  std::string device;  // "8:1"
  std::string point;
  std::string options;  // of the mount
  std::string type;
  std::string superOptions;  // of the file system

  // An option of either kind, whole or up to its "=".
  bool has(std::string_view option) const;
  std::string valueOf(std::string_view option) const;

  bool isKernelsOwn() const;  // holds the kernel's objects and no files
  bool isReadOnly() const { return has("ro"); }
  bool isRemote() const;
  bool isClosedFuse() const;  // its user alone may enter
  bool hasQuota() const;
};

std::vector<Mount> parseMounts(std::string_view text);

// `path` is `folder` or lies below it.
bool isWithin(std::string_view path, std::string_view folder);

// The mounts that a walk over `trees` meets: those at or below one of them, with `acrossMounts`
// alone, and those that hold them. A mount over another at the same point hides that. What lies
// within one of `excluded` is left out.
std::vector<Mount> mountsOfTrees(const std::vector<Mount>& mounts,
                                 const std::vector<std::string>& trees,
                                 const std::vector<std::string>& excluded,
                                 bool acrossMounts);
