#include "privatelog/log_reader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Read {
  std::vector<std::string> lines;
  std::string tail;
  uint64_t contentEnd = 0;
};

// Reads a file with this content; offsets are checked against the content.
Read readAll(const std::string& content) {
  const UniqueFd file(memfd_create("log", MFD_CLOEXEC));
  EXPECT_EQ(write(file.get(), content.data(), content.size()),
            static_cast<ssize_t>(content.size()));
  LogReader reader;
  EXPECT_TRUE(reader.open(("/proc/self/fd/" + std::to_string(file.get())).c_str()));
  Read result;
  while (const auto line = reader.next()) {
    EXPECT_EQ(content.substr(line->offset, line->text.size() + 1), std::string(line->text) + "\n");
    result.lines.emplace_back(line->text);
  }
  EXPECT_EQ(reader.error(), 0);
  result.tail = reader.tail().text;
  result.contentEnd = reader.contentEnd();
  EXPECT_EQ(content.substr(reader.tail().offset, result.tail.size()), result.tail);
  return result;
}

TEST(LogReader, LinesEndWithALineFeedAndContentAtTheFirstNul) {
  const struct {
    std::string content;
    std::vector<std::string> lines;
    std::string tail;
    uint64_t end;
  } rows[] = {
      {"", {}, "", 0},
      {"a", {}, "a", 1},
      {"a\n", {"a"}, "", 2},
      {"\n\nb", {"", ""}, "b", 3},
      {std::string("a\nb\0\0", 5), {"a"}, "b", 3},
      {std::string("a\n\0b\nc\n", 7), {"a"}, "", 2},
      {std::string("\0\n", 2), {}, "", 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.content));
    const Read read = readAll(row.content);
    EXPECT_EQ(read.lines, row.lines);
    EXPECT_EQ(read.tail, row.tail);
    EXPECT_EQ(read.contentEnd, row.end);
  }
}

// Lines that end, begin and grow around the ends of the pieces in which the file is read.
TEST(LogReader, LinesLongerThanAPiece) {
  constexpr size_t kPiece = size_t{256} << 10;
  for (const size_t length : {kPiece - 2, kPiece - 1, kPiece, kPiece + 1, 3 * kPiece}) {
    const std::string text(length, 'x');
    std::string content = "first\n";
    content.append(text).append("\n\n").append(text).append("\ntail").append(9, '\0');
    const Read read = readAll(content);
    EXPECT_EQ(read.lines, (std::vector<std::string>{"first", text, "", text}));
    EXPECT_EQ(read.tail, "tail");
    EXPECT_EQ(read.contentEnd, 6 + 2 * length + 7);
  }
}

}  // namespace
