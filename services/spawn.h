// Child processes and temporary files.
//
// A child is waited for; it has the descriptors that it is given and no other, and the default
// action of every signal but those that were ignored before this process started. Failures
// are results: nothing here throws or logs. A descriptor that comes back is the caller's to close.
#pragma once

#include <string>

// What spawnfv returns when the child could not be started.
inline constexpr int kSpawnFailed = 127;

// Runs `program` with `argv` (null-terminated, argv[0] included) and waits for it. The child gets
// the first `count` entries of `descriptors` as its descriptors 0 upward, and no other; the caller
// keeps and closes its own. Returns 0 when the child exited with 0, its exit status otherwise, 128
// plus the signal when it was killed, and 127 when it could not be started. `reserved` is always 0.
int spawnfv(
    int reserved, int count, const int* descriptors, const char* program, const char* const* argv);

// mkstemp on a string: replaces the X's of the template in place and returns a descriptor that is
// closed on exec, or -1 with errno.
int mkstemp(std::string& nameTemplate);
