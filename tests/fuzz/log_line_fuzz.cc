// The codec and the plain reading agree on any line, and what the codec writes it reads back.
#include <algorithm>
#include <climits>

#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/log_model.h"

namespace {

log_model::Line parseByCodec(const std::string& text) {
  LogRecordView record;
  log_model::Line line;
  line.type = parseLogLine(text, record);
  if (line.type >= LineType::Link && line.type <= LineType::IncompleteChange) {
    line.record = {record.id, record.oldIds, record.newIds, std::string(record.path)};
    line.surplus = record.hasSurplusFields;
  }
  return line;
}

void checkAccountLines(const std::string& text) {
  const log_model::Fields fields = log_model::cut(text);
  const auto user = parsePasswdUpdateLine(text);
  require(user.has_value() == (text.starts_with('=') && fields.size() >= 5), "a user's line");
  if (user) {
    require("=" + std::string(user->name) == fields[0], "a user's name");
    require(user->oldIds == OwnerIds{log_model::id(fields[1]), log_model::id(fields[2])}, "old");
    require(user->newIds == OwnerIds{log_model::id(fields[3]), log_model::id(fields[4])}, "new");
  }
  const auto group = parseGroupUpdateLine(text);
  require(group.has_value() == (text.starts_with('@') && fields.size() >= 3), "a group's line");
  if (group) {
    require("@" + std::string(group->name) == fields[0], "a group's name");
    require(group->oldGid == log_model::id(fields[1]), "old");
    require(group->newGid == log_model::id(fields[2]), "new");
  }
}

void checkWrittenAgain(const log_model::Line& line) {
  const PrivateLogRecord& record = line.record;
  if (!record.path.starts_with('/') || std::max(record.id.device, record.id.inode) > LONG_MAX)
    return;
  std::string again;
  if (line.type == LineType::Link) {
    appendLinkLine(again, record.id, record.path);
  } else {
    const bool followed = line.type == LineType::FollowedChange;
    appendChangeStart(again, record.id, record.oldIds, record.path, followed);
    appendChangeEnd(again, record.newIds);
  }
  again.pop_back();
  log_model::Line whole = line;
  whole.surplus = false;
  require(parseByCodec(again) == whole, "what is written again reads the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = inputText(data, size);
  const log_model::Line line = parseByCodec(text);
  require(line == log_model::parse(text), "both readings agree");
  checkAccountLines(text);
  if (line.type >= LineType::Link && line.type <= LineType::FollowedChange)
    checkWrittenAgain(line);
  return 0;
}
