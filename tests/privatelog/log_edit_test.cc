// A log edited at random, record by record, against a small model: the lines that are found again
// are as many as the longest row that the log of before and the edited one have in common.
#include <algorithm>
#include <numeric>
#include <random>

#include "privatelog/log_scan.h"
#include "tests/privatelog/log_world.h"

namespace {

const std::string kIndex = paths::kPrivateLogIndex;

// Entries as numbers; what the tool has not written is -1.
using Entries = std::vector<int>;

size_t longestCommonRow(const Entries& a, const Entries& b) {
  std::vector<size_t> before(b.size() + 1), now(b.size() + 1);
  for (const int entry : a) {
    for (size_t i = 0; i < b.size(); ++i)
      now[i + 1] = entry == b[i] ? before[i] + 1 : std::max(now[i], before[i + 1]);
    std::swap(before, now);
  }
  return before.back();
}

class LogEdit : public LogWorld {
 protected:
  // Entries of a log whose lines are of equal lengths in part, and equal in part.
  void record(size_t count) {
    PrivateLog log;
    ASSERT_TRUE(log.openPrivateLog(false));
    for (size_t i = 0; i < count; ++i) {
      const std::string path = "/t/" + std::to_string(i % (count - count / 8));
      const std::string names[] = {path, path + ":1:2:3:4:5:6", path + "\n/x:1:9:1:1:2:2\n@g:1:2",
                                   path + "\n"};
      ASSERT_TRUE(change(log, {1, i % (count - count / 8) + 10}, names[i % 4]));
    }
    ASSERT_TRUE(log.close());
    log.release();
    text = readFile(kLog);
    index = readFile(kIndex);
    const std::vector<std::string> found = scanned();
    ASSERT_EQ(found.size(), count + 1);
    size_t at = kHeader.size();
    for (const std::string& start : found) {
      ASSERT_EQ(text.find(start, at), at);
      const size_t end = text.find('\n', at + start.size()) + 1;
      pieces.push_back(text.substr(at, end - at));
      at = end;
    }
    ASSERT_EQ(at, text.size());
  }

  // The lines that the tool's readers are given.
  static std::vector<std::string> scanned() {
    std::vector<std::string> lines;
    LogScan scan;
    std::string domain;
    EXPECT_TRUE(scan.open(true) == LogScan::Opened::Yes && getHeader(scan.text(), domain));
    while (const ScannedLine* line = scan.next())
      lines.emplace_back(line->text);
    return lines;
  }

  // One stroke of an editor.
  void edit(std::mt19937& random, Entries& entries) const {
    const auto pick = [&random](size_t end) { return random() % end; };
    const size_t at = pick(entries.size());
    const auto place = entries.begin() + static_cast<std::ptrdiff_t>(at);
    switch (pick(5)) {
      case 0:
        entries.erase(place, entries.begin() + static_cast<std::ptrdiff_t>(
                                                   std::min(at + pick(9), entries.size() - 1)));
        break;
      case 1:
        entries.insert(place, static_cast<int>(pick(pieces.size())));
        break;
      case 2:
        std::swap(*place, entries[pick(entries.size())]);
        break;
      case 3:
        *place = kForeign;
        break;
      default:
        entries.insert(place, kForeign);
    }
  }

  // Equal lines are one number.
  Entries numbersOf(const Entries& entries) const {
    Entries numbers;
    for (const int entry : entries)
      numbers.push_back(entry == kForeign
                            ? kForeign
                            : static_cast<int>(std::find(pieces.begin(), pieces.end(),
                                                         pieces[static_cast<size_t>(entry)]) -
                                               pieces.begin()));
    return numbers;
  }

  void tryEdits(uint32_t seed, size_t strokes) {
    std::mt19937 random(seed);
    Entries whole(pieces.size());
    std::iota(whole.begin(), whole.end(), 0);
    Entries entries = whole;
    while (strokes-- > 0)
      edit(random, entries);
    std::string edited = kHeader;
    for (const int entry : entries)
      edited += entry == kForeign ? "/y:1:5:500:100:7:7\n" : pieces[static_cast<size_t>(entry)];
    writeFile(kLog, edited);
    writeFile(kIndex, index);
    Entries left = numbersOf(entries);
    const std::vector<std::string> found = scanned();
    EXPECT_EQ(found.size(), longestCommonRow(numbersOf(whole), left));
    size_t at = 0;
    for (const std::string& start : found) {
      at = edited.find(start, at);
      ASSERT_NE(at, edited.npos) << start;
      at += start.size();
    }
    // A run that writes puts the records right: the next one finds the same lines in their places.
    {
      PrivateLog log;
      ASSERT_TRUE(log.loadPrivateLog(true) && log.openPrivateLog(true));
      log.release();
    }
    EXPECT_EQ(scanned(), found);
  }

  static constexpr int kForeign = -1;
  std::string text, index;
  std::vector<std::string> pieces;
};

TEST_F(LogEdit, FindsTheLongestRowOfItsLines) {
  record(40);
  for (uint32_t seed = 1; seed <= 300 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    tryEdits(seed, seed % 24);
  }
}

TEST_F(LogEdit, AlsoInALongLog) {
  record(10'000);
  tryEdits(1, 3);
  tryEdits(2, 2000);
}

}  // namespace
