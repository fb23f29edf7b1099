#include "survey/machine/place_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "services/unique_fd.h"

namespace {

bool isNotThere(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

bool readPlace(const std::string& path, const TextTaker& take) {
  constexpr size_t kMost = size_t{16} << 20;
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file)
    return isNotThere(errno);
  struct stat status = {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
    return true;
  std::string text;
  char buffer[16384];
  for (;;) {
    const ssize_t count = read(file.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      return errno == ESRCH;  // a process that has ended meanwhile
    if (count == 0 || text.size() > kMost)
      break;
    text.append(buffer, static_cast<size_t>(count));
  }
  take(path, text);
  return true;
}

bool namesOf(const std::string& folder, std::vector<std::string>& names) {
  const std::unique_ptr<DIR, FolderCloser> opened(opendir(folder.c_str()));
  if (!opened)
    return isNotThere(errno);
  while (const dirent* entry = readdir(opened.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..")
      names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return true;
}
