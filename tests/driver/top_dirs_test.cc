#include "driver/top_dirs.h"

#include <gtest/gtest.h>

TEST(NormalizeTopDir, Rows) {
  const struct {
    const char* argument;
    const char* inWork;     // working directory /tmp/w
    const char* inRoot;     // working directory /
    const char* inNowhere;  // no working directory
  } rows[] = {
      {".", "/tmp/w", "", "."},         {"..", "/tmp", "/..", ".."},
      {"../..", "/", "/..", ""},        {"./a/", "/tmp/w/a", "/./a", "a"},
      {"a/..", "/tmp/w", "/", ""},      {"a/../b", "/tmp/w/b", "/b", "b"},
      {"/./a", "/./a", "/./a", "/./a"}, {"/..", "/..", "/..", "/.."},
      {"/../../a", "/a", "/a", "/a"},   {"/a/..b/c", "/a/..b/c", "/a/..b/c", "/a/..b/c"},
      {"///", "/", "/", "/"},           {"/.", "", "", ""},
  };
  for (const auto& [argument, inWork, inRoot, inNowhere] : rows) {
    EXPECT_EQ(normalizeTopDir(argument, "/tmp/w"), inWork) << argument;
    EXPECT_EQ(normalizeTopDir(argument, "/"), inRoot) << argument;
    EXPECT_EQ(normalizeTopDir(argument, std::nullopt), inNowhere) << argument;
  }
}
