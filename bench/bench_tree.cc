// Makes, resets and fingerprints the tree that the benchmarks convert.
//
//   bench_tree make ROOT DIRS NAMES SEED [root]   DIRS directories and NAMES other names
//   bench_tree reset ROOT         restores the old owner and special bits of every entry
//   bench_tree acls ROOT ID       gives every hundredth entry an ACL that names user ID
//   bench_tree hash ROOT          prints a number that depends on all owners and special bits
//
// Of the NAMES 5 % are symbolic links and 2 % further hard links, the rest regular files; 20 % of
// them are in twenty big directories. Owners are uids and gids 20001 to 20020, which a run maps to
// 31000 + 37 i. With "root" root owns the directories and no one else can write them, so the walk
// need not fear that somebody exchanges an entry between two looks.
#include <fcntl.h>
#include <ftw.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kIds = 20;
constexpr uint32_t kFirstOldId = 20001;
constexpr uint32_t kFirstNewId = 31000;
constexpr uint32_t kNewIdStep = 37;
constexpr int kMaxDepth = 18;

[[noreturn]] void fail(const std::string& what) {
  perror(what.c_str());
  exit(1);
}

uint32_t oldIdOf(uint32_t id) {
  const uint32_t steps = (id - kFirstNewId) / kNewIdStep;
  const bool mapped = id >= kFirstNewId && steps < kIds && (id - kFirstNewId) % kNewIdStep == 0;
  return mapped ? kFirstOldId + steps : id;
}

class Generator {
 public:
  Generator(uint64_t seed, bool rootOwned) : random(seed), rootDirectories(rootOwned) {}

  void makeDirectories(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      Directory made{.path = "home" + std::to_string(i), .depth = 1};
      if (i >= kIds) {
        size_t parent = below(i);
        while (directories[parent].depth > kMaxDepth)
          parent = below(i);
        made.path = directories[parent].path + "/" + name('d', i);
        made.depth = directories[parent].depth + 1;
      }
      if (mkdir(made.path.c_str(), 0755) != 0)
        fail(made.path);
      if (!rootDirectories) {
        own(made.path);
        if (below(20) == 0 && chmod(made.path.c_str(), 02755) != 0)
          fail(made.path);
      }
      directories.push_back(made);
    }
    for (size_t i = 0; i < 20; ++i)
      big.push_back(below(count));
  }

  void makeNames(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      const size_t where = below(100) < 20 ? big[below(big.size())] : below(directories.size());
      const std::string parent = directories[where].path + "/";
      const size_t kind = below(1000);
      if (kind < 50) {
        makeLink(parent + name('l', i));
      } else if (kind < 70 && !files.empty()) {
        const std::string path = parent + name('h', i);
        if (link(files[below(files.size())].c_str(), path.c_str()) != 0)
          fail(path);
      } else {
        makeFile(parent + name('f', i) + (below(200) == 0 ? ".suid" : ""));
      }
    }
  }

 private:
  struct Directory {
    std::string path;
    int depth;
  };

  size_t below(size_t limit) { return random() % limit; }

  std::string name(char kind, size_t number) {
    std::string text(1, kind);
    for (size_t length = 2 + below(20); length > 0; --length)
      text += "abcdefghijklmnopqrstuvwxyz_-0123456789"[below(38)];
    return text + std::to_string(number);
  }

  void own(const std::string& path) {
    const auto uid = kFirstOldId + static_cast<uint32_t>(below(kIds));
    const auto gid = below(100) < 80 ? uid : kFirstOldId + static_cast<uint32_t>(below(kIds));
    if (lchown(path.c_str(), uid, gid) != 0)
      fail(path);
  }

  void makeLink(const std::string& path) {
    if (symlink("../elsewhere", path.c_str()) != 0)
      fail(path);
    own(path);
  }

  void makeFile(const std::string& path) {
    const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0 || close(fd) != 0)
      fail(path);
    own(path);
    if (path.ends_with(".suid") && chmod(path.c_str(), 06755) != 0)
      fail(path);
    files.push_back(path);
  }

  std::mt19937_64 random;
  bool rootDirectories;
  std::vector<Directory> directories;
  std::vector<size_t> big;
  std::vector<std::string> files;
};

int resetEntry(const char* path, const struct stat* st, int /*type*/, FTW* at) {
  if (at->level == 0)
    return 0;
  const uint32_t uid = oldIdOf(st->st_uid);
  const uint32_t gid = oldIdOf(st->st_gid);
  if ((uid != st->st_uid || gid != st->st_gid) && lchown(path, uid, gid) != 0)
    fail(path);
  const std::string_view text = path;
  if (text.ends_with(".suid") && S_ISREG(st->st_mode) && chmod(path, 06755) != 0)
    fail(path);
  return 0;
}

struct {
  posix_acl_xattr_header header = {POSIX_ACL_XATTR_VERSION};
  posix_acl_xattr_entry entries[5] = {{ACL_USER_OBJ, 6, UINT32_MAX},
                                      {ACL_USER, 6, 0},
                                      {ACL_GROUP_OBJ, 4, UINT32_MAX},
                                      {ACL_MASK, 6, UINT32_MAX},
                                      {ACL_OTHER, 4, UINT32_MAX}};
} acl;
static_assert(sizeof acl == sizeof acl.header + sizeof acl.entries);

size_t entriesSeen = 0;

int setAcl(const char* path, const struct stat* st, int /*type*/, FTW* at) {
  const bool isPicked = at->level > 0 && !S_ISLNK(st->st_mode) && ++entriesSeen % 100 == 0;
  if (isPicked && lsetxattr(path, "system.posix_acl_access", &acl, sizeof acl, 0) != 0)
    fail(path);
  return 0;
}

uint64_t fingerprint = 0;
size_t rootLength = 0;

int hashEntry(const char* path, const struct stat* st, int /*type*/, FTW* at) {
  if (at->level == 0)
    return 0;
  const std::string text = std::string(path + rootLength) + "\n" + std::to_string(st->st_uid) +
                           ":" + std::to_string(st->st_gid) + ":" +
                           std::to_string(st->st_mode & 07000);
  fingerprint += std::hash<std::string>{}(text)*0x9E3779B97F4A7C15U;
  return 0;
}

int usage() {
  fprintf(stderr,
          "usage: bench_tree make ROOT DIRS NAMES SEED [root] | reset ROOT | acls ROOT ID | "
          "hash ROOT\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3)
    return usage();
  const std::string verb = argv[1];
  const char* root = argv[2];
  if (verb == "make" && argc >= 6) {
    umask(0);
    if (mkdir(root, 0755) != 0 || chdir(root) != 0)
      fail(root);
    Generator generator(strtoull(argv[5], nullptr, 10), argc > 6);
    generator.makeDirectories(std::max(strtoull(argv[3], nullptr, 10), 20ULL));
    generator.makeNames(strtoull(argv[4], nullptr, 10));
    return 0;
  }
  if (verb == "reset")
    return nftw(root, resetEntry, 500, FTW_PHYS) == 0 ? 0 : 1;
  if (verb == "acls" && argc == 4) {
    acl.entries[1].e_id = static_cast<uint32_t>(strtoul(argv[3], nullptr, 10));
    return nftw(root, setAcl, 500, FTW_PHYS) == 0 ? 0 : 1;
  }
  if (verb == "hash") {
    rootLength = strlen(root);
    if (nftw(root, hashEntry, 500, FTW_PHYS) != 0)
      return 1;
    printf("%016llx\n", static_cast<unsigned long long>(fingerprint));
    return 0;
  }
  return usage();
}
