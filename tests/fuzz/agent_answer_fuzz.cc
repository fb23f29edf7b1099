// Any bytes for the agent: it hangs up, stays silent, or sends one message that its own client can
// read.
#include "tests/fuzz/fuzz_input.h"
#include "zonagent/answer.h"
#include "zonagent/zone_table.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace wire = orvs::wire;

class OneUserZone : public ZoneBackend {
 public:
  OneUserZone() { table.readUsers("ayla:x:70001:70000:::\n", "passwd"); }
  Answer find(const wire::Question& question) override { return table.find(question); }

 private:
  ZoneTable table;
};

}  // namespace

void tryInput(const std::string& text) {
  static OneUserZone zone;
  const Action action = answer(wire::parseRequest(text), "s", zone);
  require(action.bytes.empty() == (action.what != Action::What::Send), "only replies have bytes");
  if (action.what != Action::What::Send)
    return;
  require(action.bytes.find('\0') == action.bytes.size() - 1, "the NUL ends the message");
  // GetInfo is the one reply that is neither an error nor a record.
  if (action.bytes.find("\"interfaces\"") != std::string::npos)
    return;
  const wire::Reply reply =
      wire::parseReply(action.bytes.substr(0, action.bytes.size() - 1), wire::Kind::User);
  require(reply.outcome != wire::Reply::Outcome::Malformed, "the client can read the reply");
  require(reply.outcome != wire::Reply::Outcome::Found || reply.record.id == 70001u,
          "the record is the zone's");
}
