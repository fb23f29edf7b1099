#include "idmap/name_map.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

// A directory for one test's files; goes with everything in it.
class NameMapFile : public testing::Test {
 protected:
  NameMapFile() {
    std::string nameTemplate = testing::TempDir() + "namemap.XXXXXX";
    directory = mkdtemp(nameTemplate.data());
  }
  ~NameMapFile() override { std::filesystem::remove_all(directory); }

  NameMap loaded(const std::string& text) {
    const std::string path = directory + "/map";
    std::ofstream(path, std::ios::binary) << text;
    NameMap map;
    EXPECT_EQ(LoadNameMap(path.c_str(), map), 0);
    return map;
  }

  std::string directory;
};

}  // namespace

TEST_F(NameMapFile, Rows) {
  const struct {
    const char* about;
    std::string text;
    NameMap expected;
  } rows[] = {{"empty", "", {}},
              {"pair", "ann annz\n", {{"ann", "annz"}}},
              {"no final line feed", "ann annz", {}},
              {"the last line alone is lost", "ann annz\nbob bobz", {{"ann", "annz"}}},
              {"third word", "ann annz more\n", {{"ann", "annz"}}},
              {"one word", "ann\nbob \n", {}},
              {"words do not continue on the next line", "ann\nannz\n", {}},
              {"blank lines", "\n \t \nann annz\n\n", {{"ann", "annz"}}},
              {"every white space", "\v\f ann\t\r\v\fannz\r\n", {{"ann", "annz"}}},
              {"no comments", "# ann annz\n", {{"#", "ann"}}},
              {"last line wins", "ann one\nann two\n", {{"ann", "two"}}},
              {"case", "Ann one\nann two\n", {{"Ann", "one"}, {"ann", "two"}}},
              {"NUL is a byte of a name", "a\0b c\0\n"s, {{"a\0b"s, "c\0"s}}},
              {"no bytes are white space but six", "a\x85 \xa0z\n", {{"a\x85", "\xa0z"}}},
              {"long words",
               std::string(2000000, 'x') + " " + std::string(1000000, 'y') + "\nann annz\n",
               {{std::string(2000000, 'x'), std::string(1000000, 'y')}, {"ann", "annz"}}}};
  for (const auto& row : rows)
    EXPECT_TRUE(loaded(row.text) == row.expected) << row.about;
}

TEST_F(NameMapFile, EntriesStayUnlessALineReplacesThem) {
  const std::string path = directory + "/map";
  std::ofstream(path) << "ann new\n";
  NameMap map = {{"ann", "old"}, {"bob", "bobz"}};
  EXPECT_EQ(LoadNameMap(path.c_str(), map), 0);
  EXPECT_EQ(map, (NameMap{{"ann", "new"}, {"bob", "bobz"}}));
}

TEST_F(NameMapFile, WhatCannotBeReadIsNotLoaded) {
  NameMap map;
  EXPECT_EQ(LoadNameMap(nullptr, map), 0);
  EXPECT_EQ(LoadNameMap((directory + "/missing").c_str(), map), 6);
  EXPECT_EQ(LoadNameMap(directory.c_str(), map), 6);
  EXPECT_EQ(LoadNameMap("", map), 6);
  EXPECT_TRUE(map.empty());
}

TEST_F(NameMapFile, AFifoIsReadToItsEnd) {
  const std::string path = directory + "/fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&path] {
    std::ofstream fifo(path);
    fifo << "ann an" << std::flush << "nz\nbob bobz\n";
  });
  NameMap map;
  EXPECT_EQ(LoadNameMap(path.c_str(), map), 0);
  writer.join();
  EXPECT_EQ(map, (NameMap{{"ann", "annz"}, {"bob", "bobz"}}));
}
