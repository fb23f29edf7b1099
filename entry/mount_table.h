// The mounts of this machine, and the properties of a mount that matter to a conversion.
//
// Everything is judged from the text of /proc/self/mountinfo alone: a call to a mount might hang.
// Pure.
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

  // Whether either list has the option; the part from a "=" on is ignored.
  bool has(std::string_view option) const;
  // The value of an option of the file system; empty when the option is missing.
  std::string valueOf(std::string_view option) const;

  bool isKernelsOwn() const;  // holds kernel objects, not files
  bool isReadOnly() const { return has("ro"); }
  bool isRemote() const;
  bool isClosedFuse() const;  // only the user who mounted it may enter
  bool hasQuota() const;
};

std::vector<Mount> parseMounts(std::string_view text);

// `path` is `folder` or lies below it.
bool isWithin(std::string_view path, std::string_view folder);

// The mounts that a walk over `trees` meets: those that hold a tree, and with `acrossMounts` also
// those at or below a tree. Of these, mounts within a folder of `excluded` are left out, and those
// hidden by another mount at the same mount point.
std::vector<Mount> mountsOfTrees(const std::vector<Mount>& mounts,
                                 const std::vector<std::string>& trees,
                                 const std::vector<std::string>& excluded,
                                 bool acrossMounts);
