#include "services/path_text.h"

#include <gtest/gtest.h>

TEST(PathText, BaseName) {
  const struct {
    const char* path;
    const char* expected;
  } rows[] = {{"/a/b", "b"}, {"/a", "a"},  {"/", "/"},  {"a", "a"},
              {"", ""},      {"a/b/", ""}, {"ab", "ab"}};
  for (const auto& row : rows)
    EXPECT_EQ(baseName(row.path), row.expected) << row.path;
}

TEST(PathText, TrimLastComponent) {
  const struct {
    const char* path;
    const char* expected;
  } rows[] = {{"/a/b", "/a"}, {"/a", "/"}, {"/", "/"}, {"a", "a"}, {"", ""}, {"/a/b/", "/a/b"}};
  for (const auto& row : rows) {
    std::string path = row.path;
    trimLastComponent(path);
    EXPECT_EQ(path, row.expected) << row.path;
  }
}
