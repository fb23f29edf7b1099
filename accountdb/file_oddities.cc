#include "accountdb/file_oddities.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

namespace orvs {
namespace {

// Other programs read lines into buffers of this size.
constexpr std::size_t kUsualLineSize = 1024;

enum Oddity {
  kEmptyLine,
  kNoAccount,
  kMarkerAhead,
  kNulByte,
  kLongLine,
  kNoPlainId,
  kFifthField,
  kEmptyMember,
  kSecondName,
  kNoNewline,
  kOddityCount
};

constexpr std::array<const char*, kOddityCount> kWords = {
    "empty; what is behind it is not compared and stays",
    "no account; stays as it is",
    "a marker line ahead of an account; an update moves it behind the last one",
    "has a NUL byte",
    "of 1024 bytes or more",
    "has an id that is no plain number; the id is never changed",
    "a group with a fifth field; stays as it is but for the gid",
    "has an empty item in the member list; an update drops it",
    "has the name of an account further up, which hides it",
    "has no newline; an update adds one",
};

struct Finding {
  std::size_t count = 0;
  std::size_t firstLine = 0;
};

class OddityScan {
 public:
  explicit OddityScan(AccountKind itsKind) : kind(itsKind) {}

  void look(std::string_view line);
  void note(Oddity oddity, std::size_t line);
  void noteHere(Oddity oddity) { note(oddity, lineNumber); }
  void findSecondNames();
  std::vector<std::string> words() const;

 private:
  void lookAtAccount(const AccountLine& account);

  struct Name {
    std::size_t hash;
    std::size_t line;
  };

  AccountKind kind;
  std::size_t lineNumber = 0;
  std::size_t firstMarker = 0;  // of the markers since the last account
  std::size_t markers = 0;
  std::vector<Name> names;
  std::array<Finding, kOddityCount> findings = {};
};

void OddityScan::note(Oddity oddity, std::size_t line) {
  Finding& finding = findings[oddity];
  if (finding.count++ == 0 || line < finding.firstLine)
    finding.firstLine = line;
}

void OddityScan::look(std::string_view line) {
  ++lineNumber;
  if (line.empty())
    return noteHere(kEmptyLine);
  if (line.size() >= kUsualLineSize)
    noteHere(kLongLine);
  if (line.find('\0') != std::string_view::npos)
    noteHere(kNulByte);
  if (isMarkerLine(line)) {
    firstMarker = markers++ == 0 ? lineNumber : firstMarker;
    return;
  }
  if (const std::optional<AccountLine> account = accountIn(line, kind))
    lookAtAccount(*account);
  else
    noteHere(kNoAccount);
}

void OddityScan::lookAtAccount(const AccountLine& account) {
  if (markers > 0)
    note(kMarkerAhead, firstMarker);
  markers = 0;
  const bool isGroup = kind == AccountKind::Group;
  if (!plainNumber(account.gid) || (!isGroup && !plainNumber(account.uid)))
    noteHere(kNoPlainId);
  else if (!account.isPlain(kind))
    noteHere(kFifthField);
  else if (isGroup && hasEmptyMember(account.tail))
    noteHere(kEmptyMember);
  names.push_back({std::hash<std::string_view>()(account.name), lineNumber});
}

// Compares 64-bit hashes of the names. If two names ever had one hash, the log would have a wrong
// line.
void OddityScan::findSecondNames() {
  std::ranges::stable_sort(names, {}, &Name::hash);
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (names[i].hash == names[i - 1].hash)
      note(kSecondName, names[i].line);
  }
}

std::vector<std::string> OddityScan::words() const {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < kOddityCount; ++i) {
    if (findings[i].count == 0)
      continue;
    std::string text = "line " + std::to_string(findings[i].firstLine);
    if (findings[i].count > 1)
      text += " and " + std::to_string(findings[i].count - 1) + " more";
    texts.push_back(text + ": " + kWords[i]);
  }
  return texts;
}

}  // namespace

std::vector<std::string> odditiesOf(std::string_view text, AccountKind kind) {
  OddityScan scan(kind);
  LineReader lines(text);
  std::string_view line;
  while (lines.next(line)) {
    scan.look(line);
    if (line.empty())
      break;
  }
  if (lines.rest().empty() && !text.empty() && !text.ends_with('\n'))
    scan.noteHere(kNoNewline);
  scan.findSecondNames();
  return scan.words();
}

}  // namespace orvs
