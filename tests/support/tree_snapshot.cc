#include "tests/support/tree_snapshot.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <memory>
#include <ostream>
#include <sstream>
#include <string_view>

#include "services/unique_fd.h"

namespace {

[[noreturn]] void die(const std::string& path) {
  std::fprintf(stderr, "test support: snapshot of %s: %s\n", path.c_str(), std::strerror(errno));
  std::abort();
}

// As ls prints it.
char typeLetter(mode_t mode) {
  static const std::map<mode_t, char> letters = {{S_IFREG, '-'}, {S_IFDIR, 'd'},  {S_IFLNK, 'l'},
                                                 {S_IFIFO, 'p'}, {S_IFSOCK, 's'}, {S_IFCHR, 'c'},
                                                 {S_IFBLK, 'b'}};
  return letters.at(mode & S_IFMT);
}

std::string contentsOf(int dirFd, const char* name, const std::string& path) {
  const UniqueFd file(::openat(dirFd, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  std::string contents;
  std::array<char, 65536> buffer{};
  ssize_t count = 0;
  while ((count = ::read(file.get(), buffer.data(), buffer.size())) > 0)
    contents.append(buffer.data(), static_cast<size_t>(count));
  if (count < 0)
    die(path);
  return contents;
}

EntryState stateOf(int dirFd, const char* name, const std::string& path) {
  struct stat info {};
  if (::fstatat(dirFd, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
    die(path);
  EntryState state{.type = typeLetter(info.st_mode),
                   .mode = info.st_mode & 07777,
                   .uid = info.st_uid,
                   .gid = info.st_gid,
                   .dev = info.st_dev,
                   .ino = info.st_ino,
                   .nlink = info.st_nlink,
                   .size = info.st_size,
                   .target = {},
                   .contents = {}};
  if (state.type == 'l') {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(dirFd, name, target.data(), target.size());
    if (length < 0)
      die(path);
    state.target.assign(target.data(), static_cast<size_t>(length));
  }
  if (state.type == '-')
    state.contents = contentsOf(dirFd, name, path);
  return state;
}

void addTree(int dirFd, const char* name, const std::string& path, TreeSnapshot& snapshot) {
  const EntryState state = stateOf(dirFd, name, path);
  snapshot.entries.emplace(path, state);
  if (state.type != 'd')
    return;
  UniqueFd fd(::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd)
    die(path);
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::fdopendir(fd.get()), ::closedir);
  if (!dir)
    die(path);
  const int openFd = fd.release();  // the stream's from here on
  const std::string prefix = path == "." ? "" : path + "/";
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view child = entry->d_name;
    if (child != "." && child != "..")
      addTree(openFd, entry->d_name, std::string(prefix).append(child), snapshot);
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const EntryState& state) {
  std::ostringstream text;  // keeps the manipulators away from the caller's stream
  text << state.type << ' ' << std::oct << std::setw(4) << std::setfill('0') << state.mode
       << std::dec << ' ' << state.uid << ':' << state.gid << " dev " << state.dev << " ino "
       << state.ino << " links " << state.nlink << " size " << state.size;
  if (state.type == 'l')
    text << " -> " << state.target;
  return stream << text.str();
}

std::map<std::string, std::string> TreeSnapshot::owners() const {
  std::map<std::string, std::string> result;
  for (const auto& [path, state] : entries)
    result[path] = std::to_string(state.uid) + ":" + std::to_string(state.gid);
  return result;
}

TreeSnapshot takeSnapshot(const std::string& root) {
  TreeSnapshot snapshot;
  const UniqueFd top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!top)
    die(root);
  addTree(top.get(), ".", ".", snapshot);
  return snapshot;
}

::testing::AssertionResult sameTree(const TreeSnapshot& before, const TreeSnapshot& after) {
  std::ostringstream report;
  for (const auto& [path, state] : before.entries) {
    const auto found = after.entries.find(path);
    if (found == after.entries.end())
      report << path << ": gone, was " << state << "\n";
    else if (!(found->second == state))
      report << path << ": was " << state << "\n" << path << ": is  " << found->second << "\n";
  }
  for (const auto& [path, state] : after.entries)
    if (!before.entries.contains(path))
      report << path << ": new, is " << state << "\n";
  if (report.str().empty())
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "the tree has changed\n" << report.str();
}
