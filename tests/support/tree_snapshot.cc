#include "tests/support/tree_snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>

#include "services/unique_fd.h"
#include "tests/support/child.h"

namespace fs = std::filesystem;

namespace {

// As ls prints it.
char typeLetter(mode_t mode) {
  static const std::map<mode_t, char> letters = {{S_IFREG, '-'}, {S_IFDIR, 'd'},  {S_IFLNK, 'l'},
                                                 {S_IFIFO, 'p'}, {S_IFSOCK, 's'}, {S_IFCHR, 'c'},
                                                 {S_IFBLK, 'b'}};
  return letters.at(mode & S_IFMT);
}

EntryState stateOf(const std::string& path) {
  struct stat info {};
  orDie(::lstat(path.c_str(), &info) == 0, path);
  EntryState state{.type = typeLetter(info.st_mode),
                   .mode = info.st_mode & 07777,
                   .uid = info.st_uid,
                   .gid = info.st_gid,
                   .dev = info.st_dev,
                   .ino = info.st_ino,
                   .nlink = info.st_nlink,
                   .size = info.st_size};
  if (state.type == 'l')
    state.contents = fs::read_symlink(path);
  if (state.type == '-') {
    std::ifstream stream(path, std::ios::binary);
    orDie(stream.is_open(), path);
    state.contents.assign(std::istreambuf_iterator<char>(stream), {});
  }
  return state;
}

void addTree(const std::string& place, const std::string& path, TreeSnapshot& snapshot) {
  const EntryState state = stateOf(place);
  snapshot.entries.emplace(path, state);
  if (state.type != 'd')
    return;
  // Each directory by its descriptor: a tree may be deeper than a path can be long.
  const UniqueFd directory(::open(place.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const std::string here = "/proc/self/fd/" + std::to_string(directory.get()) + "/";
  for (const auto& entry : fs::directory_iterator(here)) {
    const std::string name = entry.path().filename();
    addTree(here + name, path == "." ? name : std::string(path).append("/").append(name), snapshot);
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const EntryState& state) {
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", state.mode);
  return stream << state.type << ' ' << mode << ' ' << state.uid << ':' << state.gid << " dev "
                << state.dev << " ino " << state.ino << " links " << state.nlink << " size "
                << state.size << (state.type == 'l' ? " -> " + state.contents : "");
}

std::map<std::string, std::string> TreeSnapshot::owners() const {
  std::map<std::string, std::string> result;
  for (const auto& [path, state] : entries)
    result[path] = std::to_string(state.uid) + ":" + std::to_string(state.gid);
  return result;
}

TreeSnapshot takeSnapshot(const std::string& root) {
  TreeSnapshot snapshot;
  addTree(root, ".", snapshot);
  return snapshot;
}

::testing::AssertionResult sameTree(const TreeSnapshot& before, const TreeSnapshot& after) {
  std::ostringstream report;
  const auto tell = [&report](const char* what, const TreeSnapshot& here,
                              const TreeSnapshot& there) {
    for (const auto& [path, state] : here.entries)
      if (!there.entries.contains(path) || !(there.at(path) == state))
        report << what << path << ": " << state << "\n";
  };
  tell("was ", before, after);
  tell("is  ", after, before);
  if (report.str().empty())
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the tree has changed\n" << report.str();
}
