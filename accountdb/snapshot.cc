#include "accountdb/snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "accountdb/account_line.h"
#include "services/paths.h"
#include "services/spawn.h"
#include "services/std_streams.h"

namespace orvs {
namespace {

// Lets the command write `accountFile` to `fd`.
bool copyTo(int fd, const char* accountFile) {
  const UniqueFd input = openNull(O_RDONLY);
  const UniqueFd errors = openNull(O_WRONLY);
  const std::array descriptors = {input.get(), fd, errors.get()};
  const char* const arguments[] = {paths::kCat, accountFile, nullptr};
  return spawnfv(0, static_cast<int>(descriptors.size()), descriptors.data(), paths::kCat,
                 arguments) == 0;
}

}  // namespace

Snapshot::Taken Snapshot::take(const char* accountFile, Lines how) {
  drop();
  lines = how;
  temporaryPath = paths::kSnapshotTemplate;
  UniqueFd file(::mkstemp(temporaryPath));
  if (!file)
    return Taken::NoTemporaryFile;
  static_cast<void>(::unlink(temporaryPath.c_str()));
  if (copyTo(file.get(), accountFile))
    stream.reset(::fdopen(file.get(), "r"));
  if (!stream)
    return Taken::Failed;
  file.release();  // the stream owns it now
  return Taken::Done;
}

bool Snapshot::rewind() {
  return std::fseek(stream.get(), 0, SEEK_SET) == 0;
}

std::string Snapshot::readLine() {
  return lines == Lines::Whole ? readWholeLine() : readPiece();
}

std::string Snapshot::readWholeLine() {
  std::string_view line;
  do {
    const ssize_t length = ::getdelim(&lineBuffer, &lineCapacity, '\n', stream.get());
    if (length < 0)
      return {};
    line = {lineBuffer, static_cast<std::size_t>(length)};
    if (line.ends_with('\n'))
      line.remove_suffix(1);
  } while (isMarkerLine(line) || hasNulInName(line));
  return std::string(line);
}

std::string Snapshot::readPiece() {
  do {
    if (std::fgets(buffer.data(), static_cast<int>(buffer.size()), stream.get()) == nullptr)
      return {};
  } while (isMarkerLine(buffer.data()));
  std::string line = buffer.data();
  if (!line.empty() && line.back() == '\n')
    line.pop_back();
  return line;
}

std::string Snapshot::text() const {
  struct stat info = {};
  if (::fstat(::fileno(stream.get()), &info) != 0)
    return {};
  std::string text(static_cast<std::size_t>(info.st_size), '\0');
  const ssize_t count = ::pread(::fileno(stream.get()), text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

}  // namespace orvs
