#include "zonagent/lookup_pool.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "services/unique_fd.h"

namespace zonagent {

struct LookupPool::State {
  struct Job {
    uint64_t ticket = 0;
    std::function<Action()> run;
  };

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Job> waiting;
  std::vector<std::pair<uint64_t, Action>> finished;
  bool ending = false;
  UniqueFd event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

LookupPool::LookupPool(int workers) : state(std::make_shared<State>()) {
  if (!state->event)
    throw AgentError("cannot create an event descriptor");
  for (int i = 0; i < workers; ++i)
    std::thread([shared = state] { work(shared); }).detach();
}

LookupPool::~LookupPool() {
  const std::lock_guard guard(state->mutex);
  state->ending = true;
  state->waiting.clear();
  state->changed.notify_all();
}

void LookupPool::work(const std::shared_ptr<State>& state) {
  for (;;) {
    State::Job job;
    {
      std::unique_lock guard(state->mutex);
      state->changed.wait(guard, [&] { return state->ending || !state->waiting.empty(); });
      if (state->ending)
        return;
      job = std::move(state->waiting.front());
      state->waiting.pop_front();
    }
    Action action = job.run();
    const std::lock_guard guard(state->mutex);
    state->finished.emplace_back(job.ticket, std::move(action));
    const uint64_t one = 1;
    if (write(state->event.get(), &one, sizeof one) < 0)
      continue;  // the event's counter is at its maximum, so readyFd() is readable anyway
  }
}

void LookupPool::submit(uint64_t ticket, std::function<Action()> job) {
  const std::lock_guard guard(state->mutex);
  state->waiting.push_back({ticket, std::move(job)});
  state->changed.notify_one();
}

void LookupPool::cancel(uint64_t ticket) {
  const std::lock_guard guard(state->mutex);
  std::erase_if(state->waiting, [&](const State::Job& job) { return job.ticket == ticket; });
}

int LookupPool::readyFd() const {
  return state->event.get();
}

std::vector<std::pair<uint64_t, Action>> LookupPool::collect() {
  const std::lock_guard guard(state->mutex);
  uint64_t count = 0;
  if (read(state->event.get(), &count, sizeof count) < 0)
    return {};
  return std::exchange(state->finished, {});
}

}  // namespace zonagent
