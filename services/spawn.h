// Child processes and temporary files.
//
// A caller waits for its child. The child has the descriptors that it is given and no others. Its
// signals have their default actions, except those that were ignored when this process started;
// SIGXFSZ has its default action in any case. Failures are results: nothing here throws or logs.
// The caller closes a descriptor that is returned.
#pragma once

#include <string>

// The result of spawnfv for a child that could not be started or waited for.
inline constexpr int kSpawnFailed = 127;

// Runs `program` with `argv` (null-terminated, argv[0] included) and waits for it. The child gets
// the first `count` entries of `descriptors` as its descriptors 0 upward; the caller keeps its own.
// Returns 0 when the child exited with 0, its exit status otherwise, 128 plus the signal when it
// was killed, and 127 when it could not be started. `reserved` is always 0.
int spawnfv(
    int reserved, int count, const int* descriptors, const char* program, const char* const* argv);

// mkstemp on a string: replaces the X's of the template in place and returns a descriptor that is
// closed on exec, or -1 with errno.
int mkstemp(std::string& nameTemplate);
