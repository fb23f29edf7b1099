#include "survey/mount_survey.h"

#include <set>

#include "entry/file_systems.h"
#include "entry/mount_table.h"
#include "walk/visited.h"

namespace {

// The folders that the walk excludes, without their last slash.
std::vector<std::string> excludedFolders() {
  std::vector<std::string> folders;
  for (std::string folder : excludeList) {
    while (folder.size() > 1 && folder.back() == '/')
      folder.pop_back();
    folders.push_back(std::move(folder));
  }
  return folders;
}

// Also true when the file system cannot be asked.
bool keepsBirthTimes(const Mount& mount) {
  PinnedEntry top;
  if (!top.pin(mount.point.c_str(), false))
    return true;
  FileSystems fileSystems;
  return top.status().birth != 0 && fileSystems.of(top).keepsBirth;
}

// False for a mount that binds a single file, as containers have many. Such a mount is no file
// system of its own.
bool isFolder(const Mount& mount) {
  EntryStatus status;
  return lookAt(mount.point.c_str(), false, status) && S_ISDIR(status.mode);
}

// A remote mount, and one closed to root, is reported and not looked at: a look could hang. Birth
// times matter only where a commit can change something.
void judge(const Mount& mount, Findings& findings) {
  const auto add = [&](Kind kind) { findings.add({kind}, mount.point, mount.type); };
  if (mount.isClosedFuse())
    add(Kind::ClosedFuseMount);
  if (mount.isRemote())
    add(Kind::RemoteMount);
  if (mount.isClosedFuse() || mount.isRemote())
    return;
  if (!mount.isReadOnly() && !keepsBirthTimes(mount))
    add(Kind::NoBirthTime);
  if (mount.isReadOnly() && isFolder(mount))
    add(Kind::ReadOnlyMount);
}

}  // namespace

void surveyMounts(std::string_view mountTable,
                  const std::vector<std::string>& trees,
                  bool acrossMounts,
                  Findings& findings) {
  const std::vector<Mount> mounts = parseMounts(mountTable);
  for (const Mount& mount : mountsOfTrees(mounts, trees, excludedFolders(), acrossMounts)) {
    if (!mount.isKernelsOwn())
      judge(mount, findings);
  }
  // A device that is mounted several times has one set of quotas.
  std::set<std::string> devices;
  for (const Mount& mount : mounts) {
    if (mount.hasQuota() && !mount.isRemote() && devices.insert(mount.device).second)
      findings.add({Kind::Quota}, mount.point, mount.type);
  }
}
