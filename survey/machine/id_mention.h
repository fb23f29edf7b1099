// Numbers of accounts in texts that other programs read: what the parsers of this folder find, and
// the small pieces that they share.
//
// A parser takes the text of one file and gives every user or group that is mentioned by number,
// mapped or not, in order. What it does not understand it passes over: a survey refuses no file.
// Pure.
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

// The whole of `digits` as an id; nothing when there is anything else, or nothing, or too much.
std::optional<uint32_t> parseId(std::string_view digits);

// The same for the digits that `text` begins with.
std::optional<uint32_t> leadingId(std::string_view text);

struct TextLine {
  size_t number = 0;  // of its first piece
  std::string text;
};

// The lines of a text. With `joined` a backslash at the end of a line joins the next one to it.
std::vector<TextLine> linesOfText(std::string_view text, bool joined);

std::string_view withoutBlanks(std::string_view text);

// Words between blanks.
std::vector<std::string_view> wordsOfText(std::string_view text);
