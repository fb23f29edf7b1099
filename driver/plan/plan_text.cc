#include "driver/plan/plan_text.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <utility>

#include "services/text.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "idshift-plan";
constexpr uint32_t kVersion = 1;
constexpr const char* kTooMuch = "has more members in one place than a plan can have";
constexpr const char* kRowArrays[] = {"users", "groups", "accounts"};
constexpr std::pair<int32_t, const char*> kResolutions[] = {
    {RESOLUTION_NONE, "none"},
    {RESOLUTION_USE_ZONE_ID, "use-zone-id"},
    {RESOLUTION_ASSIGN_NEW_ID, "assign-new-id"}};

// ---- Values to text

void putBytes(Json& object, const std::string& key, const std::string& bytes) {
  if (isUtf8(bytes))
    object[key] = bytes;
  else
    object[key + "Bytes"] = base64(bytes);
}

// Appends "name". There are many rows, so they are put together here. The library is asked only for
// names that need escapes.
std::string namePart(const std::string& name) {
  const bool isPlain = std::all_of(name.begin(), name.end(), [](char c) {
    return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
  });
  if (isPlain)
    return "\"name\":\"" + name + "\"";
  Json shown = Json::object();
  putBytes(shown, "name", name);
  const std::string text = shown.dump();
  return text.substr(1, text.size() - 2);
}

std::string accountPart(const char* key, const std::string& name, uint32_t id) {
  return std::string("\"") + key + "\":{" + namePart(name) + ",\"id\":" + std::to_string(id) + "},";
}

std::string rowOf(const ConflictRecord& record) {
  std::string row = "{" + accountPart("local", record.localName, record.localId) +
                    accountPart("zone", record.zoneName, record.zoneId);
  for (const auto& [resolution, word] : kResolutions) {
    if (resolution == record.resolution)
      row += std::string("\"resolution\":\"") + word + "\",";
  }
  return row + "\"newId\":" + std::to_string(record.newId) + "}";
}

std::string idsPart(const char* key, OwnerIds ids, bool isGroup) {
  const std::string uid = isGroup ? "" : "\"uid\":" + std::to_string(ids.uid) + ",";
  return std::string("\"") + key + "\":{" + uid + "\"gid\":" + std::to_string(ids.gid) + "}";
}

std::string rowOf(const PlannedUpdate& update) {
  return std::string("{\"kind\":\"") + (update.isGroup ? "group" : "passwd") + "\"," +
         namePart(update.name) + "," + idsPart("old", update.oldIds, update.isGroup) + "," +
         idsPart("new", update.newIds, update.isGroup) + "}";
}

const ConflictRecord& recordOf(const ConflictMap::value_type& entry) {
  return entry.second;
}
const PlannedUpdate& recordOf(const PlannedUpdate& update) {
  return update;
}

template <class Rows>
void appendRows(std::string& text, const char* key, const Rows& rows) {
  text += std::string(",\n \"") + key + "\": [";
  const char* separator = "\n  ";
  for (const auto& row : rows) {
    text += separator + rowOf(recordOf(row));
    separator = ",\n  ";
  }
  text += "]";
}

// ---- Text to values

struct BadPlan : std::runtime_error {
  using std::runtime_error::runtime_error;
};

const Json& member(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end())
    throw BadPlan(std::string("lacks the key \"") + key + "\"");
  return *found;
}

void allowOnly(const Json& object, std::initializer_list<std::string_view> allowed) {
  if (!object.is_object())
    throw BadPlan("has no object where one is required");
  for (const auto& item : object.items()) {
    if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end())
      throw BadPlan("has the unknown key " + shownText(item.key()));
  }
}

std::string textOf(const Json& value, const char* key) {
  if (!value.is_string())
    throw BadPlan(std::string("has no string in \"") + key + "\"");
  return value.get<std::string>();
}

// The id in a number. The library itself would silently convert negative, fractional, boolean and
// too large values.
uint32_t idOf(const Json& value, const char* key) {
  if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX)
    throw BadPlan(std::string("has no id from 0 to 4294967295 in \"") + key + "\"");
  return value.get<uint32_t>();
}

uint32_t idAt(const Json& object, const char* key) {
  return idOf(member(object, key), key);
}

// The bytes of `key`, or of its twin "...Bytes" in base64. Exactly one of the two must be there,
// the twin only for bytes that are not UTF-8.
std::string bytesAt(const Json& object, const char* key) {
  const std::string twin = std::string(key) + "Bytes";
  if (!object.contains(twin))
    return textOf(member(object, key), key);
  const auto bytes = bytesOfBase64(textOf(object[twin], twin.c_str()));
  if (!bytes || isUtf8(*bytes) || object.contains(key))
    throw BadPlan("has an invalid value in \"" + twin + "\"");
  return *bytes;
}

