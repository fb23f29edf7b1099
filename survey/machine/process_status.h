// Whose a process is, as /proc/PID/status tells. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ProcessStatus {
  std::string name;            // what the kernel calls it; the process can choose it
  std::vector<uint32_t> uids;  // real, effective, saved, and of file access
  std::vector<uint32_t> gids;  // the same, then the further groups
};

ProcessStatus parseProcessStatus(std::string_view text);
