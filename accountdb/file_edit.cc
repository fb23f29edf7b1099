#include "accountdb/file_edit.h"

#include <optional>
#include <string>

namespace orvs {
namespace {

bool rewriteWithIds(DBFile& file, const IdChange& change) {
  const std::optional<std::string> text = file.readText();
  const std::optional<std::string> changed = text ? withIds(*text, change) : std::nullopt;
  return changed && file.replaceText(*changed);
}

}  // namespace

bool setIds(const char* path, const IdChange& change) {
  DBFile file(path);
  const bool done = file.lock() && file.open() && rewriteWithIds(file, change);
  file.unlock();
  return done;
}

}  // namespace orvs
