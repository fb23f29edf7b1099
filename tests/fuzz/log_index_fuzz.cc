// Any bytes as a log and as its index. The reader ends, and returns in order the lines that a
// record vouches for. A run that continues the log leaves it so that it reads the same.
//
// The input is the log, NUL, the index. The files have fixed places, so the target makes an /etc of
// its own, which needs root.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "privatelog/log_index.h"
#include "services/paths.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

bool makeEtc() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("etc", "/etc", "tmpfs", 0, nullptr) == 0 && mkdir("/etc/orvantadc", 0755) == 0;
}

void put(const char* path, const std::string& bytes) {
  const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  require(
      file && write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
      "a file is written");
}

std::string get(const char* path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Reads all lines of a scan as text, and checks each against the bytes of the index.
class Read {
 public:
  Read(const std::string& log, const std::string& index) {
    if (scan.open(true) != LogScan::Opened::Yes)
      return;
    isOpen = true;
    while (const ScannedLine* line = scan.next()) {
      require(line->offset >= end, "lines go forward");
      require(log.compare(line->offset, line->text.size(), line->text) == 0, "where they stand");
      end = line->offset + line->text.size();
      if (line->vouched)
        checkVouched(*line, index);
      lines.push_back(std::string(line->vouched ? "v" : "l") + std::string(line->text));
    }
    const ScanEnd& last = scan.end();
    require(end <= last.contentEnd && last.contentEnd <= last.textEnd && last.textEnd <= log.size(),
            "the end is behind them");
    require(last.indexEnd % kIndexRecordSize == 0 && last.indexEnd <= index.size(),
            "whole records");
  }

  LogScan scan;
  bool isOpen = false;
  std::vector<std::string> lines;

 private:
  void checkVouched(const ScannedLine& line, const std::string& index) {
    const uint64_t position = line.vouched->position;
    require(position > record && position % kIndexRecordSize == 0 &&
                position + kIndexRecordSize <= index.size(),
            "records go forward");
    record = position;
    const char* bytes = index.data() + position;
    const uint32_t checksum = kindOf(bytes) == IndexKind::Section
                                  ? fromBytes<IndexSection>(bytes).checksum
                                  : fromBytes<IndexLine>(bytes).checksum;
    require(checksumOf(scan.indexReader().seed(), line.text.substr(1)) == checksum,
            "its record vouches for it");
  }

  uint64_t end = 0;
  uint64_t record = 0;
};

void checkScan(const std::string& log, const std::string& index) {
  put(paths::kPrivateLog, log);
  put(paths::kPrivateLogIndex, index);
  Read first(log, index);
  if (!first.isOpen || first.scan.isMisfit() || !first.scan.hasIndex())
    return;
  LogIndex written;
  require(written.open(first.scan) && written.close(), "the index is put right");
  const ScanEnd& end = first.scan.end();
  const std::string mended = log.substr(0, end.contentEnd) + (end.tailRecord ? "\n" : "");
  put(paths::kPrivateLog, mended);
  Read again(mended, get(paths::kPrivateLogIndex));
  require(again.isOpen, "the index stays one");
  if (end.tailRecord && again.lines.size() > first.lines.size())
    again.lines.pop_back();  // the line whose end was missing
  require(again.lines == first.lines, "the next run reads the same");
}

}  // namespace

void tryInput(const std::string& input) {
  static const bool hasEtc = makeEtc();
  const size_t nul = input.find('\0');
  const std::string log = input.substr(0, nul);
  const std::string index = nul == input.npos ? std::string() : input.substr(nul + 1);
  if (hasEtc)
    checkScan(log, index);
}
