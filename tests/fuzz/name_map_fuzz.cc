// The name map loader reads any bytes as formatted stream input would.
#include <sstream>

#include "idmap/name_map.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

NameMap readByStreams(const std::string& text) {
  NameMap map;
  std::istringstream file(text);
  for (std::string line; std::getline(file, line) && !file.eof();) {
    std::istringstream words(line);
    std::string local;
    std::string zone;
    if (words >> local >> zone)
      map[local] = zone;
  }
  return map;
}

}  // namespace

void tryInput(const std::string& text) {
  NameMap map;
  require(LoadNameMap(InputFile(text).path().c_str(), map) == 0, "any file can be loaded");
  require(map == readByStreams(text), "both readers find the same pairs");
}
