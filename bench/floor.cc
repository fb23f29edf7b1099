// The physical limit of a conversion: getdents64, fstatat and fchownat, and nothing else.
//
//   floor [--miss] ROOT
//
// --miss walks and looks without a change. There is no log, no table and no safety: any converter
// must at least make these system calls.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

bool changeNothing = false;

uint32_t newIdOf(uint32_t id) {
  return id >= 20001 && id <= 20020 && !changeNothing ? 31000 + 37 * (id - 20001) : id;
}

// Changes one entry; true when it is a directory to enter.
bool handleEntry(int directory, const char* name) {
  struct stat st;
  if (fstatat(directory, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    perror(name);
    return false;
  }
  const uint32_t uid = newIdOf(st.st_uid);
  const uint32_t gid = newIdOf(st.st_gid);
  if ((uid != st.st_uid || gid != st.st_gid) &&
      fchownat(directory, name, uid, gid, AT_SYMLINK_NOFOLLOW) != 0)
    perror(name);
  return S_ISDIR(st.st_mode);
}

bool isDots(const char* name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

constexpr size_t kBufferSize = 256 * 1024;

// A directory is read to its end before the walk goes deeper, so one buffer serves all.
void walk(int directory, char* buffer) {
  std::vector<std::string> subdirectories;
  for (;;) {
    const long length = syscall(SYS_getdents64, directory, buffer, kBufferSize);
    if (length <= 0)
      break;
    for (long at = 0; at < length;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
      at += entry->d_reclen;
      if (!isDots(entry->d_name) && handleEntry(directory, entry->d_name))
        subdirectories.emplace_back(entry->d_name);
    }
  }
  for (const std::string& name : subdirectories) {
    const int fd = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
      perror(name.c_str());
      continue;
    }
    walk(fd, buffer);
    close(fd);
  }
}

}  // namespace

int main(int argc, char** argv) {
  changeNothing = argc == 3 && strcmp(argv[1], "--miss") == 0;
  if (argc != 2 && !changeNothing) {
    fprintf(stderr, "usage: floor [--miss] ROOT\n");
    return 2;
  }
  const int fd = open(argv[argc - 1], O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    perror(argv[argc - 1]);
    return 1;
  }
  const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  walk(fd, buffer.get());
  close(fd);
  return 0;
}
