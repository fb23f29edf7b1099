#include "privatelog/boot_id.h"

#include <fstream>
#include <string>

namespace {

int hexValue(char digit) {
  if (digit >= '0' && digit <= '9')
    return digit - '0';
  return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

}  // namespace

BootId currentBootId() {
  BootId id = {};
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  size_t digits = 0;
  for (char c = 0; digits < 2 * id.size() && file.get(c);) {
    const int value = hexValue(c);
    if (value < 0)
      continue;  // the dashes
    char& byte = id.at(digits++ / 2);
    byte = static_cast<char>((static_cast<unsigned char>(byte) << 4) | value);
  }
  return digits == 2 * id.size() ? id : BootId{};
}
