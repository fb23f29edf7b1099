#include "accountdb/snapshot.h"

#include <fcntl.h>
#include <unistd.h>

#include "services/paths.h"
#include "services/spawn.h"
#include "services/std_streams.h"

namespace orvs {
namespace {

bool isMarkerLine(const char* line) {
  return line[0] == '+' || line[0] == '-';
}

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

Snapshot::Taken Snapshot::take(const char* accountFile) {
  drop();
  temporaryPath = paths::kSnapshotTemplate;
  UniqueFd file(::mkstemp(temporaryPath));
  if (!file)
    return Taken::NoTemporaryFile;
  isThere = true;
  if (copyTo(file.get(), accountFile))
    stream.reset(::fdopen(file.get(), "r"));
  if (!stream) {
    drop();
    return Taken::Failed;
  }
  file.release();  // the stream's now
  return Taken::Done;
}

void Snapshot::drop() {
  stream.reset();
  if (isThere)
    static_cast<void>(::unlink(temporaryPath.c_str()));
  isThere = false;
}

bool Snapshot::rewind() {
  return std::fseek(stream.get(), 0, SEEK_SET) == 0;
}

std::string Snapshot::readLine() {
  do {
    if (std::fgets(buffer.data(), static_cast<int>(buffer.size()), stream.get()) == nullptr)
      return {};
  } while (isMarkerLine(buffer.data()));
  std::string line = buffer.data();
  if (!line.empty() && line.back() == '\n')
    line.pop_back();
  return line;
}

}  // namespace orvs
