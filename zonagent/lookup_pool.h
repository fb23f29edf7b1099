// Worker threads for lookups that may block.
//
// The server submits a job with a ticket, polls readyFd() and collects finished jobs. When the
// deadline of a lookup has passed, the server cancels its ticket. A job that hangs keeps its worker
// busy; the other workers go on. When such a job returns, the server ignores its result and the
// worker takes the next job. A job must own everything that it uses, because a hanging worker
// outlives the pool. The constructor throws AgentError.
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
  ~LookupPool();  // tells the workers to end, without waiting for them
  LookupPool(const LookupPool&) = delete;
  LookupPool& operator=(const LookupPool&) = delete;

  void submit(uint64_t ticket, std::function<Action()> job);
  // Drops the job if no worker has begun it.
  void cancel(uint64_t ticket);

  // Readable while there are finished jobs to collect.
  int readyFd() const;
  std::vector<std::pair<uint64_t, Action>> collect();

 private:
  struct State;
  static void work(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state;
};

}  // namespace zonagent
