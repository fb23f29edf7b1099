// Finds out whether a run waits for its disk, and so whether a further helper should read ahead of
// it.
//
// The run calls look() once in kBetween entries. While a stretch of kBetween entries is fast,
// look() only reads the clock, which takes no system call. Two slow stretches in a row raise the
// question whether the disk was the cause: a quarter of the time must have passed without processor
// time, and the process must have read blocks from a disk, or on a network file system the thread
// must have slept. While the answer is no the question is asked less and less often.
//
// The helpers start one at a time: each yes brings in one more, and when the disk keeps up with
// them the stretches are fast again. So their number fits the disk without being configured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What the setting idshift.read.ahead says.
struct HelperRule {
  bool isAuto = true;
  size_t helpers = 0;  // to start at once; unused when isAuto
};

HelperRule helperRule(const std::string& setting);
HelperRule helperRuleOfSettings();

// Sums since some moment; times in nanoseconds.
struct Spent {
  int64_t clock = 0;
  int64_t processor = 0;  // of the thread
  int64_t blocks = 0;     // read by the process
  int64_t sleeps = 0;     // voluntary context switches of the thread
};

// Whether more than a quarter of the time was spent waiting for a disk, or for a server when
// `isNetwork`. A quarter is enough: helpers also take over the kernel's work on inodes that are not
// in its cache.
bool waitsForDisk(const Spent& spent, bool isNetwork);

class WaitWatch {
 public:
  static constexpr size_t kBetween = 64;
  static constexpr size_t kMostHelpers = 16;

  // True when a further helper is worth while. The current directory must be on the file system in
  // question.
  bool look(bool hasHelpers);

 private:
  bool ask(int64_t time, uint32_t longestPause);

  int64_t last = 0;
  bool isSlow = false;  // whether the last stretch was slow
  Spent before;
  uint32_t passedOver = 0;  // slow stretches since the last question
  uint32_t pause = 0;       // how many slow stretches to pass over before the next question
};
