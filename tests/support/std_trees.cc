#include "tests/support/std_trees.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "tests/support/child.h"

namespace {

bool makeNode(const char* path, const TreeEntry& entry) {
  const mode_t type = entry.type == '-'   ? S_IFREG
                      : entry.type == 'p' ? S_IFIFO
                      : entry.type == 's' ? S_IFSOCK
                                          : S_IFCHR;
  // A device has the numbers of the null device: harmless to whoever opens it.
  return mknod(path, type | 0600, makedev(1, 3)) == 0 &&
         (entry.target.empty() || (std::ofstream(path) << entry.target).flush());
}

bool makeEntry(const std::string& root, const TreeEntry& entry) {
  const std::string place = root + "/" + entry.path;
  const char* path = place.c_str();
  if (entry.type == 'h')
    return link((root + "/" + entry.target).c_str(), path) == 0;
  const bool isMade = entry.type == 'l'   ? symlink(entry.target.c_str(), path) == 0
                      : entry.type == 'd' ? mkdir(path, 0700) == 0
                                          : makeNode(path, entry);
  // The mode after the owner, because a change of owner clears the set-id bits.
  return isMade && lchown(path, entry.uid, entry.gid) == 0 &&
         (entry.type == 'l' || chmod(path, entry.mode) == 0);
}

}  // namespace

void makeTree(const std::string& root, std::span<const TreeEntry> entries) {
  std::filesystem::create_directories(root);
  for (const TreeEntry& entry : entries)
    orDie(makeEntry(root, entry), "tree entry " + entry.path);
  if (entries.size() > 1)
    usleep(12'000);  // a younger file cannot be told from another one
}

void basicTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"ann", 'd', 0755, 500, 100},
      {"ann/file", '-', 0644, 500, 100, "text of ann\n"},
      {"ann/hard", 'h', 0, 0, 0, "ann/file"},
      {"ann/link", 'l', 0, 500, 100, "file"},
      {"ann/dir", 'd', 0700, 500, 100},
      {"ann/dir/deep", '-', 0600, 500, 100, "deep\n"},
      {"bob", 'd', 0755, 501, 101},
      {"bob/file", '-', 0640, 501, 101, "text of bob\n"},
      {"bob/mixed", '-', 0644, 501, 100},
      {"bob/pipe", 'p', 0644, 501, 101},
      {"bob/socket", 's', 0755, 501, 101},
      {"cid", 'd', 0755, 502, 100},
      {"cid/device", 'c', 0666, 502, 100},
      {"cid/hard", 'h', 0, 0, 0, "ann/file"},
      {"root", 'd', 0755, 0, 0},
      {"root/file", '-', 0644, 0, 0, "nobody may change the owner of this\n"},
  };
  makeTree(root, entries);
}

void modesTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"setuid", '-', 04755, 500, 100},     {"setgid", '-', 02755, 500, 100},
      {"both", '-', 06755, 501, 101},       {"sticky", 'd', 01777, 500, 100},
      {"setgid_dir", 'd', 02775, 500, 100}, {"setuid_link", 'l', 0, 500, 100, "setuid"},
  };
  makeTree(root, entries);
}

void loopsTree(const std::string& root) {
  const TreeEntry entries[] = {
      {"dir", 'd', 0755, 500, 100},
      {"dir/file", '-', 0644, 500, 100},
      {"dir/up", 'l', 0, 500, 100, ".."},
      {"dir/here", 'l', 0, 500, 100, "."},
      {"to_dir", 'l', 0, 500, 100, "dir"},
      {"to_dir_again", 'l', 0, 500, 100, "./dir"},
      {"to_file", 'l', 0, 500, 100, "dir/file"},
      {"to_itself", 'l', 0, 500, 100, "to_itself"},
      {"dangling", 'l', 0, 500, 100, "not there"},
  };
  makeTree(root, entries);
}

void manyFiles(const std::string& root, int count) {
  const std::pair<uid_t, gid_t> owners[] = {{500, 100}, {501, 101}, {502, 100}, {0, 0}};
  std::vector<TreeEntry> entries;
  for (int i = 0; i < count; ++i) {
    const auto& [uid, gid] = owners[static_cast<size_t>(i) % std::size(owners)];
    entries.push_back({"f" + std::to_string(i), '-', 0644, uid, gid});
  }
  makeTree(root, entries);
}
