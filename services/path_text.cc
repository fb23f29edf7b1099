#include "services/path_text.h"

#include <cstring>

namespace {

// memrchr searches many bytes at a time, std::string_view::rfind one. The walk cuts a path for each
// entry.
size_t lastSlash(std::string_view path) {
  const void* slash = memrchr(path.data(), '/', path.size());
  return slash == nullptr ? std::string_view::npos
                          : static_cast<size_t>(static_cast<const char*>(slash) - path.data());
}

}  // namespace

std::string_view baseNameView(std::string_view path) {
  const size_t slash = lastSlash(path);
  if (slash == std::string_view::npos || path.size() < 2)
    return path;
  return path.substr(slash + 1);
}

std::string baseName(const std::string& path) {
  return std::string(baseNameView(path));
}

void trimLastComponent(std::string& path) {
  const size_t slash = lastSlash(path);
  if (slash == std::string_view::npos)
    return;
  path.resize(slash == 0 ? 1 : slash);
}
