// The text of a top directory, edited a second way: forwards, byte by byte, into a new text.
#include "driver/top_dirs.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// Each "/./" but a leading one loses its dot. What was just written joins into the next match.
std::string withoutDots(const std::string& path) {
  std::string out;
  for (size_t i = 0; i < path.size(); ++i) {
    out += path[i];
    if (out.size() > 3 && out.ends_with("/./"))
      out.resize(out.size() - 2);
  }
  return out.starts_with("./") ? out.substr(2) : out;
}

// Each "/../" takes the name before it along, or itself alone at the front.
std::string withoutParents(const std::string& path) {
  std::string out;
  for (size_t i = 0; i < path.size(); ++i) {
    out += path[i];
    if (!out.ends_with("/../"))
      continue;
    out.resize(out.size() - 4);
    const bool isFront = out.empty();
    while (!out.empty() && out.back() != '/')
      out.pop_back();
    if (isFront)
      out = "/";
  }
  return out;
}

std::string normalizePlainly(std::string path, const std::optional<std::string>& workingDir) {
  if (workingDir && !path.empty() && path[0] != '/')
    path = *workingDir + (workingDir->back() == '/' ? "" : "/") + path;
  path = withoutDots(path);
  if (path.ends_with("/."))
    path.resize(path.size() - 2);
  path = withoutParents(path);
  if (path.size() > 3 && path.ends_with("/..")) {
    path.resize(path.size() - 3);
    const size_t slash = path.rfind('/');
    path = slash == std::string::npos ? "" : slash == 0 ? "/" : path.substr(0, slash);
  }
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

}  // namespace

void tryInput(const std::string& path) {
  for (const auto& workingDir : {std::optional<std::string>(), {"/"}, {"/tmp/w"}})
    require(normalizeTopDir(path, workingDir) == normalizePlainly(path, workingDir), "both agree");
}
