// The agent's messages, encoded and parsed for both ends of the socket.
//
// A message is one JSON object and one NUL byte, a subset of the public Varlink interface
// io.systemd.UserDatabase. Encoders append the NUL; parsers take a message without it. Parsers
// trust nothing. A message is malformed when it has duplicate keys, nesting deeper than kMaxDepth,
// bad UTF-8, control characters in a name, or a number that is no id. Malformed is a result, not an
// exception. Ids are unsigned 32-bit; 4294967295 is no id.
//
// Pure: no system call, no logger.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvs::wire {

inline constexpr const char* kDefaultService = "net.orvantadc.Zone";
inline constexpr const char* kNoRecordFound = "io.systemd.UserDatabase.NoRecordFound";
inline constexpr const char* kBadService = "io.systemd.UserDatabase.BadService";
inline constexpr const char* kServiceNotAvailable = "io.systemd.UserDatabase.ServiceNotAvailable";
inline constexpr const char* kConflictingRecordFound =
    "io.systemd.UserDatabase.ConflictingRecordFound";
inline constexpr const char* kEnumerationNotSupported =
    "io.systemd.UserDatabase.EnumerationNotSupported";
inline constexpr const char* kMethodNotFound = "org.varlink.service.MethodNotFound";
inline constexpr const char* kInvalidParameter = "org.varlink.service.InvalidParameter";

inline constexpr size_t kMaxRequestBytes = size_t{64} * 1024;
inline constexpr size_t kMaxReplyBytes = size_t{1024} * 1024;  // foreign agents add member lists
inline constexpr size_t kMaxDepth = 8;
inline constexpr uint32_t kMaxId = 4294967294u;

enum class Kind { User, Group };

// A question by name, by id, or by both.
struct Question {
  Kind kind = Kind::User;
  std::optional<std::string> name;
  std::optional<uint32_t> id;
};

// A user with its uid and primary gid, or a group with its gid in `id`.
struct Record {
  std::string name;
  std::optional<uint32_t> id;  // absent: the account has no Unix id
  uint32_t gid = 0;            // of a user
};

// Whether `name` can stand in a message. Impossible: it is empty or has a control character.
enum class NameForm { Good, Impossible, NotUtf8 };
NameForm nameForm(std::string_view name);

// --- The client's side. REQUIRES: nameForm() of the question's name is Good.
std::string encodeQuestion(const Question& question, const std::string& service);

struct Reply {
  enum class Outcome { Found, Error, Malformed };
  Outcome outcome = Outcome::Malformed;
  std::string detail;  // the error's name, or what is wrong with the message
  Record record;
};
Reply parseReply(std::string_view message, Kind asked);

// --- The agent's side.
struct Request {
  enum class Method { Malformed, Lookup, Memberships, Info, Unknown, InvalidParameter };
  Method method = Method::Malformed;
  std::string detail;  // the unknown method, the invalid parameter, or what is malformed
  bool oneway = false;
  Question question;
  std::string service;
};
Request parseRequest(std::string_view message);

// REQUIRES: nameForm() of the record's name is Good and it has an id.
std::string encodeRecord(Kind kind, const Record& record, const std::string& service);
// An error without parameters has a null `parameter` or `value`.
std::string encodeError(const char* error,
                        const char* parameter = nullptr,
                        const char* value = nullptr);
std::string encodeInfo(const std::string& version);

}  // namespace orvs::wire
