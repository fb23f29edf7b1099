#include "services/path_text.h"

std::string_view baseNameView(std::string_view path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || path.size() < 2)
    return path;
  return path.substr(slash + 1);
}

std::string baseName(const std::string& path) {
  return std::string(baseNameView(path));
}

void trimLastComponent(std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return;
  path.resize(slash == 0 ? 1 : slash);
}
