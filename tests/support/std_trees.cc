#include "tests/support/std_trees.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <utility>

#include "services/unique_fd.h"
#include "tests/support/child.h"

namespace {

constexpr uid_t kAnn = 500;
constexpr uid_t kBob = 501;
constexpr uid_t kCid = 502;
constexpr gid_t kUsers = 100;
constexpr gid_t kBobs = 101;

UniqueFd openTop(const std::string& root) {
  std::filesystem::create_directories(root);
  UniqueFd top(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  orDie(static_cast<bool>(top), root);
  return top;
}

bool makeNode(int top, const TreeEntry& entry) {
  static const std::map<char, mode_t> types = {
      {'-', S_IFREG}, {'p', S_IFIFO}, {'s', S_IFSOCK}, {'c', S_IFCHR}};
  // A device has the numbers of the null device: harmless to whoever opens it.
  if (::mknodat(top, entry.path.c_str(), types.at(entry.type) | 0600, ::makedev(1, 3)) != 0)
    return false;
  if (entry.target.empty())
    return true;
  const UniqueFd file(::openat(top, entry.path.c_str(), O_WRONLY | O_CLOEXEC));
  const auto size = static_cast<ssize_t>(entry.target.size());
  return ::write(file.get(), entry.target.data(), entry.target.size()) == size;
}

bool makeEntry(int top, const TreeEntry& entry) {
  const char* path = entry.path.c_str();
  if (entry.type == 'h')
    return ::linkat(top, entry.target.c_str(), top, path, 0) == 0;
  const bool isMade = entry.type == 'l'   ? ::symlinkat(entry.target.c_str(), top, path) == 0
                      : entry.type == 'd' ? ::mkdirat(top, path, 0700) == 0
                                          : makeNode(top, entry);
  // The mode after the owner, because a change of owner clears the set-id bits.
  return isMade && ::fchownat(top, path, entry.uid, entry.gid, AT_SYMLINK_NOFOLLOW) == 0 &&
         (entry.type == 'l' || ::fchmodat(top, path, entry.mode, 0) == 0);
}

void addEntry(int top, const TreeEntry& entry) {
  orDie(makeEntry(top, entry), "tree entry " + entry.path);
}

}  // namespace

void makeTree(const std::string& root, std::span<const TreeEntry> entries) {
  const UniqueFd top = openTop(root);
  for (const TreeEntry& entry : entries)
    addEntry(top.get(), entry);
}

void basicTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"ann", 'd', 0755, kAnn, kUsers},
      {"ann/file", '-', 0644, kAnn, kUsers, "text of ann\n"},
      {"ann/hard", 'h', 0, 0, 0, "ann/file"},
      {"ann/link", 'l', 0, kAnn, kUsers, "file"},
      {"ann/dir", 'd', 0700, kAnn, kUsers},
      {"ann/dir/deep", '-', 0600, kAnn, kUsers, "deep\n"},
      {"bob", 'd', 0755, kBob, kBobs},
      {"bob/file", '-', 0640, kBob, kBobs, "text of bob\n"},
      {"bob/mixed", '-', 0644, kBob, kUsers},
      {"bob/pipe", 'p', 0644, kBob, kBobs},
      {"bob/socket", 's', 0755, kBob, kBobs},
      {"cid", 'd', 0755, kCid, kUsers},
      {"cid/device", 'c', 0666, kCid, kUsers},
      {"cid/hard", 'h', 0, 0, 0, "ann/file"},
      {"root", 'd', 0755, 0, 0},
      {"root/file", '-', 0644, 0, 0, "nobody may change the owner of this\n"},
  };
  makeTree(root, entries);
}

void modesTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"setuid", '-', 04755, kAnn, kUsers},
      {"setgid", '-', 02755, kAnn, kUsers},
      {"both", '-', 06755, kBob, kBobs},
      {"mandatory", '-', 02644, kAnn, kUsers},
      {"none", '-', 0000, kAnn, kUsers},
      {"sticky", 'd', 01777, kAnn, kUsers},
      {"setgid_dir", 'd', 02775, kAnn, kUsers},
      {"shut", 'd', 0000, kAnn, kUsers},
      {"shut/inside", '-', 0644, kAnn, kUsers},
      {"root_setuid", '-', 04755, 0, 0},
      {"setuid_link", 'l', 0, kAnn, kUsers, "setuid"},
  };
  makeTree(root, entries);
}

void loopsTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"dir", 'd', 0755, kAnn, kUsers},
      {"dir/file", '-', 0644, kAnn, kUsers},
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
    addEntry(here.get(), {"d", 'd', 0755, kAnn, kUsers});
    here = UniqueFd(::openat(here.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  addEntry(here.get(), {"leaf", '-', 0644, kAnn, kUsers});
}

void manyFiles(const std::string& root, int count) {
  const std::pair<uid_t, gid_t> owners[] = {{kAnn, kUsers}, {kBob, kBobs}, {kCid, kUsers}, {0, 0}};
  const UniqueFd top = openTop(root);
  for (int i = 0; i < count; ++i) {
    const auto& [uid, gid] = owners[static_cast<size_t>(i) % std::size(owners)];
    addEntry(top.get(), {"f" + std::to_string(i), '-', 0644, uid, gid});
  }
}
