// Runs a fuzz target over the files of a folder, without a fuzzer. A check that fails aborts;
// otherwise the last line is for scripts/fault-table.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fuzz/fuzz_input.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    fprintf(stderr, "%s\n", entry.path().c_str());
    std::ifstream stream(entry.path(), std::ios::binary);
    tryInput({std::istreambuf_iterator<char>(stream), {}});
    ++count;
  }
  printf("FAULT HostileBytes.%s cases=%d violations=0\n",
         std::filesystem::path(argv[1]).filename().c_str(), count);
  return count > 0 ? 0 : 1;
}
