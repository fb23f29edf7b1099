#include "services/properties.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "services/exceptions.h"
#include "services/paths.h"
#include "services/setting_keys.h"
#include "services/setting_rules.h"
#include "services/text.h"

namespace orvs {
namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr const char* kBlanks = " \t\r\n\v\f";

[[noreturn]] void throwBadFile(const std::string& where, const std::string& reason) {
  throw ORVSException(where + ": " + reason, "ORVSException", -1);
}

struct FileText {
  bool present = false;
  std::string text;
};

// A missing file is no error; a file that exists and cannot be read is one.
FileText readFile(const std::string& path) {
  errno = 0;
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    if (errno == ENOENT)
      return {};
    throwBadFile(path, strerror(errno));
  }
  FileText file{.present = true, .text = {}};
  char buffer[4096];
  errno = 0;
  do {
    stream.read(buffer, sizeof buffer);
    file.text.append(buffer, static_cast<size_t>(stream.gcount()));
  } while (stream);
  if (stream.bad() || errno == EISDIR)
    throwBadFile(path, strerror(errno != 0 ? errno : EIO));
  return file;
}

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos)
    return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// The numbers of the lines that hold a key, in order. The parser hands out the pairs in that order,
// but not their lines. With this list load() can name the line of the nth pair.
std::vector<size_t> keyLineNumbers(const std::string& text) {
  std::vector<size_t> numbers;
  std::istringstream stream(text);
  std::string line;
  for (size_t number = 1; std::getline(stream, line); ++number) {
    line = trimmed(line);
    if (!line.empty() && std::strchr(";#[", line.front()) == nullptr)
      numbers.push_back(number);
  }
  return numbers;
}

StringListPtr listFromFile(const std::string& path) {
  auto names = boost::make_shared<StringList>();
  std::istringstream stream(readFile(path).text);
  std::string line;
  while (std::getline(stream, line)) {
    line = trimmed(line);
    if (!line.empty() && line.front() != '#')
      names->push_back(line);
  }
  return names;
}

StringListPtr listFromText(const std::string& text) {
  constexpr const char* kSeparators = ", \t\r\n\v\f";
  auto names = boost::make_shared<StringList>();
  size_t begin = text.find_first_not_of(kSeparators);
  while (begin != std::string::npos) {
    const size_t end = text.find_first_of(kSeparators, begin);
    names->push_back(text.substr(begin, end - begin));
    begin = text.find_first_not_of(kSeparators, end);
  }
  return names;
}

}  // namespace

void Properties::load(const std::string& path) {
  using boost::property_tree::ptree;
  const FileText file = readFile(path);
  if (!file.present)
    return;
  ptree tree;
  try {
    std::istringstream stream(file.text);
    boost::property_tree::read_ini(stream, tree);
  } catch (const boost::property_tree::ini_parser_error& error) {
    throwBadFile(path + ":" + std::to_string(error.line()), error.message());
  }

  const std::vector<size_t> lines = keyLineNumbers(file.text);
  size_t pairs = 0;
  const auto store = [&](const std::string& key, const std::string& value) {
    const size_t line = pairs < lines.size() ? lines[pairs] : 0;
    ++pairs;
    const std::string where = path + ":" + std::to_string(line);
    if (const std::string fault = settingFault(key, value); !fault.empty())
      throwBadFile(where, fault);
    // The parser looks for duplicates per section and with case. Here "Log.Level" and "level" in
    // the section "[log]" are one key.
    if (!table.emplace(key, value).second)
      throwBadFile(where, "duplicate key " + key);
  };
  for (const auto& [name, node] : tree) {
    if (node.empty()) {
      store(name, node.data());
      continue;
    }
    for (const auto& [key, value] : node)
      store(std::string(name).append(".").append(key), value.data());
  }
}

bool Properties::getBool(const std::string& key, bool defaultValue) {
  Lock lock(mutex);
  lock.doLock();
  auto cached = loweredCache.find(key);
  if (cached == loweredCache.end()) {
    const auto found = table.find(key);
    cached = loweredCache.emplace(key, lower(found == table.end() ? empty : found->second)).first;
  }
  const std::string& value = cached->second;
  if (value == "true" || value == "yes" || value == "1")
    return true;
  if (value == "false" || value == "no" || value == "0")
    return false;
  return defaultValue;
}

// Required: getString() keeps its values in a cache, although the table has the same values. A key
// that was asked for keeps its value until set(), even if a later load() adds that key to the
// table.
std::string Properties::getString(const std::string& key) {
  Lock lock(mutex);
  lock.doLock();
  auto cached = stringCache.find(key);
  if (cached == stringCache.end()) {
    const auto found = table.find(key);
    cached = stringCache.emplace(key, found == table.end() ? empty : found->second).first;
  }
  return cached->second;
}

StringListPtr Properties::getValueList(const std::string& key, const std::string& source) {
  Lock lock(mutex);
  lock.doLock();
  if (const auto cached = listCache.find(key); cached != listCache.end())
    return cached->second;
  const auto found = table.find(key);
  const std::string text = found == table.end() || found->second.empty() ? source : found->second;
  lock.unLock();

  StringListPtr list = text.starts_with(kFilePrefix) ? listFromFile(text.substr(kFilePrefix.size()))
                                                     : listFromText(text);
  lock.doLock();
  listCache[key] = list;
  return list;
}

void Properties::set(const std::string& key, const std::string& value) {
  Lock lock(mutex);
  lock.doLock();
  table[key] = value;
  stringCache.erase(key);
  loweredCache.erase(key);
  listCache.erase(key);
  changed = true;
}

StringList Properties::unknownKeys() {
  Lock lock(mutex);
  lock.doLock();
  StringList keys;
  for (const auto& [key, value] : table) {
    if (isUnknownSetting(key))
      keys.push_back(key);
  }
  return keys;
}

bool Properties::isChanged() {
  Lock lock(mutex);
  lock.doLock();
  return changed;
}

namespace {

class LoadedProperties : public Properties {
 public:
  LoadedProperties() { load(paths::kSettings); }
};

}  // namespace

Properties& Props(bool /*reserved0*/, bool /*reserved1*/) {
  // A static whose constructor throws is constructed again by the next call. So every later call
  // reads the file again, and fails as the first did while the file stays as it is.
  static LoadedProperties properties;
  return properties;
}

std::string loadSetting(const char* key, bool reserved0, bool reserved1) {
  return Props(reserved0, reserved1).getString(key);
}

bool joined() {
  return !loadSetting(SETTING_DOMAIN_NAME, false, false).empty();
}

}  // namespace orvs
