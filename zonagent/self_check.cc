#include "zonagent/self_check.h"

#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

#include "zonagent/server.h"

namespace zonagent {
namespace {

namespace wire = orvs::wire;
using Clock = std::chrono::steady_clock;

struct Timed {
  Answer answer;
  double milliseconds = 0;
};

// The lookup runs in a thread of its own, which is abandoned when the module does not return in
// time.
Timed lookUp(const std::shared_ptr<ZoneBackend>& backend, const wire::Question& question) {
  const Clock::time_point begin = Clock::now();
  std::packaged_task<Answer()> task([backend, question] { return backend->find(question); });
  std::future<Answer> result = task.get_future();
  std::thread(std::move(task)).detach();
  Timed timed;
  if (result.wait_for(ServerLimits{}.lookup) == std::future_status::ready)
    timed.answer = result.get();
  else
    timed.answer.why = kNotInTime;
  timed.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
  return timed;
}

// Prints each finding at once and remembers the first reason against serving.
class Checker {
 public:
  explicit Checker(std::shared_ptr<ZoneBackend> zoneBackend) : backend(std::move(zoneBackend)) {}

  void checkAnswers();
  void checkOnline();
  void checkName(const std::string& name);
  const std::string& reason() const { return firstReason; }

 private:
  void object(const std::string& why) {
    if (firstReason.empty())
      firstReason = why;
  }
  void checkAccount(wire::Kind kind, const std::string& name);
  void checkWayBack(wire::Kind kind, const wire::Record& record);

  std::shared_ptr<ZoneBackend> backend;
  std::string firstReason;
};

const char* idWord(wire::Kind kind) {
  return kind == wire::Kind::User ? "uid" : "gid";
}

void Checker::checkAnswers() {
  // Any answer counts, "not found" among them.
  const Timed timed = lookUp(backend, {wire::Kind::User, std::nullopt, 0});
  const bool answers = timed.answer.verdict != Verdict::Unavailable;
  printf("answers: %s (%.1f ms)\n", answers ? "yes" : ("no, " + timed.answer.why).c_str(),
         timed.milliseconds);
  if (!answers)
    object("the backend does not answer");
}

void Checker::checkOnline() {
  const OnlineAnswer online = backend->online();
  switch (online.verdict) {
    case Online::NotAsked:
      puts("online: not checked");
      break;
    case Online::Yes:
      puts("online: yes");
      break;
    case Online::No:
      printf("online: no, %s\n", online.why.c_str());
      object("the online check fails");
      break;
  }
}

void Checker::checkName(const std::string& name) {
  if (wire::nameForm(name) != wire::NameForm::Good) {
    puts("a name is empty, is not UTF-8 or has a control character: not looked up");
    return;
  }
  checkAccount(wire::Kind::User, name);
  checkAccount(wire::Kind::Group, name);
}

void Checker::checkAccount(wire::Kind kind, const std::string& name) {
  const Timed timed = lookUp(backend, {kind, name, std::nullopt});
  const std::string whom = (kind == wire::Kind::User ? "user " : "group ") + name;
  const wire::Record& record = timed.answer.record;
  std::string finding = "not found";
  switch (timed.answer.verdict) {
    case Verdict::NotFound:
      break;
    case Verdict::Unavailable:
      finding = "no answer, " + timed.answer.why;
      object("no answer about the " + whom);
      break;
    case Verdict::Found:
      finding = "name " + record.name + ", " + idWord(kind) + " " + std::to_string(*record.id);
      if (kind == wire::Kind::User)
        finding += ", gid " + std::to_string(record.gid);
      break;
  }
  printf("%s: %s (%.1f ms)\n", whom.c_str(), finding.c_str(), timed.milliseconds);
  if (timed.answer.verdict == Verdict::Found)
    checkWayBack(kind, record);
}

void Checker::checkWayBack(wire::Kind kind, const wire::Record& record) {
  const Timed timed = lookUp(backend, {kind, std::nullopt, record.id});
  const std::string id = std::string(idWord(kind)) + " " + std::to_string(*record.id);
  std::string finding = "leads back to the same name";
  if (timed.answer.verdict != Verdict::Found) {
    finding = timed.answer.verdict == Verdict::NotFound ? "is not found" : "has no answer";
    object(id + " " + finding);
  } else if (timed.answer.record.name != record.name) {
    finding = "leads to another name: " + timed.answer.record.name;
  }
  printf("  %s %s (%.1f ms)\n", id.c_str(), finding.c_str(), timed.milliseconds);
}

}  // namespace

bool selfCheck(const std::string& backendText,
               const std::shared_ptr<ZoneBackend>& backend,
               const std::vector<std::string>& names) {
  printf("backend: %s\n%s", backendText.c_str(), backend->sources().c_str());
  Checker checker(backend);
  checker.checkAnswers();
  checker.checkOnline();
  for (const std::string& name : names)
    checker.checkName(name);
  if (checker.reason().empty())
    puts("verdict: zonagent would serve this zone");
  else
    printf("verdict: zonagent would not serve this zone: %s\n", checker.reason().c_str());
  return checker.reason().empty();
}

}  // namespace zonagent