void takeAccount(const Json& account, std::string& name, uint32_t& id) {
  allowOnly(account, {"name", "nameBytes", "id"});
  name = bytesAt(account, "name");
  id = idAt(account, "id");
}

void takeConflict(const Json& row, ConflictMap& conflicts) {
  allowOnly(row, {"local", "zone", "resolution", "newId"});
  ConflictRecord record;
  takeAccount(member(row, "local"), record.localName, record.localId);
  takeAccount(member(row, "zone"), record.zoneName, record.zoneId);
  const std::string named = textOf(member(row, "resolution"), "resolution");
  for (const auto& [resolution, word] : kResolutions) {
    if (named == word)
      record.resolution = resolution;
  }
  if (record.resolution == RESOLUTION_NONE)
    throw BadPlan("has an unknown resolution");
  record.newId = idAt(row, "newId");
  if (!conflicts.emplace(record.localId, record).second)
    throw BadPlan("has two conflicts for the id " + std::to_string(record.localId));
}

OwnerIds idsAt(const Json& row, const char* key, bool isGroup) {
  const Json& ids = member(row, key);
  if (isGroup)
    allowOnly(ids, {"gid"});
  else
    allowOnly(ids, {"uid", "gid"});
  return {isGroup ? 0 : idAt(ids, "uid"), idAt(ids, "gid")};
}

void takeUpdate(const Json& row, std::vector<PlannedUpdate>& accounts) {
  allowOnly(row, {"kind", "name", "nameBytes", "old", "new"});
  const std::string kind = textOf(member(row, "kind"), "kind");
  if (kind != "passwd" && kind != "group")
    throw BadPlan("has an unknown kind of account");
  const bool isGroup = kind == "group";
  accounts.push_back(
      {isGroup, bytesAt(row, "name"), idsAt(row, "old", isGroup), idsAt(row, "new", isGroup)});
}

PlanOptions optionsOf(const Json& options) {
  allowOnly(options, {"range", "usermap", "groupmap"});
  const Json& range = member(options, "range");
  if (!range.is_array() || range.size() != 2)
    throw BadPlan("does not have two ids in \"range\"");
  PlanOptions result;
  result.range = {idOf(range[0], "range"), idOf(range[1], "range")};
  const auto digestAt = [&options](const char* key) {
    std::string digest = options.contains(key) ? textOf(options[key], key) : "";
    if (!digest.empty() &&
        (digest.size() != 64 || digest.find_first_not_of("0123456789abcdef") != digest.npos))
      throw BadPlan(std::string("has no SHA-256 in \"") + key + "\"");
    return digest;
  };
  result.userMap = digestAt("usermap");
  result.groupMap = digestAt("groupmap");
  return result;
}

void checkFormat(const Json& value) {
  if (!value.is_string() || value != kFormat)
    throw BadPlan(std::string("has another format than ") + kFormat);
}

void checkVersion(const Json& value) {
  if (!value.is_number_unsigned() || value != kVersion)
    throw BadPlan("has another version than " + std::to_string(kVersion));
}

// The library calls this for each piece of the text. It turns each finished row into a value at
// once and lets the library forget the row, so memory holds the rows as values and not as a tree.
// It counts the values of each row, and those outside the rows: a text of many small pieces is
// refused before it takes memory. It also refuses double keys, which the library accepts. finish()
// then reads what is left: the members outside the rows.
class PlanParser {
 public:
  bool operator()(int depth, Json::parse_event_t event, Json& parsed) {
    switch (event) {
      case Json::parse_event_t::key:
        takeKey(depth, parsed.get_ref<const std::string&>());
        return true;
      case Json::parse_event_t::object_start:
      case Json::parse_event_t::array_start:
        countValue(depth, event == Json::parse_event_t::object_start);
        keys.emplace_back();
        return true;
      case Json::parse_event_t::array_end:
        keys.pop_back();
        return true;
      case Json::parse_event_t::object_end:
        keys.pop_back();
        return depth != kRowDepth || !isInRows || takeRow(parsed);
      case Json::parse_event_t::value:
        countValue(depth, false);
        if (depth == 1 && topKey == "format")
          checkFormat(parsed);
        if (depth == 1 && topKey == "version")
          checkVersion(parsed);
        return true;
    }
    return true;
  }

