// The function that the fuzzer calls.
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tryInput({reinterpret_cast<const char*>(data), size});
  return 0;
}
