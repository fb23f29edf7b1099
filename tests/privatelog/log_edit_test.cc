// A log is edited at random, entry by entry. The number of lines that the tool finds again is that
// of a small model: the longest common subsequence of the lines before and after.
#include <algorithm>
#include <random>

#include "privatelog/log_scan.h"
#include "tests/privatelog/log_world.h"

namespace {

using Entries = std::vector<std::string>;

size_t longestCommonRow(const Entries& a, const Entries& b) {
  std::vector<size_t> before(b.size() + 1), now(b.size() + 1);
  for (const std::string& entry : a) {
    for (size_t i = 0; i < b.size(); ++i)
      now[i + 1] = entry == b[i] ? before[i] + 1 : std::max(now[i], before[i + 1]);
    std::swap(before, now);
  }
  return before.back();
}

class LogEdit : public LogWorld {
 protected:
  // Makes a log in which some entries are equal and some have equal lengths.
  void record(size_t count) {
    {
      PrivateLog log;
      ASSERT_TRUE(log.openPrivateLog(false));
      for (size_t i = 0; i < count; ++i) {
        const size_t number = i / 3;
        const std::string ends[] = {"", ":1:2:3:4:5:6", "\n/x:1:9:1:1:2:2\n@g:1:2", "\n"};
        ASSERT_TRUE(
            change(log, {1, number + 10}, "/t/" + std::to_string(number) + ends[number % 4]));
      }
    }
    index = readFile(paths::kPrivateLogIndex);
    const std::string text = readFile(kLog);
    size_t at = kHeader.size();
    for (const std::string& start : scanned()) {
      const size_t end = text.find('\n', at + start.size()) + 1;
      entries.push_back(text.substr(at, end - at));
      at = end;
    }
    ASSERT_TRUE(at == text.size() && entries.size() == count + 1);
  }

  // The lines that the readers of the tool get.
  static Entries scanned() {
    Entries lines;
    LogScan scan;
    std::string domain;
    EXPECT_TRUE(scan.open(true) == LogScan::Opened::Yes && getHeader(scan.text(), domain));
    while (const ScannedLine* line = scan.next())
      lines.emplace_back(line->text);
    return lines;
  }

  // Removes, copies, swaps or replaces entries, as an editor may.
  void edit(std::mt19937& random, Entries& edited) const {
    const auto pick = [&random](size_t end) { return static_cast<std::ptrdiff_t>(random() % end); };
    const auto place = edited.begin() + pick(edited.size());
    const int64_t stroke = pick(4);
    if (stroke == 0)
      edited.erase(place, place + std::min(pick(9), edited.end() - place - 1));
    else if (stroke == 1)
      edited.insert(place, *(entries.begin() + pick(entries.size())));
    else if (stroke == 2)
      std::swap(*place, *(edited.begin() + pick(edited.size())));
    else
      *place = "/y:1:5:500:100:7:7\n";
  }

  void tryEdits(uint32_t seed, size_t strokes) {
    std::mt19937 random(seed);
    Entries edited = entries;
    while (strokes-- > 0)
      edit(random, edited);
    std::string text = kHeader;
    for (const std::string& entry : edited)
      text += entry;
    writeFile(kLog, text);
    writeFile(paths::kPrivateLogIndex, index);
    const Entries found = scanned();
    EXPECT_EQ(found.size(), longestCommonRow(entries, edited));
    // A run that writes corrects the records, and the next run finds the same lines.
    {
      PrivateLog log;
      ASSERT_TRUE(log.loadPrivateLog(true) && log.openPrivateLog(true));
    }
    EXPECT_EQ(scanned(), found);
  }

  std::string index;
  Entries entries;
};

TEST_F(LogEdit, FindsTheLongestCommonSubsequenceOfLines) {
  record(40);
  for (uint32_t seed = 1; seed <= 300 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    tryEdits(seed, seed % 24);
  }
}

TEST_F(LogEdit, AlsoInALongLog) {
  record(10'000);
  tryEdits(1, kSanitized ? 3 : 2000);
}

}  // namespace
