// Reader, codec and table load the same records from a log of any bytes as the plain reading does.
#include <algorithm>

#include "privatelog/change_table.h"
#include "privatelog/log_reader.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/log_model.h"

namespace {

constexpr size_t kPiece = size_t{256} << 10;  // that the reader takes at a time

bool isLoaded(LineType type) {
  return type >= LineType::Date && type <= LineType::IncompleteChange;
}

// Behind a line so long that the end of a piece falls into the middle of an input with "~".
std::string logOf(const std::string& text) {
  if (!text.starts_with('~'))
    return text;
  return std::string(kPiece - 1 - std::min(text.size() / 2, kPiece / 2), 'd') + '\n' + text;
}

void checkTable(const ChangeTable& table,
                const std::string& log,
                const std::vector<PrivateLogRecord>& records) {
  require(table.size() == records.size(), "as many records");
  for (const PrivateLogRecord& record : records) {
    size_t same = 0;
    for (const PrivateLogRecord& other : records)
      same += other.id == record.id;
    require(table.count(record.id) == same && table.hasInode(record.id), "all of one inode");
    size_t matches = 0;
    table.forEach(record.id, [&](const LoggedChange& loaded) {
      matches += log.compare(loaded.pathOffset, loaded.pathLength, record.path) == 0 &&
                 loaded.oldIds == record.oldIds && loaded.newIds == record.newIds;
    });
    require(matches > 0, "each with its path and ids");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string log = logOf(inputText(data, size));
  const InputFile file(log);
  LogReader reader;
  require(reader.open(file.path().c_str()), "the log opens");
  ChangeTable table;
  std::vector<PrivateLogRecord> records;
  for (const std::string& line : log_model::linesOf(log)) {
    const auto read = reader.next();
    require(read && read->text == line, "the same lines");
    require(log.compare(read->offset, line.size() + 1, line + "\n") == 0, "where they stand");
    LogRecordView record;
    if (isLoaded(parseLogLine(read->text, record))) {
      const char* path = record.path.empty() ? read->text.data() : record.path.data();
      table.insert({record.id, record.oldIds, record.newIds,
                    read->offset + static_cast<uint64_t>(path - read->text.data()),
                    static_cast<uint32_t>(record.path.size())});
    }
    if (const log_model::Line plain = log_model::parse(line); isLoaded(plain.type))
      records.push_back(plain.record);
  }
  require(!reader.next() && reader.error() == 0, "no line more");
  const size_t end = std::min(log.find('\0'), log.size());
  require(reader.contentEnd() == end, "the first NUL ends the content");
  require(reader.tail().text == log.substr(reader.tail().offset, end - reader.tail().offset) &&
              reader.tail().text.find('\n') == std::string::npos,
          "the tail is what is left");
  checkTable(table, log, records);
  return 0;
}
