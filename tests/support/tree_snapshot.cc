#include "tests/support/tree_snapshot.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <filesystem>
#include <ostream>
#include <sstream>

#include "tests/support/files.h"

namespace fs = std::filesystem;

namespace {

std::string attributeOf(const std::string& path, const char* name) {
  static std::array<char, 65536> value;
  const ssize_t length = lgetxattr(path.c_str(), name, value.data(), value.size());
  return {value.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

EntryState stateOf(const std::string& path) {
  struct stat info {};
  orDie(::lstat(path.c_str(), &info) == 0, path);
  EntryState state{.type = info.st_mode & S_IFMT,
                   .mode = info.st_mode & 07777,
                   .uid = info.st_uid,
                   .gid = info.st_gid,
                   .dev = info.st_dev,
                   .ino = info.st_ino,
                   .nlink = info.st_nlink,
                   .size = info.st_size};
  if (S_ISLNK(info.st_mode))
    state.contents = fs::read_symlink(path);
  state.acls = attributeOf(path, "system.posix_acl_access") + "|" +
               attributeOf(path, "system.posix_acl_default");
  state.capability = attributeOf(path, "security.capability");
  if (S_ISREG(info.st_mode))
    state.contents = readFile(path);
  return state;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const EntryState& state) {
  return stream << std::oct << state.type << " mode " << state.mode << std::dec << " owner "
                << state.uid << ':' << state.gid << " dev " << state.dev << " ino " << state.ino
                << " links " << state.nlink << " size " << state.size;
}

std::map<std::string, std::string> TreeSnapshot::owners() const {
  std::map<std::string, std::string> result;
  for (const auto& [path, state] : entries)
    result[path] = std::to_string(state.uid) + ":" + std::to_string(state.gid);
  return result;
}

TreeSnapshot takeSnapshot(const std::string& root) {
  TreeSnapshot snapshot{{{".", stateOf(root)}}};
  for (const auto& entry : fs::recursive_directory_iterator(root))
    snapshot.entries.emplace(entry.path().string().substr(root.size() + 1), stateOf(entry.path()));
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
