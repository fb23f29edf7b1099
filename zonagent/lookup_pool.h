// Worker threads for lookups that may block.
//
// The server submits a job under a ticket, polls readyFd() and collects what is finished; after its
// deadline it cancels. A job that is stuck keeps its worker, the others go on; when it comes back
// its result is dropped and the worker is free again. Jobs must own all they touch: a stuck worker
// outlives the pool.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "zonagent/answer.h"

namespace zonagent {

class LookupPool {
 public:
  explicit LookupPool(int workers);
  ~LookupPool();  // tells the workers to end and does not wait for them
  LookupPool(const LookupPool&) = delete;
  LookupPool& operator=(const LookupPool&) = delete;

  void submit(uint64_t ticket, std::function<Action()> job);
  // Drops the job if it has not begun.
  void cancel(uint64_t ticket);

  // Readable while there is something to collect.
  int readyFd() const;
  std::vector<std::pair<uint64_t, Action>> collect();

 private:
  struct State;
  static void work(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state;
};

}  // namespace zonagent
