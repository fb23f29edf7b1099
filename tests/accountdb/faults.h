// Makes one call of the C library fail, as the code under test sees it.
//
// The test program defines link, open, write, fsync and others itself, in front of the C library's;
// they pass everything on until a fault is armed. Calls that the C library makes inside itself are
// not seen.
#pragma once

namespace faults {

inline constexpr const char* kCalls[] = {
    "lckpwdf", "open",   "getdelim",        "write", "link",  "stat",
    "fchown",  "fchmod", "posix_fallocate", "fsync", "close", "rename"};

// The `nth` call of that name from now on, counted from 1, fails with `error`. A failing write has
// written half of its bytes; a failing close has closed.
void arm(const char* call, int nth, int error);

// Ends the fault. True when it has struck.
bool disarm();

}  // namespace faults
