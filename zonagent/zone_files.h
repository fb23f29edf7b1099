// The backend that answers from plain files: DIR/passwd, DIR/group and, if there is one,
// DIR/aliases. zone_table.h has their format.
//
// Each lookup first compares the files' stamps with those last seen and reads all files again when
// one has changed. A bad file is reported once, with its name and line, and the last good zone
// stays in force. For root, a file or folder that others can change is bad, too. The constructor
// throws AgentError when the first zone is bad.
//
// A version with fewer accounts than the zone in force is perhaps half written ("getent passwd >
// DIR/passwd"), and each missing account would count as absent. Such a version waits: the zone in
// force answers until the files change again or the shrunken ones are ten seconds old. After a
// version that was refused or has to wait, changed files are read again after a tenth of a second
// at the earliest. For one thread only.
#pragma once

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>

#include "zonagent/zone_table.h"

namespace zonagent {

// Two versions of a file differ in at least one of these.
struct FileStamp {
  bool present = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified = {};
  timespec changed = {};

  bool operator==(const FileStamp& other) const;
};

// The three files of a zone: passwd, group, aliases.
struct ZoneVersion {
  std::array<FileStamp, 3> stamps;
  std::array<size_t, 3> accounts = {};  // how many users, groups and aliases
};

// How long `next` has to wait before it may replace `good`: until each file that lost accounts is
// ten seconds old. A file whose time lies in the future need not wait.
std::chrono::nanoseconds restOf(const ZoneVersion& good,
                                const ZoneVersion& next,
                                const timespec& now);

class ZoneFiles : public ZoneBackend {
 public:
  explicit ZoneFiles(std::string directory);

  Answer find(const orvs::wire::Question& question) override;
  void reload() override;
  std::string sources() const override;
  std::string summary() const override;

 private:
  using Clock = std::chrono::steady_clock;
  using Stamps = std::array<FileStamp, 3>;
  struct Resting {
    ZoneTable zone;
    Clock::time_point until;
  };

  std::string pathOf(size_t file) const;
  Stamps look() const;
  ZoneTable read() const;
  void follow();
  void consider(const Stamps& stamps);
  void take(ZoneTable next, const Stamps& stamps);
  void refuse(const AgentError& error);

  std::string directory;
  ZoneTable zone;
  Stamps inForce;                  // of the zone that answers
  Stamps seen;                     // of the last version that was read
  std::optional<Resting> resting;  // the last version that was read, if it has to wait
  Clock::time_point lookAgain;     // changed files are not read before
};

}  // namespace zonagent
