#include "idmap/name_map.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

NameMap loaded(const std::string& text) {
  const std::string path = testing::TempDir() + "namemap." + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << text;
  NameMap map = {{"kept", "z"}};
  EXPECT_EQ(LoadNameMap(path.c_str(), map), 0);
  std::filesystem::remove(path);
  EXPECT_EQ(map.erase("kept"), 1u);
  return map;
}

}  // namespace

TEST(NameMapFile, Rows) {
  const struct {
    const char* about;
    std::string text;
    NameMap expected;
  } rows[] = {{"empty", "", {}},
              {"no final line feed", "ann annz", {}},
              {"the last line alone is lost", "ann annz\nbob bobz", {{"ann", "annz"}}},
              {"third word", "ann annz more\n", {{"ann", "annz"}}},
              {"one word", "ann\nbob \n", {}},
              {"blank lines", "\n \t \nann annz\n\n", {{"ann", "annz"}}},
              {"every white space", "\v\f ann\t\r\v\fannz\r\n", {{"ann", "annz"}}},
              {"no comments", "# ann annz\n", {{"#", "ann"}}},
              {"last line wins", "ann one\nann two\n", {{"ann", "two"}}},
              {"case", "Ann one\nann two\n", {{"Ann", "one"}, {"ann", "two"}}},
              {"NUL is a byte of a name", "a\0b c\0\n"s, {{"a\0b"s, "c\0"s}}},
              {"no bytes are white space but six", "a\x85 \xa0z\n", {{"a\x85", "\xa0z"}}},
              {"long words",
               std::string(2000000, 'x') + " y\nann annz\n",
               {{std::string(2000000, 'x'), "y"}, {"ann", "annz"}}}};
  for (const auto& row : rows)
    EXPECT_TRUE(loaded(row.text) == row.expected) << row.about;
}

TEST(NameMapFile, WhatCannotBeReadIsNotLoaded) {
  NameMap map;
  EXPECT_EQ(LoadNameMap(nullptr, map), 0);
  for (const char* path : {"/missing", "/", ""})
    EXPECT_EQ(LoadNameMap(path, map), 6) << path;
  EXPECT_TRUE(map.empty());
}
