#include "services/agent/zone_wire.h"

#include <set>
#include <utility>
#include <vector>

#include "services/text.h"

#include <nlohmann/json.hpp>

namespace orvs::wire {
namespace {

using Json = nlohmann::json;

constexpr const char* kGetUser = "io.systemd.UserDatabase.GetUserRecord";
constexpr const char* kGetGroup = "io.systemd.UserDatabase.GetGroupRecord";
constexpr const char* kGetMemberships = "io.systemd.UserDatabase.GetMemberships";
constexpr const char* kGetInfo = "org.varlink.service.GetInfo";

// Why a message is malformed. Thrown and caught in this file.
struct Malformed {
  std::string why;
};

const char* nameKey(Kind kind) {
  return kind == Kind::User ? "userName" : "groupName";
}
const char* idKey(Kind kind) {
  return kind == Kind::User ? "uid" : "gid";
}

// Refuses deep nesting and duplicate keys. The JSON library accepts both; of duplicates the last
// wins.
class Watch {
 public:
  bool operator()(Json::parse_event_t event, const Json& parsed) {
    switch (event) {
      case Json::parse_event_t::object_start:
      case Json::parse_event_t::array_start:
        if (keys.size() == kMaxDepth)
          throw Malformed{"it is nested too deeply"};
        keys.emplace_back();
        break;
      case Json::parse_event_t::object_end:
      case Json::parse_event_t::array_end:
        keys.pop_back();
        break;
      case Json::parse_event_t::key:
        if (!keys.back().insert(parsed.get<std::string>()).second)
          throw Malformed{"duplicate key"};
        break;
      case Json::parse_event_t::value:
        break;
    }
    return true;
  }

