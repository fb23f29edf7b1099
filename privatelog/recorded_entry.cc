#include "privatelog/recorded_entry.h"

#include <cerrno>
#include <cstring>

#include "entry/pinned_path.h"
#include "services/say.h"

bool isRecorded(const Vouched& vouched,
                uint64_t inode,
                const EntryStatus& found,
                const FileSystemFacts& facts) {
  if (vouched.line.birth == 0 || !facts.keepsBirth)
    return false;
  const NotedFileSystem& noted = vouched.fileSystem;
  const bool isSameFileSystem = noted.fsid != 0 ? noted.fsid == facts.fsid
                                                : noted.sameBoot && noted.device == found.id.device;
  return isSameFileSystem && found.id.inode == inode && found.birth == vouched.line.birth;
}

bool findStatus(const std::string& path, bool follow, EntryStatus& status) {
  if (lookAt(path.c_str(), follow, status))
    return true;
  if (errno != ENAMETOOLONG)
    return false;
  const PinnedPath pinned =
      pinPath(path, follow ? LastLink::Follow : LastLink::Keep, ForeignLinks::Follow);
  status = pinned.status;
  errno = pinned.error;
  return static_cast<bool>(pinned.object);
}

bool checkPartialDone(const PrivateLogRecord& record) {
  const std::string path(record.path);
  EntryStatus status;
  if (findStatus(path, false, status))
    return status.owner != record.oldIds;
  SAY(getLogger("cli.idshift", false), 1, "private_log", Echo::Stderr, "Warning: skipping %s: %s",
      path.c_str(), strerror(errno));
  return false;
}
