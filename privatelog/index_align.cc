// The realignment. A person may add or delete lines of the log, and every line behind them then
// stands at another offset than its record says. The obvious way is to take for each record the
// first line that fits. But a log can hold equal lines, and one wrong choice far ahead would leave
// all later records without their lines.
//
// Editing rarely changes the order of lines, so the longest common subsequence of records and lines
// is looked for: as many pairs of a record and a fitting line as possible, in the order of both.
// The textbook table of all pairs would be too big for millions of lines. Instead a hash map finds
// for each line the few records that fit it, by kind, length of the name and checksum. The text
// does not say how long a name is, so at each line start all lengths that occur in the records are
// tried. The pairs then go through the algorithm for the longest increasing subsequence, in n log n
// steps.

#include "privatelog/index_align.h"

#include <algorithm>
#include <map>
#include <unordered_map>

namespace {

// What must be equal in a record and its line. A date line has name length 0.
struct Key {
  IndexKind kind = IndexKind::None;
  uint32_t nameLength = 0;
  uint32_t checksum = 0;
  bool operator==(const Key&) const = default;
};

struct KeyHash {
  size_t operator()(const Key& key) const {
    return (size_t{key.checksum} << 32) ^ (size_t{key.nameLength} << 8) ^
           static_cast<size_t>(key.kind);
  }
};

Key keyOf(const IndexBytes& bytes) {
  const IndexKind kind = kindOf(bytes.data());
  if (kind == IndexKind::Section)
    return {kind, 0, fromBytes<IndexSection>(bytes.data()).checksum};
  if (!isLineKind(kind))
    return {};
  const auto line = fromBytes<IndexLine>(bytes.data());
  return {kind, line.nameLength, line.checksum};
}

// The records by their keys.
class Wanted {
 public:
  Wanted(std::span<const IndexBytes> records, uint64_t itsSeed) : seed(itsSeed) {
    for (size_t i = 0; i < records.size(); ++i) {
      const Key key = keyOf(records[i]);
      if (key.kind == IndexKind::None)
        continue;
      byKey[key].push_back(i);
      if (key.kind != IndexKind::Section)
        ++shapes[{key.kind, key.nameLength}];
    }
  }

  // The records that fit the line at `position`, or null. `end` becomes the end of its start, or of
  // the whole line for a date or an account.
  const std::vector<size_t>* find(std::string_view text, size_t position, size_t& end) const {
    const std::string_view rest = text.substr(position);
    if (const auto* found = findDate(rest, position, end))
      return found;
    for (const auto& [shape, count] : shapes) {
      if (const auto* found = findStart(rest, shape, end)) {
        end += position;
        return found;
      }
    }
    return nullptr;
  }

 private:
  using Shape = std::pair<IndexKind, uint32_t>;

  const std::vector<size_t>* lookUp(const Key& key) const {
    const auto found = byKey.find(key);
    return found == byKey.end() ? nullptr : &found->second;
  }

  const std::vector<size_t>* findDate(std::string_view rest, size_t position, size_t& end) const {
    if (rest.front() != '!' && rest.front() != kUndoneMark)
      return nullptr;
    const size_t length = std::min(rest.find('\n'), rest.size());
    end = position + length;
    return lookUp({IndexKind::Section, 0, checksumOf(seed, rest.substr(1, length - 1))});
  }

  const std::vector<size_t>* findStart(std::string_view rest,
                                       const Shape& shape,
                                       size_t& end) const {
    const auto& [kind, nameLength] = shape;
    IndexLine line;
    line.kind = kind;
    line.nameLength = nameLength;
    const size_t nameEnd = nameLength + (kind == IndexKind::Change ? 0 : 1);
    if (nameEnd >= rest.size() || rest[nameEnd] != ':')
      return nullptr;
    const size_t length = startLength(line, rest);
    end = length;
    return length == 0 ? nullptr
                       : lookUp({kind, nameLength, checksumOf(seed, rest.substr(1, length - 1))});
  }

  uint64_t seed;
  std::unordered_map<Key, std::vector<size_t>, KeyHash> byKey;
  std::map<Shape, size_t> shapes;
};

// The longest increasing subsequence of record numbers, by patience sorting. add() is called line
// by line, and for one line with its records in descending order, so that no sequence takes two
// records for one line.
class LongestRow {
 public:
  void add(size_t record, uint64_t offset) {
    const auto place =
        std::lower_bound(ends.begin(), ends.end(), record,
                         [this](size_t pair, size_t r) { return pairs[pair].record < r; });
    const size_t before = place == ends.begin() ? kNone : *(place - 1);
    pairs.push_back({record, offset, before});
    if (place == ends.end())
      ends.push_back(pairs.size() - 1);
    else
      *place = pairs.size() - 1;
  }

  void fill(std::vector<uint64_t>& offsets) const {
    for (size_t at = ends.empty() ? kNone : ends.back(); at != kNone; at = pairs[at].before)
      offsets[pairs[at].record] = pairs[at].offset;
  }

 private:
  static constexpr size_t kNone = std::numeric_limits<size_t>::max();

  struct Pair {
    size_t record;
    uint64_t offset;
    size_t before;  // in `pairs`
  };

  std::vector<Pair> pairs;
  std::vector<size_t> ends;  // for each length the pair that ends the best sequence of that length
};

}  // namespace

std::vector<uint64_t> alignRecords(std::span<const IndexBytes> records,
                                   uint64_t seed,
                                   std::string_view text) {
  const Wanted wanted(records, seed);
  LongestRow row;
  size_t position = 0;
  while (position < text.size()) {
    size_t end = 0;
    const std::vector<size_t>* candidates = wanted.find(text, position, end);
    if (candidates != nullptr) {
      for (auto record = candidates->rbegin(); record != candidates->rend(); ++record)
        row.add(*record, position);
      // A start that was left open has no line feed: another start may follow on its line.
      if (end < text.size() && text[end] != '\n' && text[end] != ':') {
        position = end;
        continue;
      }
    } else {
      end = position;
    }
    position = std::min(text.find('\n', end), text.size() - 1) + 1;
  }
  std::vector<uint64_t> offsets(records.size(), kNoLine);
  row.fill(offsets);
  return offsets;
}
