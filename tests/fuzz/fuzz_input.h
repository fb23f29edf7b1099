// Shared by the fuzz targets: the input as a file, and checks that hold in every build type.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "services/unique_fd.h"

// Defined by each target: checks what must hold for any input.
void tryInput(const std::string&);

// Ends the process when `holds` is false, so that both the fuzzer and the replay report the input.
inline void require(bool holds, const char* what) {
  if (holds)
    return;
  fprintf(stderr, "not so: %s\n", what);
  abort();
}

// The input as a file without a name, for readers that need a path.
class InputFile {
 public:
  explicit InputFile(const std::string& text) : fd(memfd_create("input", MFD_CLOEXEC)) {
    require(fd && write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            "the input fits into a file");
  }

  int descriptor() const { return fd.get(); }
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd.get()); }

 private:
  UniqueFd fd;
};
