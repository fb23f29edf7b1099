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
  bool inTime = false;
  double milliseconds = 0;
};

// The lookup runs beside, because a module may block for minutes; one that does is left behind.
Timed lookUp(const std::shared_ptr<ZoneBackend>& backend, const wire::Question& question) {
  const Clock::time_point begin = Clock::now();
  std::packaged_task<Answer()> task([backend, question] { return backend->find(question); });
  std::future<Answer> result = task.get_future();
  std::thread(std::move(task)).detach();
  Timed timed;
  timed.inTime = result.wait_for(ServerLimits{}.lookup) == std::future_status::ready;
  if (timed.inTime)
    timed.answer = result.get();
  timed.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
  return timed;
}

// Prints as it goes; keeps the first reason against serving.
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
  Verdict checkAccount(wire::Kind kind, const std::string& name);
  void checkWayBack(wire::Kind kind, const wire::Record& record);

  std::shared_ptr<ZoneBackend> backend;
  std::string firstReason;
};

const char* idWord(wire::Kind kind) {
  return kind == wire::Kind::User ? "uid" : "gid";
}

void Checker::checkAnswers() {
  // Any answer will do, also that there is no such user.
  const Timed timed = lookUp(backend, {wire::Kind::User, std::nullopt, 0});
  const bool answers = timed.answer.verdict != Verdict::Unavailable;
  printf("answers: %s (%.1f ms)\n",
         answers        ? "yes"
         : timed.inTime ? "no, it is not available"
                        : "no, not in time",
         timed.milliseconds);
  if (!answers)
    object("it does not answer");
}

void Checker::checkOnline() {
  switch (backend->online()) {
    case Online::NotAsked:
      puts("online: not checked");
      break;
    case Online::Yes:
      puts("online: yes");
      break;
    case Online::No:
      puts("online: no, the online check fails");
      object("its directory is offline");
      break;
  }
}

void Checker::checkName(const std::string& name) {
  if (wire::nameForm(name) != wire::NameForm::Good) {
    puts("a name is empty, is not UTF-8 or has a control character: not looked up");
    return;
  }
  const Verdict user = checkAccount(wire::Kind::User, name);
  const Verdict group = checkAccount(wire::Kind::Group, name);
  if (user == Verdict::NotFound && group == Verdict::NotFound)
    printf("%s: neither a user nor a group was found\n", name.c_str());
}

Verdict Checker::checkAccount(wire::Kind kind, const std::string& name) {
  const Timed timed = lookUp(backend, {kind, name, std::nullopt});
  const wire::Record& record = timed.answer.record;
  const char* what = kind == wire::Kind::User ? "user" : "group";
  if (timed.answer.verdict == Verdict::Unavailable) {
    printf("%s %s: no answer (%.1f ms)\n", what, name.c_str(), timed.milliseconds);
    object(std::string("it does not tell about the ") + what + " " + name);
  }
  if (timed.answer.verdict != Verdict::Found)
    return timed.answer.verdict;
  printf("%s %s: name %s, %s %u", what, name.c_str(), record.name.c_str(), idWord(kind),
         *record.id);
  if (kind == wire::Kind::User)
    printf(", gid %u", record.gid);
  printf(" (%.1f ms)\n", timed.milliseconds);
  checkWayBack(kind, record);
  return Verdict::Found;
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
