// A walk and its helpers over the directory given, without pauses. Run under ThreadSanitizer.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "entry/read_ahead.h"

namespace {

void walk(ReadAhead& ahead, int top, const ReadAhead::Directory& directory) {
  ahead.enter(directory);
  std::vector<ReadAhead::Directory> found;
  DIR* const names = fdopendir(openat(top, directory.path.c_str(), O_RDONLY | O_DIRECTORY));
  if (names == nullptr)
    return;
  while (const dirent* entry = readdir(names)) {
    ahead.passed(1);
    if (entry->d_type == DT_DIR && strcmp(entry->d_name, ".") != 0 &&
        strcmp(entry->d_name, "..") != 0)
      found.insert(found.begin(),
                   {{directory.id.device, entry->d_ino}, directory.path + "/" + entry->d_name});
  }
  closedir(names);
  ahead.offer(found);
  for (const ReadAhead::Directory& next : found)
    walk(ahead, top, next);
}

}  // namespace

int main(int argc, char** argv) {
  struct stat status = {};
  if (argc != 2 || stat(argv[1], &status) != 0)
    return 2;
  for (int round = 0; round < 20; ++round) {
    ReadAhead ahead;
    UniqueFd top(open(argv[1], O_PATH | O_DIRECTORY | O_CLOEXEC));
    ahead.begin(UniqueFd(fcntl(top.get(), F_DUPFD_CLOEXEC, 0)), status.st_dev,
                [](const std::string& path) { return path.ends_with("/.git"); });
    for (int i = 0; i < 8; ++i)
      ahead.addHelper();
    walk(ahead, top.get(), {idOf(status), "."});
    ahead.offerNames({"one", "two"}, 1 << 30);
  }
  return 0;
}
