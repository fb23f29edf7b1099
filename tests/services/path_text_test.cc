#include "services/path_text.h"

#include <gtest/gtest.h>

TEST(PathText, BaseNameAndTheRest) {
  const struct {
    std::string path;
    const char* baseName;
    const char* trimmed;
  } rows[] = {{"/a/b", "b", "/a"}, {"/a", "a", "/"},      {"/", "/", "/"},   {"a", "a", "a"},
              {"", "", ""},        {"/a/b/", "", "/a/b"}, {"ab", "ab", "ab"}};
  for (const auto& row : rows) {
    EXPECT_EQ(baseName(row.path), row.baseName) << row.path;
    std::string path = row.path;
    trimLastComponent(path);
    EXPECT_EQ(path, row.trimmed) << row.path;
  }
}