 private:
  std::vector<std::set<std::string>> keys;  // of each open object; empty for an array
};

// The message as an object. Throws Malformed.
Json parseObject(std::string_view message) {
  Json object;
  try {
    Watch watch;
    object = Json::parse(message, [&watch](int /*depth*/, Json::parse_event_t event, Json& parsed) {
      return watch(event, parsed);
    });
  } catch (const Json::exception&) {
    throw Malformed{"it is not JSON"};
  }
  if (!object.is_object())
    throw Malformed{"it is not an object"};
  return object;
}

void allowOnly(const Json& object, const std::set<std::string>& allowed) {
  for (const auto& item : object.items()) {
    if (!allowed.contains(item.key()))
      throw Malformed{"it has an unknown key"};
  }
}

// The member `key`, or null when it is absent.
const Json* member(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

// The id in a number, or nothing. The library itself would silently convert negative, fractional,
// boolean and too large values.
std::optional<uint32_t> idOf(const Json& value) {
  if (!value.is_number_unsigned() || value.get<uint64_t>() > kMaxId)
    return std::nullopt;
  return static_cast<uint32_t>(value.get<uint64_t>());
}

uint32_t needId(const Json& record, const char* key) {
  const Json* value = member(record, key);
  const std::optional<uint32_t> id = value ? idOf(*value) : std::nullopt;
  if (!id)
    throw Malformed{std::string(key) + " is not an id"};
  return *id;
}

bool flagOf(const Json& object, const char* key) {
  const Json* value = member(object, key);
  if (value && !value->is_boolean())
    throw Malformed{std::string(key) + " is not a boolean"};
  return value && value->get<bool>();
}

Record recordOf(const Json& record, Kind asked) {
  Record result;
  const Json* name = member(record, nameKey(asked));
  if (!name || !name->is_string() || nameForm(name->get<std::string>()) != NameForm::Good)
    throw Malformed{std::string(nameKey(asked)) + " is not a name"};
  result.name = name->get<std::string>();
  if (!member(record, idKey(asked)))
    return result;
  result.id = needId(record, idKey(asked));
  if (asked == Kind::User)
    result.gid = needId(record, "gid");
  return result;
}

void readReply(std::string_view message, Kind asked, Reply& reply) {
  const Json object = parseObject(message);
  allowOnly(object, {"parameters", "error", "continues"});
  if (flagOf(object, "continues"))
    throw Malformed{"it announces more answers than one"};
  const Json* parameters = member(object, "parameters");
  if (parameters && !parameters->is_object())
    throw Malformed{"its parameters are not an object"};
  if (const Json* error = member(object, "error")) {
    if (!error->is_string() || nameForm(error->get<std::string>()) != NameForm::Good)
      throw Malformed{"its error is not a name"};
    reply.detail = error->get<std::string>();
    reply.outcome = Reply::Outcome::Error;
    return;
  }
  const Json* record = parameters ? member(*parameters, "record") : nullptr;
  if (!record || !record->is_object())
    throw Malformed{"it has no record"};
  reply.record = recordOf(*record, asked);
  reply.outcome = Reply::Outcome::Found;
}

// The name in a parameter. Nothing when the parameter is no string or empty; the answer then names
// the bad parameter. A name with a control character makes the whole message malformed.
std::optional<std::string> nameIn(const Json& value) {
  if (!value.is_string() || value.get<std::string>().empty())
    return std::nullopt;
  std::string name = value.get<std::string>();
  if (nameForm(name) != NameForm::Good)
    throw Malformed{"a name has a control character"};
  return name;
}

// Reads the parameters of a lookup. Returns the name of the first one that is not as it must be, or
// an empty string.
std::string readParameters(const Json& parameters, Kind kind, Request& request) {
  request.question.kind = kind;
  for (const auto& item : parameters.items()) {
    const Json& value = item.value();
    if (item.key() == nameKey(kind)) {
      request.question.name = nameIn(value);
      if (!request.question.name)
        return item.key();
    } else if (item.key() == idKey(kind)) {
      request.question.id = idOf(value);
      if (!request.question.id)
        return item.key();
    } else if (item.key() == "service" && value.is_string()) {
      request.service = value.get<std::string>();
    } else {
      return item.key();
    }
  }
  return parameters.contains("service") ? "" : "service";
}

// The same for a request about memberships, of which only the service is kept.
std::string readMembershipParameters(const Json& parameters, Request& request) {
  for (const auto& item : parameters.items()) {
    const bool isName = item.key() == nameKey(Kind::User) || item.key() == nameKey(Kind::Group);
    const bool isService = item.key() == "service" && item.value().is_string();
    if (isService)
      request.service = item.value().get<std::string>();
    else if (!isName || !nameIn(item.value()))
      return item.key();
  }
  return parameters.contains("service") ? "" : "service";
}

void readRequest(std::string_view message, Request& request) {
  const Json object = parseObject(message);
  allowOnly(object, {"method", "parameters", "more", "oneway"});
  flagOf(object, "more");
  request.oneway = flagOf(object, "oneway");
  const Json* method = member(object, "method");
  if (!method || !method->is_string())
    throw Malformed{"it names no method"};
  const Json* given = member(object, "parameters");
  const Json parameters = given && !given->is_null() ? *given : Json::object();
  if (!parameters.is_object())
    throw Malformed{"its parameters are not an object"};

  using Method = Request::Method;
  const std::string name = method->get<std::string>();
  if (name == kGetInfo) {
    request.method = Method::Info;
    return;
  }
  if (name == kGetUser || name == kGetGroup) {
    request.method = Method::Lookup;
    request.detail =
        readParameters(parameters, name == kGetUser ? Kind::User : Kind::Group, request);
  } else if (name == kGetMemberships) {
    request.method = Method::Memberships;
    request.detail = readMembershipParameters(parameters, request);
  } else {
    request.method = Method::Unknown;
    request.detail = name;
    return;
  }
  if (!request.detail.empty())
    request.method = Method::InvalidParameter;
}

std::string finish(const Json& object) {
  std::string text = object.dump();
  text += '\0';
  return text;
}

}  // namespace

NameForm nameForm(std::string_view name) {
  NameForm form = name.empty() ? NameForm::Impossible : NameForm::Good;
  while (!name.empty()) {
    const size_t length = utf8SequenceLength(name);
    if (length == 0)
      return NameForm::NotUtf8;
    const auto first = static_cast<unsigned char>(name[0]);
    if (first < 0x20 || first == 0x7F)
      form = NameForm::Impossible;
    name.remove_prefix(length);
  }
  return form;
}

std::string encodeQuestion(const Question& question, const std::string& service) {
  Json parameters = {{"service", service}};
  if (question.name)
    parameters[nameKey(question.kind)] = *question.name;
  if (question.id)
    parameters[idKey(question.kind)] = *question.id;
  return finish({{"method", question.kind == Kind::User ? kGetUser : kGetGroup},
                 {"parameters", std::move(parameters)}});
}

Reply parseReply(std::string_view message, Kind asked) {
  Reply reply;
  try {
    readReply(message, asked, reply);
  } catch (const Malformed& malformed) {
    reply = Reply{};
    reply.detail = malformed.why;
  }
  return reply;
}

Request parseRequest(std::string_view message) {
  Request request;
  try {
    if (message.size() > kMaxRequestBytes)
      throw Malformed{"it is too long"};
    readRequest(message, request);
  } catch (const Malformed& malformed) {
    request = Request{};
    request.detail = malformed.why;
  }
  return request;
}

std::string encodeRecord(Kind kind, const Record& record, const std::string& service) {
  Json object = {
      {nameKey(kind), record.name}, {idKey(kind), record.id.value()}, {"service", service}};
  if (kind == Kind::User)
    object["gid"] = record.gid;
  return finish({{"parameters", {{"record", std::move(object)}, {"incomplete", false}}}});
}

std::string encodeError(const char* error, const char* parameter, const char* value) {
  Json parameters = Json::object();
  if (parameter && value)
    parameters[parameter] = value;
  return finish({{"error", error}, {"parameters", std::move(parameters)}});
}

std::string encodeInfo(const std::string& version) {
  return finish({{"parameters",
                  {{"vendor", "idshift"},
                   {"product", "zonagent"},
                   {"version", version},
                   {"url", ""},
                   {"interfaces", {"org.varlink.service", "io.systemd.UserDatabase"}}}}});
}

}  // namespace orvs::wire
