// The standard streams, and what stands in for one that is missing.
#pragma once

#include "services/unique_fd.h"

// Opens "/dev/null" at the numbers of the standard streams that the caller had closed. Their
// numbers would otherwise go to the private log, an account file or a socket, where a message would
// then be written. To be called before anything is opened. Returns false when it cannot.
bool fillStandardStreams();

// "/dev/null", for reading or writing: `mode` as for open.
UniqueFd openNull(int mode);
