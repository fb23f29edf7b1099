#include "tests/support/std_trees.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/files.h"

namespace {

bool makeEntry(const std::string& root, const std::string& row) {
  std::string kind, name, target;
  uid_t uid = 0;
  gid_t gid = 0;
  char colon = 0;
  std::istringstream words(row);
  words >> kind >> uid >> colon >> gid >> name >> std::ws;
  std::getline(words, target);
  const std::string place = root + "/" + name;
  const char* path = place.c_str();
  const char type = kind[0];
  const mode_t usual = type == 'd' ? 0755 : 0644;
  const auto mode =
      static_cast<mode_t>(kind.size() > 1 ? std::stoul(kind.substr(1), nullptr, 8) : usual);
  if (type == 'h')
    return link((root + "/" + target).c_str(), path) == 0;
  if (type == 'l')
    return symlink(target.c_str(), path) == 0 && lchown(path, uid, gid) == 0;
  const mode_t nodeType = type == '-'   ? S_IFREG
                          : type == 'p' ? S_IFIFO
                          : type == 's' ? S_IFSOCK
                                        : S_IFCHR;
  // A device gets the numbers of the null device, which anybody may open without harm.
  const bool isMade =
      type == 'd' ? mkdir(path, 0700) == 0 : mknod(path, nodeType | 0600, makedev(1, 3)) == 0;
  // The mode after the owner, because a change of owner clears the set-id bits.
  return isMade && (target.empty() || (std::ofstream(path) << target).flush()) &&
         chown(path, uid, gid) == 0 && chmod(path, mode) == 0;
}

}  // namespace

void plant(const std::string& root, const std::vector<std::string>& rows) {
  std::filesystem::create_directories(root);
  for (const std::string& row : rows)
    orDie(makeEntry(root, row), "tree entry " + row);
  if (rows.size() > 1)
    usleep(12'000);  // the log records no birth time for an inode younger than 10 ms
}

void basicTree(const std::string& root) {
  plant(root, {"d 500:100 ann", "- 500:100 ann/file text of ann", "h 0:0 ann/hard ann/file",
               "l 500:100 ann/link file", "d700 500:100 ann/dir", "-600 500:100 ann/dir/deep deep",
               "d 501:101 bob", "-640 501:101 bob/file text of bob", "- 501:100 bob/mixed",
               "p 501:101 bob/pipe", "s755 501:101 bob/socket", "d 502:100 cid",
               "c666 502:100 cid/device", "h 0:0 cid/hard ann/file", "d 0:0 root",
               "- 0:0 root/file nobody may change the owner of this"});
}
