// Any bytes as the end of a log that a killed run left: a torn tail, and a prepared account behind
// the first NUL. Mending makes no record that was not there.
#include "privatelog/log_line.h"
#include "privatelog/prepared_account.h"
#include "privatelog/torn_tail.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr const char* kDateLine = "!Thu Nov 12 12:34:28 2026";

void checkCompleted(const std::string& tail, OwnerIds ids) {
  const auto torn = parseTornChange(tail);
  require(torn && torn->record.oldIds != ids, "only a change that was made is completed");
  std::string line = tail;
  appendChangeEnd(line, ids);
  line.pop_back();
  PrivateLogRecord record;
  const LineType type = parseLogLine(line, record);
  require(type == (torn->followed ? LineType::FollowedChange : LineType::Change), "its kind");
  require(record.id == torn->record.id && record.path == torn->record.path, "its file");
  require(record.oldIds == torn->record.oldIds && record.newIds == ids, "its ids");
  require(!record.hasSurplusFields, "nothing behind it");
}

void checkTail(const std::string& tail, const std::optional<EntryOnDisk>& onDisk, TailPlace place) {
  PrivateLogRecord record;
  const LineType alone = parseLogLine(tail, record);
  const bool isAccount = alone == LineType::PasswdUpdate || alone == LineType::GroupUpdate;
  switch (judgeTornTail(tail, onDisk, place)) {
    case TailVerdict::Leave: {
      const std::string joined = tail + kDateLine;
      const LineType type = parseLogLine(joined, record);
      require(type == LineType::Ignored || type == LineType::Date || record.hasSurplusFields ||
                  parseTornChange(tail),
              "joined to a date it is nothing that undo trusts, or a torn change");
      return;
    }
    case TailVerdict::EndLine:
      require(
          alone == LineType::Ignored || isAccount || place.insideLineFeedPath || place.atPageEnd,
          "an ended line is no record");
      return;
    case TailVerdict::CommentOut:
      require(tail.front() == '+', "links alone are given up");
      return;
    case TailVerdict::CompleteChange:
      require(onDisk.has_value() && !place.insideLineFeedPath, "only what was found");
      checkCompleted(tail, onDisk->ids);
  }
}

void checkPrepared(const std::string& behindNul) {
  const auto prepared = parsePreparedAccount(behindNul);
  if (!prepared)
    return;
  const std::string& text = prepared->text;
  require(behindNul.starts_with(text.substr(1)), "only the first byte was held back");
  require(behindNul.size() < text.size() || behindNul[text.size() - 1] == '\0', "all of it");
  const std::string dateLine = text.substr(0, text.size() - prepared->line.size() - 1);
  require(text == dateLine + prepared->line + "\n", "the record comes last");
  require(dateLine.empty() || (dateLine[0] == '!' && dateLine.find('\n') == dateLine.size() - 1),
          "a date alone stands before it");
  const bool isUser = parsePasswdUpdateLine(prepared->line).has_value();
  require(isUser || parseGroupUpdateLine(prepared->line), "it is an account's");
}

}  // namespace

void tryInput(const std::string& text) {
  const size_t nul = text.find('\0');
  const std::string tail = text.substr(0, nul);
  std::optional<EntryOnDisk> changed;
  if (const auto torn = parseTornChange(tail))
    changed = {torn->record.id, {torn->record.oldIds.uid, torn->record.oldIds.gid * 10}};
  for (const bool inside : {false, true}) {
    for (const bool atPageEnd : {false, true}) {
      checkTail(tail, std::nullopt, {inside, atPageEnd});
      checkTail(tail, changed, {inside, atPageEnd});
    }
  }
  if (nul != std::string::npos)
    checkPrepared(text.substr(nul + 1));
}