  ApprovedPlan finish(const Json& document) {
    allowOnly(document, {"format", "version", "domain", "domainBytes", "host", "hostBytes", "date",
                         "options", "users", "groups", "accounts"});
    checkFormat(member(document, "format"));
    checkVersion(member(document, "version"));
    plan.domain = bytesAt(document, "domain");
    plan.host = bytesAt(document, "host");
    plan.date = textOf(member(document, "date"), "date");
    plan.options = optionsOf(member(document, "options"));
    for (const char* rows : kRowArrays) {
      if (!member(document, rows).is_array() || !member(document, rows).empty())
        throw BadPlan(std::string("has no list of objects in \"") + rows + "\"");
    }
    return std::move(plan);
  }

 private:
  static constexpr int kRowDepth = 2;
  static constexpr size_t kMostValues = 20;  // of a row, and of everything outside the rows

  void takeKey(int depth, const std::string& name) {
    std::vector<std::string>& known = keys.back();
    if (std::find(known.begin(), known.end(), name) != known.end())
      throw BadPlan("has the key " + shownText(name) + " twice");
    if (known.size() == kMostValues)
      throw BadPlan(kTooMuch);
    known.push_back(name);
    if (depth == 1) {
      topKey = name;
      isInRows =
          std::find(std::begin(kRowArrays), std::end(kRowArrays), name) != std::end(kRowArrays);
    }
  }

  void countValue(int depth, bool isObject) {
    const bool isInside = isInRows && depth >= kRowDepth;
    if (isInside && depth == kRowDepth) {
      rowValues = 0;
      if (!isObject)
        throw BadPlan("has no list of objects in \"" + topKey + "\"");
    }
    if (++(isInside ? rowValues : otherValues) > kMostValues)
      throw BadPlan(kTooMuch);
  }

  // Turns a row into a value. Returns false, which makes the library forget the row.
  bool takeRow(const Json& row) {
    if (topKey == "accounts")
      takeUpdate(row, plan.accounts);
    else
      takeConflict(row, topKey == "users" ? plan.users : plan.groups);
    return false;
  }

  ApprovedPlan plan;
  std::vector<std::vector<std::string>> keys;  // of each open object; empty for an array
  std::string topKey;
  bool isInRows = false;  // inside the value of one of kRowArrays
  size_t rowValues = 0;
  size_t otherValues = 0;
};

std::string dumpForMessage(const Json& value) {
  return value.dump(-1, ' ', true);
}

}  // namespace

std::string formatPlanText(const ApprovedPlan& plan) {
  Json head = {{"format", kFormat}, {"version", kVersion}};
  putBytes(head, "domain", plan.domain);
  putBytes(head, "host", plan.host);
  head["date"] = plan.date;
  Json options = {{"range", {plan.options.range.low, plan.options.range.high}}};
  if (!plan.options.userMap.empty())
    options["usermap"] = plan.options.userMap;
  if (!plan.options.groupMap.empty())
    options["groupmap"] = plan.options.groupMap;
  head["options"] = std::move(options);
  std::string text = head.dump();
  text.pop_back();  // the closing brace: the rows follow
  appendRows(text, "users", plan.users);
  appendRows(text, "groups", plan.groups);
  appendRows(text, "accounts", plan.accounts);
  return text + "}\n";
}

PlanReading readPlanText(std::string_view text) {
  if (text.size() > kLongestPlan)
    return {std::nullopt, "is longer than " + std::to_string(kLongestPlan >> 20) + " MiB"};
  try {
    PlanParser parser;
    const Json document =
        Json::parse(text, [&parser](int depth, Json::parse_event_t event, Json& parsed) {
          return parser(depth, event, parsed);
        });
    return {parser.finish(document), ""};
  } catch (const BadPlan& bad) {
    return {std::nullopt, bad.what()};
  } catch (const Json::parse_error& error) {
    return {std::nullopt, "is cut short or not JSON, at byte " + std::to_string(error.byte)};
  } catch (const Json::exception&) {
    return {std::nullopt, "is not a plan in JSON"};
  }
}

std::string shownConflict(const ConflictRecord& record) {
  return dumpForMessage(Json::parse(rowOf(record)));
}
std::string shownAccount(const PlannedUpdate& update) {
  return dumpForMessage(Json::parse(rowOf(update)));
}
std::string shownText(const std::string& bytes) {
  return dumpForMessage(isUtf8(bytes) ? bytes : "base64:" + base64(bytes));
}
