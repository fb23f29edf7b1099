// Any text as a top directory. The result is absolute if there is a working directory, has only
// leading dots, and is never longer than the text and the working directory together.
#include "driver/top_dirs.h"
#include "tests/fuzz/fuzz_input.h"

void tryInput(const std::string& path) {
  for (const auto& workingDir : {std::optional<std::string>(), {"/"}, {"/tmp/w"}}) {
    const std::string result = normalizeTopDir(path, workingDir);
    require(!path.empty() || result.empty(), "nothing stays nothing");
    require(!workingDir || result.empty() || result[0] == '/', "absolute");
    require(result.size() <= (workingDir ? workingDir->size() + 1 : 0) + path.size(), "not longer");
    require(result == "/" || !result.ends_with('/'), "no slash at its end");
    require(result.find("/./", 1) == std::string::npos, "no dots but leading ones");
  }
}
