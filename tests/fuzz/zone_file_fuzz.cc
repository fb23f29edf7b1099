// Any text as a zone file: refused with file and line, or every account in it can be told.
#include "services/zone_wire.h"
#include "tests/fuzz/fuzz_input.h"
#include "zonagent/zone_table.h"

namespace {

namespace wire = orvs::wire;
using zonagent::ZoneTable;

template <class Read>
bool accepted(const Read& read) {
  try {
    read();
  } catch (const zonagent::AgentError& error) {
    require(std::string(error.what()).starts_with("f:"), "a refusal names the file");
    return false;
  }
  return true;
}

}  // namespace

void tryInput(const std::string& text) {
  ZoneTable zone;
  zone.readUsers("ayla:x:70001:70000:::\n", "f");
  accepted([&] { zone.readAliases(text, "f"); });
  ZoneTable groups;
  accepted([&] { groups.readGroups(text, "f"); });
  ZoneTable users;
  if (!accepted([&] { users.readUsers(text, "f"); }) || text.empty() || text[0] == '#' ||
      text[0] == '\n')
    return;
  const std::string first = text.substr(0, text.find(':'));
  const zonagent::Answer answer = users.find({wire::Kind::User, first, std::nullopt});
  require(answer.verdict == zonagent::Verdict::Found, "the first account is found");
  require(wire::nameForm(first) == wire::NameForm::Good && answer.record.id <= wire::kMaxId,
          "it can be told");
}
