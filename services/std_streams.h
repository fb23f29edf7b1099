// Standard streams that are missing, and "/dev/null" in their place.
#pragma once

#include "services/unique_fd.h"

// Opens "/dev/null" as each standard stream that the caller had closed. Otherwise the private log,
// an account file or a socket could get number 1 or 2, and messages would be written into it. Call
// this before anything is opened. Returns false when a stream cannot be filled.
bool fillStandardStreams();

// Opens "/dev/null"; `mode` is O_RDONLY or O_WRONLY. Empty when that fails.
UniqueFd openNull(int mode);
