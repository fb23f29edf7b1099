// The lock of the settings object, with the support layer's names (doLock, unLock).
#pragma once

#include <mutex>

namespace orvs {

class Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

 private:
  friend class Lock;
  std::mutex native;
};

// Locks one Mutex on request, not when it is constructed. The destructor unlocks a lock that is
// still held.
class Lock {
 public:
  explicit Lock(Mutex& mutex) : guard(mutex.native, std::defer_lock) {}
  void doLock() { guard.lock(); }
  void unLock() { guard.unlock(); }

 private:
  std::unique_lock<std::mutex> guard;
};

}  // namespace orvs
