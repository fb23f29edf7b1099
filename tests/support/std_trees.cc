#include "tests/support/std_trees.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <utility>

#include "services/unique_fd.h"

namespace {

constexpr uid_t kAnn = 500;
constexpr uid_t kBob = 501;
constexpr uid_t kCid = 502;
constexpr gid_t kUsers = 100;
constexpr gid_t kBobs = 101;

void check(bool done, const std::string& path) {
  if (done)
    return;
  std::fprintf(stderr, "test support: tree entry %s: %s\n", path.c_str(), std::strerror(errno));
  std::abort();
}

UniqueFd openTop(const std::string& root) {
  std::filesystem::create_directories(root);
  UniqueFd top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  check(static_cast<bool>(top), root);
  return top;
}

bool makeFile(int top, const TreeEntry& entry) {
  const UniqueFd file(
      ::openat(top, entry.path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  const auto size = static_cast<ssize_t>(entry.target.size());
  return file && ::write(file.get(), entry.target.data(), entry.target.size()) == size;
}

bool makeEntry(int top, const TreeEntry& entry) {
  const char* path = entry.path.c_str();
  switch (entry.type) {
    case '-':
      return makeFile(top, entry);
    case 'd':
      return ::mkdirat(top, path, 0700) == 0;
    case 'l':
      return ::symlinkat(entry.target.c_str(), top, path) == 0;
    case 'h':
      return ::linkat(top, entry.target.c_str(), top, path, 0) == 0;
    case 'p':
      return ::mkfifoat(top, path, 0600) == 0;
    case 's':
      return ::mknodat(top, path, S_IFSOCK | 0600, 0) == 0;
    case 'c':  // the null device's numbers: harmless to whoever opens it
      return ::mknodat(top, path, S_IFCHR | 0600, ::makedev(1, 3)) == 0;
    default:
      errno = EINVAL;
      return false;
  }
}

void addEntry(int top, const TreeEntry& entry) {
  const char* path = entry.path.c_str();
  check(makeEntry(top, entry), entry.path);
  if (entry.type == 'h')
    return;
  check(::fchownat(top, path, entry.uid, entry.gid, AT_SYMLINK_NOFOLLOW) == 0, entry.path);
  // After the owner, because a change of owner clears the set-id bits.
  if (entry.type != 'l')
    check(::fchmodat(top, path, entry.mode, 0) == 0, entry.path);
}

}  // namespace

void makeTree(const std::string& root, std::span<const TreeEntry> entries) {
  const UniqueFd top = openTop(root);
  for (const TreeEntry& entry : entries)
    addEntry(top.get(), entry);
}

void basicTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"ann", 'd', 0755, kAnn, kUsers, ""},
      {"ann/file", '-', 0644, kAnn, kUsers, "text of ann\n"},
      {"ann/hard", 'h', 0, 0, 0, "ann/file"},
      {"ann/link", 'l', 0, kAnn, kUsers, "file"},
      {"ann/dir", 'd', 0700, kAnn, kUsers, ""},
      {"ann/dir/deep", '-', 0600, kAnn, kUsers, "deep\n"},
      {"bob", 'd', 0755, kBob, kBobs, ""},
      {"bob/file", '-', 0640, kBob, kBobs, "text of bob\n"},
      {"bob/mixed", '-', 0644, kBob, kUsers, ""},
      {"bob/pipe", 'p', 0644, kBob, kBobs, ""},
      {"bob/socket", 's', 0755, kBob, kBobs, ""},
      {"cid", 'd', 0755, kCid, kUsers, ""},
      {"cid/device", 'c', 0666, kCid, kUsers, ""},
      {"cid/hard", 'h', 0, 0, 0, "ann/file"},
      {"root", 'd', 0755, 0, 0, ""},
      {"root/file", '-', 0644, 0, 0, "nobody may change the owner of this\n"},
  };
  makeTree(root, entries);
}

void modesTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"setuid", '-', 04755, kAnn, kUsers, ""},        {"setgid", '-', 02755, kAnn, kUsers, ""},
      {"both", '-', 06755, kBob, kBobs, ""},           {"mandatory", '-', 02644, kAnn, kUsers, ""},
      {"none", '-', 0000, kAnn, kUsers, ""},           {"sticky", 'd', 01777, kAnn, kUsers, ""},
      {"setgid_dir", 'd', 02775, kAnn, kUsers, ""},    {"shut", 'd', 0000, kAnn, kUsers, ""},
      {"shut/inside", '-', 0644, kAnn, kUsers, ""},    {"root_setuid", '-', 04755, 0, 0, ""},
      {"setuid_link", 'l', 0, kAnn, kUsers, "setuid"},
  };
  makeTree(root, entries);
}

void loopsTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"dir", 'd', 0755, kAnn, kUsers, ""},
      {"dir/file", '-', 0644, kAnn, kUsers, ""},
      {"dir/up", 'l', 0, kAnn, kUsers, ".."},
      {"dir/here", 'l', 0, kAnn, kUsers, "."},
      {"to_dir", 'l', 0, kAnn, kUsers, "dir"},
      {"to_dir_again", 'l', 0, kAnn, kUsers, "./dir"},
      {"to_file", 'l', 0, kAnn, kUsers, "dir/file"},
      {"to_itself", 'l', 0, kAnn, kUsers, "to_itself"},
      {"dangling", 'l', 0, kAnn, kUsers, "not there"},
  };
  makeTree(root, entries);
}

void deepTree(const std::string& root, int levels) {
  UniqueFd here = openTop(root);
  for (int i = 0; i < levels; ++i) {
    addEntry(here.get(), {"d", 'd', 0755, kAnn, kUsers, ""});
    here = UniqueFd(::openat(here.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  addEntry(here.get(), {"leaf", '-', 0644, kAnn, kUsers, ""});
}

void manyFiles(const std::string& root, int count) {
  const std::pair<uid_t, gid_t> owners[] = {{kAnn, kUsers}, {kBob, kBobs}, {kCid, kUsers}, {0, 0}};
  const UniqueFd top = openTop(root);
  for (int i = 0; i < count; ++i) {
    const auto& [uid, gid] = owners[static_cast<size_t>(i) % std::size(owners)];
    addEntry(top.get(), {"f" + std::to_string(i), '-', 0644, uid, gid, ""});
  }
}
