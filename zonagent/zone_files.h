// The backend that answers from plain files: DIR/passwd, DIR/group and, if there is one,
// DIR/aliases. Their format is told in zone_table.h.
//
// A lookup looks at the files first and reads them anew when one has changed. A bad file is refused
// with file and line, in the log and on standard error, and the last good zone stays in force; the
// same bad version is reported once. The constructor throws AgentError when there is no good zone
// to begin with.
//
// A file that was cut down in place a moment ago is probably being written ("getent passwd >
// DIR/passwd"), so its predecessor stays in force until it has grown again or rested for a second.
// Used by one thread.
#pragma once

#include <sys/stat.h>

#include <array>
#include <ctime>
#include <string>

#include "zonagent/zone_table.h"

namespace zonagent {

// What tells one version of a file from another.
struct FileStamp {
  bool present = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified = {};
  timespec changed = {};

  bool operator==(const FileStamp& other) const;
};

// Whether `current` looks like `good` in the middle of being written anew.
bool beingRewritten(const FileStamp& good, const FileStamp& current, const timespec& now);

class ZoneFiles : public ZoneBackend {
 public:
  explicit ZoneFiles(std::string directory);

  Answer find(const orvs::wire::Question& question) override;
  bool mayBlock() const override { return false; }
  void reload() override;
  std::string sources() const override;
  Online online() override { return Online::NotAsked; }

 private:
  using Stamps = std::array<FileStamp, 3>;  // passwd, group, aliases

  std::string pathOf(size_t file) const;
  Stamps look() const;
  ZoneTable read() const;
  void readOrKeep(const Stamps& stamps);

  std::string directory;
  ZoneTable zone;
  Stamps inForce;  // of the zone that answers
  Stamps seen;     // of the last try
};

}  // namespace zonagent
