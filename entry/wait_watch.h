// Whether a run waits for its disk, and so how many helpers read ahead of it.
//
// The run calls look() once in kBetween entries. While these go by fast nothing but a clock is
// read, which takes no system call. Otherwise the processor time that the thread had, what the
// process has read from disks, and for file systems of a network how often the thread slept, tell
// whether it was the disk that it waited for; that question is put less and less often while the
// answer is no.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What the setting idshift.read.ahead says.
struct HelperRule {
  bool isAuto = true;
  size_t helpers = 0;  // at once, unless automatic
};

HelperRule helperRule(const std::string& setting);
HelperRule helperRuleOfSettings();

// All since some moment; times in nanoseconds.
struct Spent {
  int64_t clock = 0;
  int64_t processor = 0;  // of the thread
  int64_t blocks = 0;     // read by the process
  int64_t sleeps = 0;     // of the thread, of its own will
};

// Whether most of the time was spent waiting for a disk, or for a server when `isNetwork`.
bool waitsForDisk(const Spent& spent, bool isNetwork);

class WaitWatch {
 public:
  static constexpr size_t kBetween = 64;
  static constexpr size_t kMostHelpers = 16;

  // True when a further helper is worth while. The current directory is on the file system that is
  // waited for.
  bool look(bool hasHelpers);

 private:
  bool ask(int64_t time, uint32_t longestPause);

  int64_t last = 0;
  bool isSlow = false;  // the last stretch was
  Spent before;
  uint32_t passedOver = 0;  // slow stretches since the last question
  uint32_t pause = 0;       // how many of them are to be passed over
};
