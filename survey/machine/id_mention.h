// Numbers of accounts in texts that other programs read: the result of the parsers of this folder,
// and the small functions that they share.
//
// A parser takes the text of one file and returns, in order, every user and group that is mentioned
// by number, whether the number is mapped or not. It ignores what it does not understand: a survey
// refuses no file. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct IdMention {
  size_t line = 0;  // from 1
  bool isGroup = false;
  uint32_t id = 0;

  bool operator==(const IdMention&) const = default;
};
using IdMentions = std::vector<IdMention>;

// `digits` as an id. Nothing when the text is empty, has another character, or is too large.
std::optional<uint32_t> parseId(std::string_view digits);

// The id in the digits at the start of `text`.
std::optional<uint32_t> leadingId(std::string_view text);

struct TextLine {
  size_t number = 0;  // of the first piece of a joined line
  std::string text;
};

// The lines of a text. With `joined`, a backslash at the end of a line is removed and the next line
// follows in the same one.
std::vector<TextLine> linesOfText(std::string_view text, bool joined);

std::string_view withoutBlanks(std::string_view text);

// The words of `text`, separated by blanks.
std::vector<std::string_view> wordsOfText(std::string_view text);
