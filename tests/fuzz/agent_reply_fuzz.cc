// Any bytes for the client: what it takes for a record or an error is sound.
#include "services/zone_wire.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

namespace wire = orvs::wire;

void checkReply(const std::string& text, wire::Kind kind) {
  const wire::Reply reply = wire::parseReply(text, kind);
  if (reply.outcome == wire::Reply::Outcome::Malformed) {
    require(!reply.detail.empty(), "a malformed reply has a reason");
    return;
  }
  if (reply.outcome == wire::Reply::Outcome::Error) {
    require(wire::nameForm(reply.detail) == wire::NameForm::Good, "an error has a name");
    return;
  }
  const wire::Record& record = reply.record;
  require(wire::nameForm(record.name) == wire::NameForm::Good, "a record has a name");
  require(record.id.value_or(0) <= wire::kMaxId && record.gid <= wire::kMaxId, "ids are ids");
  if (!record.id)
    return;
  const std::string again = wire::encodeRecord(kind, record, "s");
  const wire::Reply second = wire::parseReply(again.substr(0, again.size() - 1), kind);
  require(second.record.name == record.name && second.record.id == record.id &&
              second.record.gid == record.gid,
          "what is encoded again reads the same");
}

}  // namespace

void tryInput(const std::string& text) {
  checkReply(text, wire::Kind::User);
  checkReply(text, wire::Kind::Group);
}
