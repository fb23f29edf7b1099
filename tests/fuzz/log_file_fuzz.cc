// The reader finds the lines of a log of any bytes. A line that the codec writes again reads the
// same.
#include <algorithm>
#include <climits>
#include <sstream>
#include <vector>

#include "privatelog/log_line.h"
#include "privatelog/log_reader.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// The lines that count: those before the first NUL that have a line feed.
std::vector<std::string> linesOf(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream content(log.substr(0, log.find('\0')));
  for (std::string line; std::getline(content, line) && !content.eof();)
    lines.push_back(line);
  return lines;
}

void checkWrittenAgain(const std::string& text) {
  PrivateLogRecord read;
  const LineType type = parseLogLine(text, read);
  const bool isWhole = type >= LineType::Link && type <= LineType::FollowedChange;
  if (!isWhole || !read.path.starts_with('/') || std::max(read.id.device, read.id.inode) > LONG_MAX)
    return;
  std::string line;
  if (type == LineType::Link) {
    appendLinkLine(line, read.id, read.path);
  } else {
    appendChangeStart(line, read.id, read.oldIds, read.path, type == LineType::FollowedChange);
    appendChangeEnd(line, read.newIds);
  }
  line.pop_back();
  PrivateLogRecord again;
  require(parseLogLine(line, again) == type && again.id == read.id && again.path == read.path &&
              again.oldIds == read.oldIds && again.newIds == read.newIds && !again.hasSurplusFields,
          "what is written again reads the same");
}

constexpr size_t kPiece = size_t{256} << 10;  // that the reader takes at a time

// An input that begins with "~" is put behind a line so long that a piece ends in the middle of the
// input.
std::string logOf(const std::string& text) {
  if (!text.starts_with('~'))
    return text;
  return std::string(kPiece - 1 - std::min(text.size() / 2, kPiece / 2), 'd') + '\n' + text;
}

}  // namespace

void tryInput(const std::string& text) {
  const std::string log = logOf(text);
  const InputFile file(log);
  LogReader reader;
  require(reader.open(file.path().c_str()), "the log opens");
  for (const std::string& line : linesOf(log)) {
    const auto read = reader.next();
    require(read && read->text == line, "the same lines");
    require(log.compare(read->offset, line.size() + 1, line + "\n") == 0, "where they stand");
    checkWrittenAgain(line);
  }
  require(!reader.next() && reader.error() == 0, "no line more");
  const size_t end = std::min(log.find('\0'), log.size());
  require(reader.contentEnd() == end, "the first NUL ends the content");
  require(reader.tail().text == log.substr(reader.tail().offset, end - reader.tail().offset) &&
              reader.tail().text.find('\n') == std::string::npos,
          "the tail is what is left");
}
