// A file system of a user's own (FUSE), which answers as a hostile one would.
//
// It holds a directory and in that the file "f", both of 500:100 until their owner is changed. For
// tests inside the sandbox only. It is unmounted with the object.
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

  // Every question behind the first gets `error`, or those of the kind `opcode` alone, where 0 is
  // an honest answer. False with errno where there is no FUSE.
  bool mountAt(const std::string& folder,
               int error,
               uint32_t opcode = 0,
               const char* type = "fuse");
  void unmount();

  // From now on no question is answered; unmount() ends that.
  void freeze() const;

 private:
  std::string place;
  pid_t server = -1;
};
