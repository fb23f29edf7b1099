// Any bytes as a request and as a reply. The agent hangs up, stays silent, or sends one message
// that its own client can read. The client accepts only sound records and errors.
#include "services/agent/zone_wire.h"
#include "tests/fuzz/fuzz_input.h"
#include "zonagent/answer.h"
#include "zonagent/zone_table.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace wire = orvs::wire;

class OneUserZone : public ZoneBackend {
 public:
  OneUserZone() { table.readUsers(zonagent::inOnePiece("ayla:x:70001:70000:::\n"), "passwd"); }
  Answer find(const wire::Question& question) override { return table.find(question); }

 private:
  ZoneTable table;
};

wire::Reply checkReply(const std::string& text, wire::Kind kind) {
  wire::Reply reply = wire::parseReply(text, kind);
  const wire::Record& record = reply.record;
  if (reply.outcome == wire::Reply::Outcome::Malformed)
    require(!reply.detail.empty(), "a malformed reply has a reason");
  if (reply.outcome == wire::Reply::Outcome::Error)
    require(wire::nameForm(reply.detail) == wire::NameForm::Good, "an error has a name");
  if (reply.outcome != wire::Reply::Outcome::Found)
    return reply;
  require(wire::nameForm(record.name) == wire::NameForm::Good, "a record has a name");
  require(record.id.value_or(0) <= wire::kMaxId && record.gid <= wire::kMaxId, "ids are ids");
  if (!record.id)
    return reply;
  const std::string again = wire::encodeRecord(kind, record, "s");
  const wire::Record second = wire::parseReply(again.substr(0, again.size() - 1), kind).record;
  require(second.name == record.name && second.id == record.id && second.gid == record.gid,
          "what is encoded again reads the same");
  return reply;
}

void checkAnswer(const std::string& request) {
  static OneUserZone zone;
  const Action action = decide(wire::parseRequest(request), "s", zone);
  require(action.bytes.empty() == (action.what != Action::What::Send), "only replies have bytes");
  // Only the reply to GetInfo is neither an error nor a record.
  if (action.bytes.empty() || action.bytes.find("\"interfaces\"") != std::string::npos)
    return;
  require(action.bytes.find('\0') == action.bytes.size() - 1, "the NUL ends the message");
  const wire::Reply reply =
      checkReply(action.bytes.substr(0, action.bytes.size() - 1), wire::Kind::User);
  require(reply.outcome != wire::Reply::Outcome::Malformed, "the client can read the reply");
  require(reply.outcome != wire::Reply::Outcome::Found || reply.record.id == 70001u,
          "the record is the zone's");
}

}  // namespace

void tryInput(const std::string& text) {
  checkAnswer(text);
  checkReply(text, wire::Kind::User);
  checkReply(text, wire::Kind::Group);
}
