#include "survey/machine/account_texts.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

void addIfId(IdMentions& mentions, size_t line, bool isGroup, std::optional<uint32_t> id) {
  if (id)
    mentions.push_back({line, isGroup, *id});
}

// --- sudoers

// Characters that end a word. A "#" behind one of them can begin a user.
constexpr std::string_view kSudoersBreaks = " \t,!(:=%+";

bool isUserNumber(std::string_view line, size_t hash) {
  const bool begins = hash == 0 || kSudoersBreaks.find(line[hash - 1]) != line.npos;
  const bool hasDigit = hash + 1 < line.size() && line[hash + 1] >= '0' && line[hash + 1] <= '9';
  return begins && hasDigit;
}

// Looks at each "#" of a line. A backslash protects the next character, and a comment ends the line
// unless quotes are open.
void addSudoersLine(IdMentions& mentions, const TextLine& line) {
  const std::string_view text = line.text;
  bool quoted = false;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\')
      ++at;
    else if (text[at] == '"')
      quoted = !quoted;
    else if (text[at] == '#' && isUserNumber(text, at))
      addIfId(mentions, line.number, at > 0 && text[at - 1] == '%', leadingId(text.substr(at + 1)));
    else if (text[at] == '#' && !quoted)
      return;
  }
}

// --- systemd units

enum class UnitKey { None, User, Group, Groups };

UnitKey unitKeyOf(std::string_view key) {
  if (key == "User" || key == "SocketUser")
    return UnitKey::User;
  if (key == "Group" || key == "SocketGroup")
    return UnitKey::Group;
  return key == "SupplementaryGroups" ? UnitKey::Groups : UnitKey::None;
}

// "Key = value", where the value of SupplementaryGroups= is a list. Quotes around a word do not
// belong to it.
void addUnitLine(IdMentions& mentions, const TextLine& line) {
  const std::string_view text = withoutBlanks(line.text);
  const size_t equals = text.find('=');
  if (text.empty() || text[0] == '#' || text[0] == ';' || equals == text.npos)
    return;
  const UnitKey key = unitKeyOf(withoutBlanks(text.substr(0, equals)));
  if (key == UnitKey::None)
    return;
  for (std::string_view word : wordsOfText(text.substr(equals + 1))) {
    if (word.size() >= 2 && (word[0] == '"' || word[0] == '\'') && word.back() == word[0])
      word = word.substr(1, word.size() - 2);
    addIfId(mentions, line.number, key != UnitKey::User, parseId(word));
  }
}

// --- exports

// Adds each number behind `name` in an option list. `name` must be at the start of an option, so
// that "xanonuid=" does not count.
void addOptions(IdMentions& mentions, size_t line, std::string_view text, std::string_view name) {
  constexpr std::string_view kBefore = "(,-";
  for (size_t at = 0; (at = text.find(name, at)) != text.npos; at += name.size()) {
    if (at > 0 && kBefore.find(text[at - 1]) != kBefore.npos)
      addIfId(mentions, line, name == "anongid=", leadingId(text.substr(at + name.size())));
  }
}

}  // namespace

IdMentions mentionsInSubIds(std::string_view text) {
  IdMentions mentions;
  for (const TextLine& line : linesOfText(text, false)) {
    const std::string_view whole = line.text;
    if (const size_t colon = whole.find(':'); colon != whole.npos)
      addIfId(mentions, line.number, false, parseId(whole.substr(0, colon)));
  }
  return mentions;
}

IdMentions mentionsInSudoers(std::string_view text) {
  IdMentions mentions;
  for (const TextLine& line : linesOfText(text, true))
    addSudoersLine(mentions, line);
  return mentions;
}

IdMentions mentionsInUnit(std::string_view text) {
  IdMentions mentions;
  for (const TextLine& line : linesOfText(text, true))
    addUnitLine(mentions, line);
  return mentions;
}

IdMentions mentionsInExports(std::string_view text) {
  IdMentions mentions;
  for (const TextLine& line : linesOfText(text, true)) {
    const std::string_view whole = line.text;
    const std::string_view options = whole.substr(0, whole.find('#'));
    for (const std::string_view name : {"anonuid=", "anongid="})
      addOptions(mentions, line.number, options, name);
  }
  return mentions;
}

IdMentions mentionsInAtJob(std::string_view text) {
  IdMentions mentions;
  for (const TextLine& line : linesOfText(text, false)) {
    if (!line.text.starts_with("# atrun "))
      continue;
    for (const std::string_view word : wordsOfText(line.text)) {
      if (word.starts_with("uid=") || word.starts_with("gid="))
        addIfId(mentions, line.number, word[0] == 'g', parseId(word.substr(4)));
    }
    break;
  }
  return mentions;
}
