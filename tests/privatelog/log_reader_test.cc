#include "privatelog/log_reader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Lines that end, begin and grow around the ends of the pieces in which the file is read.
TEST(LogReader, LinesLongerThanAPiece) {
  constexpr size_t kPiece = size_t{256} << 10;
  for (const size_t length : {kPiece - 2, kPiece - 1, kPiece, kPiece + 1, 3 * kPiece}) {
    const std::string text(length, 'x');
    std::string content = "first\n";
    content.append(text).append("\n\n").append(text).append("\ntail").append(9, '\0');
    const UniqueFd file(memfd_create("log", MFD_CLOEXEC));
    ASSERT_EQ(write(file.get(), content.data(), content.size()),
              static_cast<ssize_t>(content.size()));
    LogReader reader;
    ASSERT_TRUE(reader.open(("/proc/self/fd/" + std::to_string(file.get())).c_str()));
    std::vector<std::string> lines;
    while (const auto line = reader.next())
      lines.emplace_back(line->text);
    EXPECT_EQ(reader.error(), 0);
    EXPECT_EQ(lines, (std::vector<std::string>{"first", text, "", text}));
    EXPECT_EQ(reader.tail().text, "tail");
    EXPECT_EQ(reader.contentEnd(), 6 + 2 * length + 7);
  }
}

}  // namespace
