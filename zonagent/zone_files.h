// The backend that answers from plain files: DIR/passwd, DIR/group and, if there is one,
// DIR/aliases. Their format is told in zone_table.h.
//
// A lookup looks at the files first and reads them anew when one has changed. A bad file is refused
// with file and line, in the log and on standard error, and the last good zone stays in force; the
// same bad version is reported once. The constructor throws AgentError when there is no good zone
// to begin with. Run as root, a file or folder that others can change is bad as well.
//
// A version with fewer accounts than the one in force is probably being written at this moment
// ("getent passwd > DIR/passwd"), whether in place or to be put there again, and missing accounts
// do harm. It rests: the one in force answers until the files have changed again or are ten seconds
// old. After a version that was not taken the files are left alone for a tenth of a second. Used by
// one thread.
#pragma once

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <ctime>
#include <optional>
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

// The three files of a zone: passwd, group, aliases.
struct ZoneVersion {
  std::array<FileStamp, 3> stamps;
  std::array<size_t, 3> accounts = {};  // lines that count, of each
};

// How long `next` has to rest before it may take the place of `good`: until each file that lost
// accounts is ten seconds old. A file from the future does not rest.
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
  std::optional<Resting> resting;  // that version, if it rests
  Clock::time_point lookAgain;
};

}  // namespace zonagent
