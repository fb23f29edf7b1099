#include "privatelog/index_record.h"

#include <algorithm>
#include <charconv>

namespace {

uint64_t mix(uint64_t a, uint64_t b) {
  const auto product = static_cast<unsigned __int128>(a) * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

constexpr size_t kBlock = 16;

uint64_t load(const char* bytes) {
  uint64_t number = 0;
  memcpy(&number, bytes, sizeof number);
  return number;
}

uint32_t folded(uint64_t sum) {
  return static_cast<uint32_t>(sum ^ (sum >> 32));
}

// How many numbers follow the name.
constexpr size_t fieldCount(IndexKind kind) {
  return kind == IndexKind::Link || kind == IndexKind::Group ? 2 : 4;
}

// Reads ":" and a number; false when the text has none there.
bool takeNumber(std::string_view text, size_t& position, uint64_t& number) {
  if (position >= text.size() || text[position] != ':')
    return false;
  const char* begin = text.data() + position + 1;
  const auto [end, error] = std::from_chars(begin, text.data() + text.size(), number);
  if (error != std::errc())
    return false;
  position = static_cast<size_t>(end - text.data());
  return true;
}

constexpr size_t prefixLength(IndexKind kind) {
  return kind == IndexKind::Change ? 0 : 1;
}

// Reads the numbers that follow the name. Returns the length of the start, or 0 when a number is
// missing.
size_t takeFields(const IndexLine& line, std::string_view text, std::array<uint64_t, 4>& numbers) {
  size_t position = prefixLength(line.kind) + line.nameLength;
  for (size_t i = 0; i < fieldCount(line.kind); ++i) {
    if (!takeNumber(text, position, numbers[i]))
      return 0;
  }
  return position;
}

uint32_t id(uint64_t number) {
  return static_cast<uint32_t>(number);
}

}  // namespace

// Multiply and fold, 16 bytes a step. The last block overlaps the one in front of it, so that no
// byte needs a loop of its own; the length goes into the sum, so that a text and its padding
// differ.
uint32_t checksumOf(uint64_t seed, std::string_view text) {
  constexpr uint64_t kFirst = 0x9e3779b97f4a7c15;
  constexpr uint64_t kSecond = 0xd1b54a32d192ed03;
  const size_t length = text.size();
  uint64_t sum = seed ^ ((length ^ kSecond) * kFirst);
  if (length < kBlock) {
    std::array<char, kBlock> block = {};
    memcpy(block.data(), text.data(), length);
    return folded(mix(load(block.data()) ^ kFirst, load(block.data() + 8) ^ sum) ^ sum);
  }
  const char* at = text.data();
  const char* const last = text.data() + length - kBlock;  // overlaps the block in front of it
  for (; at < last; at += kBlock)
    sum = mix(load(at) ^ kFirst, load(at + 8) ^ sum);
  return folded(mix(load(last) ^ kSecond, load(last + 8) ^ sum));
}

size_t startLength(const IndexLine& line, std::string_view text) {
  std::array<uint64_t, 4> numbers = {};
  return takeFields(line, text, numbers);
}

std::optional<ParsedStart> parseVouchedStart(const IndexLine& line,
                                             uint64_t seed,
                                             std::string_view text) {
  std::array<uint64_t, 4> numbers = {};
  const size_t length = takeFields(line, text, numbers);
  if (length == 0 || checksumOf(seed, text.substr(1, length - 1)) != line.checksum)
    return std::nullopt;

  const size_t prefix = prefixLength(line.kind);

  ParsedStart start;
  start.isMarked = text.front() == kUndoneMark;
  if (prefix == 1 && !start.isMarked && text.front() != static_cast<char>(line.kind))
    return std::nullopt;
  start.length = length;
  start.name = text.substr(prefix, line.nameLength);
  start.record.path = start.name;
  start.record.newIds = line.newIds;
  if (line.kind == IndexKind::Passwd) {
    start.record.oldIds = {id(numbers[0]), id(numbers[1])};
  } else if (line.kind == IndexKind::Group) {
    start.record.oldIds.gid = id(numbers[0]);
  } else {
    start.record.id = {numbers[0], numbers[1]};
    start.record.oldIds = {id(numbers[2]), id(numbers[3])};
  }
  return start;
}
