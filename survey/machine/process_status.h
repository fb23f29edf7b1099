// The name and the ids of a process, from the text of /proc/PID/status. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ProcessStatus {
  std::string name;            // which the process can choose
  std::vector<uint32_t> uids;  // real, effective, saved, file system
  std::vector<uint32_t> gids;  // the same four, then the supplementary groups
};

ProcessStatus parseProcessStatus(std::string_view text);
