#include "services/progress.h"

#include <signal.h>
#include <strings.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

#include "services/progress_line.h"
#include "services/properties.h"
#include "services/say.h"
#include "services/setting_keys.h"

namespace progress {
namespace {

constexpr double kFirst = 2;  // seconds
constexpr double kBetween = 0.5;

enum class Way { None, Line, OnRequest };

volatile sig_atomic_t isAskedFor = 0;
Way way = Way::None;
double begun = 0;
double nextDraw = 0;

void noteRequest(int /*signal*/) {
  isAskedFor = 1;
}

// The C library reads the coarse clock from memory that the kernel shares, without a system call.
double now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Way wayOf(bool talkative) {
  const std::string setting = orvs::Props(false, false).getString(orvs::PN::IDSHIFT_PROGRESS);
  if (talkative || strcasecmp(setting.c_str(), "never") == 0)
    return Way::None;
  if (progress_line::isPossible())
    return Way::Line;
  return isatty(STDERR_FILENO) == 1 ? Way::None : Way::OnRequest;
}

ProgressCounts countsAt(double time, uint64_t changed) {
  return {entriesSeen, changed, time - begun};
}

void drawIfDue(const std::string& directory, uint64_t changed) {
  const double time = now();
  if (time < nextDraw)
    return;
  nextDraw = time + kBetween;
  progress_line::draw(progressText(countsAt(time, changed), directory, progress_line::columns()));
}

}  // namespace

void install() {
  struct sigaction action = {};
  if (sigaction(SIGUSR1, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
    return;
  action = {};
  action.sa_handler = noteRequest;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGUSR1, &action, nullptr);
}

Scope::Scope(bool talkative) {
  way = wayOf(talkative);
  begun = now();
  nextDraw = begun + kFirst;
  entriesSeen = 0;
}

Scope::~Scope() {
  progress_line::clear();
  way = Way::None;
}

void look(const std::string& directory, uint64_t changed) {
  if (way == Way::Line) {
    drawIfDue(directory, changed);
    return;
  }
  if (way == Way::None || isAskedFor == 0)
    return;
  isAskedFor = 0;
  SAY(getLogger("cli.idshift", false), 1, "progress", Echo::Stderr, "%s",
      progressText(countsAt(now(), changed), directory, SIZE_MAX).c_str());
}

}  // namespace progress
