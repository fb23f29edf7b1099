#include "driver/top_dirs.h"

#include <gtest/gtest.h>

TEST(NormalizeTopDir, Rows) {
  const struct {
    const char* argument;
    const char* inWork;  // working directory /tmp/w
    const char* inRoot;  // working directory /
  } rows[] = {
      {".", "/tmp/w", ""},        {"..", "/tmp", "/.."},
      {"../..", "/", "/.."},      {"./a", "/tmp/w/a", "/./a"},
      {"/a/./b", "/a/b", "/a/b"}, {"/./a", "/./a", "/./a"},
      {"/a/b/..", "/a", "/a"},    {"/a/..", "/", "/"},
      {"/..", "/..", "/.."},      {"/../../a", "/a", "/a"},
      {"/a/b/../", "/a", "/a"},   {"/a/..b/c", "/a/..b/c", "/a/..b/c"},
      {"///", "/", "/"},          {"/.", "", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(normalizeTopDir(row.argument, "/tmp/w"), row.inWork) << row.argument;
    EXPECT_EQ(normalizeTopDir(row.argument, "/"), row.inRoot) << row.argument;
  }
}

TEST(NormalizeTopDir, WithoutAWorkingDirectoryTextStaysRelative) {
  const std::pair<const char*, const char*> rows[] = {
      {"a", "a"}, {"./a/", "a"}, {"a/..", ""}, {"a/../b", "b"}, {"..", ".."}, {"a/b/..", "a"}};
  for (const auto& [argument, expected] : rows)
    EXPECT_EQ(normalizeTopDir(argument, std::nullopt), expected) << argument;
}
