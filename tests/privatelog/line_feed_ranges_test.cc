#include "privatelog/line_feed_ranges.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <string>

#include <gtest/gtest.h>

#include "services/unique_fd.h"
#include "tests/support/sandbox.h"

namespace {

using Ranges = std::vector<LineFeedRanges::Range>;

TEST(LineFeedRangesCodec, RoundTrips) {
  const Ranges rows[] = {{},
                         {{0, 1}},
                         {{127, 255}},
                         {{12, 140}, {140, 141}, {1000000, 1000500}},
                         {{UINT64_MAX - 1, UINT64_MAX}}};
  for (const Ranges& row : rows)
    EXPECT_EQ(LineFeedRanges::decode(LineFeedRanges::encode(row)), row);
  EXPECT_EQ(LineFeedRanges::encode({{300, 305}}), "\xac\x02\x05");
}

TEST(LineFeedRangesCodec, RefusesWhatMakesNoSense) {
  for (const std::string bad :
       {"\x05", "\x80", "\x05\x80", "\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01\x01",
        "\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01\x7f"})
    EXPECT_FALSE(LineFeedRanges::decode(bad)) << testing::PrintToString(bad);
}

class LineFeedRangesTest : public SandboxTest {};

TEST_F(LineFeedRangesTest, LivesInTheAttribute) {
  writeFile("/var/log-file", "");
  const UniqueFd file(open("/var/log-file", O_RDWR | O_CLOEXEC));
  const auto contains = [&file](uint64_t offset) {
    LineFeedRanges ranges;
    EXPECT_TRUE(ranges.load(file.get()));
    return ranges.contains(offset);
  };
  EXPECT_FALSE(contains(0));

  LineFeedRanges ranges;
  ASSERT_TRUE(ranges.add(file.get(), 10, 5));
  ASSERT_TRUE(ranges.add(file.get(), 15, 5));
  ASSERT_TRUE(ranges.add(file.get(), 40, 20));
  for (const auto& [offset, inside] : {std::pair{9u, false},
                                       {10u, true},
                                       {15u, true},
                                       {19u, true},
                                       {20u, false},
                                       {40u, true},
                                       {59u, true},
                                       {60u, false}})
    EXPECT_EQ(contains(offset), inside) << offset;

  ASSERT_TRUE(ranges.trim(file.get(), 50));
  EXPECT_TRUE(contains(49));
  EXPECT_FALSE(contains(50));
  ASSERT_TRUE(ranges.trim(file.get(), 40));
  EXPECT_FALSE(contains(40));
  EXPECT_TRUE(contains(19));
  ASSERT_TRUE(ranges.clear(file.get()));
  EXPECT_EQ(fgetxattr(file.get(), "trusted.idshift.lf", nullptr, 0), -1);

  ASSERT_EQ(fsetxattr(file.get(), "trusted.idshift.lf", "\x80", 1, 0), 0);
  EXPECT_FALSE(ranges.load(file.get()));
}

}  // namespace
