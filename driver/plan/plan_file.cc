#include "driver/plan/plan_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "driver/plan/plan_text.h"
#include "privatelog/report/report_target.h"
#include "services/interrupt.h"

namespace {

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0)
      return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// Reads the whole text, or a little more than a plan may have, so that the caller can see that it
// is too long. A signal that ends the run also ends the reading, because the writer of a pipe may
// never end.
std::optional<std::string> readAll(int fd) {
  std::string text;
  std::array<char, 65536> piece = {};
  while (text.size() <= kLongestPlan) {
    const ssize_t count = read(fd, piece.data(), piece.size());
    if (count < 0 && errno == EINTR && interrupt::pending() == 0)
      continue;
    if (count < 0)
      return std::nullopt;
    if (count == 0)
      break;
    text.append(piece.data(), static_cast<size_t>(count));
  }
  return text;
}

// The new file beside the plan's place. The destructor removes it unless it has taken the name.
class FileBeside {
 public:
  explicit FileBeside(const ReportPlace& itsPlace) : place(itsPlace) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    constexpr int kMostTries = 100;
    for (int i = 0; i < kMostTries; ++i) {
      name = ".idshift-plan." + std::to_string(getpid()) + "." + std::to_string(i);
      file.reset(openat(place.directory.get(), name.c_str(), kFlags, place.old ? 0600 : 0666));
      if (file || errno != EEXIST)
        return;
    }
  }
  ~FileBeside() {
    if (!isNamed && file)
      unlinkat(place.directory.get(), name.c_str(), 0);
  }
  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;

  bool fill(std::string_view text) {
    return file && writeAll(file.get(), text) && takeOwner() && fsync(file.get()) == 0;
  }

  bool takeName() {
    isNamed = renameat(place.directory.get(), name.c_str(), place.directory.get(),
                       place.name.c_str()) == 0;
    return isNamed;
  }

 private:
  // Gives the new file the old one's owner and mode. A user who may not give a file away keeps the
  // new one, with the private mode that it was made with.
  bool takeOwner() {
    if (!place.old)
      return true;
    const OwnerIds owner = place.old->owner;
    if (fchown(file.get(), owner.uid, owner.gid) != 0)
      return errno == EPERM;
    return fchmod(file.get(), place.old->mode & 0777) == 0;
  }

  const ReportPlace& place;
  std::string name;
  UniqueFd file;
  bool isNamed = false;
};

}  // namespace

PlanFileText readPlanFile(const std::string& fileName) {
  // Without O_NONBLOCK, opening a named pipe would wait for a writer. With it such a pipe reads as
  // empty.
  const bool isInput = fileName == "-";
  UniqueFd file(isInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                        : open(fileName.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file)
    return {};
  if (isatty(file.get()) != 0)
    return {std::nullopt, true};
  if (!isInput && fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK) != 0)
    return {};
  return {readAll(file.get()), false};
}

std::string writePlanFile(const std::string& fileName, std::string_view text) {
  const auto reason = [] { return std::string(strerror(errno)); };
  if (fileName == "-") {
    const bool isWritten =
        fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
    return isWritten ? "" : reason();
  }
  const ReportPlace place = findReportPlace(fileName);
  if (!place.directory)
    return reason();
  FileBeside beside(place);
  return beside.fill(text) && beside.takeName() ? "" : reason();
}
