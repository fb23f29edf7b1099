// The settings: a table of strings with case-insensitive keys, read once from the settings file.
//
// The file is INI: `key = value`; a `[section]` puts `section.` in front of its keys. A missing
// file counts as an empty one. The first Props() call throws an ORVSException for a malformed line,
// a duplicate key, a value that setting_rules.h refuses (each with file and line), or a file that
// cannot be read.
//
// Three caches keep what lookups have derived from a value; set() drops a key from all three. A
// mutex guards the tables. It is not held while the file of a list is read.
#pragma once

#include <strings.h>

#include <list>
#include <map>
#include <string>

#include <boost/shared_ptr.hpp>

#include "services/mutex.h"

namespace orvs {

struct StringCaseLessThan {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};

using StringList = std::list<std::string>;
using StringListPtr = boost::shared_ptr<const StringList>;

class Properties {
 public:
  Properties() = default;

  // Adds the settings of an INI file. Throws ORVSException with file and line.
  void load(const std::string& path);

  // "true", "yes", "1" and "false", "no", "0" in any case; everything else is `defaultValue`.
  bool getBool(const std::string& key, bool defaultValue);

  // The value, or an empty string for an absent key.
  std::string getString(const std::string& key);

  // The names of a list setting; never null. A key that is absent or empty has the value `source`.
  // A value is names separated by commas or blanks, or "file:PATH". Such a file has one name a
  // line, "#" starts a comment line, and a missing file is an empty list. The file is read once.
  StringListPtr getValueList(const std::string& key, const std::string& source);

  // Stores a value, drops the key from the caches, and marks the object as changed.
  void set(const std::string& key, const std::string& value);

  bool isChanged();

  // The keys that setting_rules.h does not know.
  StringList unknownKeys();

 private:
  using StringTable = std::map<std::string, std::string, StringCaseLessThan>;

  StringTable table;
  StringTable stringCache;   // values as getString returned them
  StringTable loweredCache;  // lower-cased values, for getBool
  std::map<std::string, StringListPtr, StringCaseLessThan> listCache;
  Mutex mutex;
  const std::string empty;
  bool changed = false;
};

// The process's settings, read from the settings file on first use. The flags are reserved and
// always false.
Properties& Props(bool reserved0, bool reserved1);

// The value stored under `key`, or an empty string.
std::string loadSetting(const char* key, bool reserved0, bool reserved1);

// Whether this machine is joined to a domain.
bool joined();

}  // namespace orvs
