// A user's own FUSE file system, which answers the kernel with errors as a hostile one could.
//
// Its top directory and the file "f" inside belong to 500:100 until their owner is changed. A child
// process serves it. The destructor unmounts it. For tests inside the sandbox only.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

class UsersMount {
 public:
  UsersMount() = default;
  ~UsersMount() { unmount(); }
  UsersMount(const UsersMount&) = delete;
  UsersMount& operator=(const UsersMount&) = delete;

  // Mounts it. Requests with `opcode` are answered with `error`; without an opcode all requests
  // are, except the first. An `error` of 0 answers honestly. False, with errno, on a machine
  // without FUSE.
  bool mountAt(const std::string& folder,
               int error,
               uint32_t opcode = 0,
               const char* type = "fuse");
  void unmount();

  // Stops answering; a request then waits until unmount().
  void freeze() const;

 private:
  std::string place;
  pid_t server = -1;
};
