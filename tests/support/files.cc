#include "tests/support/files.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

void orDie(bool done, const std::string& what) {
  if (done)
    return;
  std::fprintf(stderr, "test support: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

std::string ownerOf(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0)
    return "gone";
  return std::to_string(info.st_uid) + ":" + std::to_string(info.st_gid);
}
