// The cost of a lookup through the agent, and of the same lookup without the agent.
//
//   lookups SOCKET BACKEND AGENT-PID [COUNT]
//
// Asks in turn by name and by id for the users user0001 to user1000, whose ids are 70001 to 71000.
// Rounds through the agent, over one connection, alternate with rounds of direct calls: for
// nss:NAME to the functions of the module, for files:DIR to the reader of zone files. Prints rates,
// medians, and the agent's resident memory before and after. Ends with status 1 when an answer is
// wrong.
#include <dlfcn.h>
#include <nss.h>
#include <pwd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "services/agent/local_rpc_session.h"
#include "zonagent/zone_source.h"

namespace {

using Clock = std::chrono::steady_clock;
using Lookup = std::function<uint32_t(uint32_t)>;  // takes the number of a user, returns its uid

constexpr uint32_t kUsers = 1000;
constexpr uint32_t kFirstUid = 70001;
constexpr int kRounds = 10;

bool isByName(uint32_t number) {
  return number % 2 == 0;
}

std::string nameOf(uint32_t number) {
  char name[16];
  snprintf(name, sizeof name, "user%04u", number + 1);
  return name;
}

template <class Function>
Function* functionOf(void* module, const std::string& name) {
  void* address = module ? dlsym(module, name.c_str()) : nullptr;
  if (!address) {
    fprintf(stderr, "lookups: %s\n", dlerror());
    exit(1);
  }
  return reinterpret_cast<Function*>(address);
}

Lookup directModule(const std::string& module) {
  void* library = dlopen(("libnss_" + module + ".so.2").c_str(), RTLD_NOW);
  const std::string prefix = "_nss_" + module + "_getpw";
  const auto getpwnam =
      functionOf<nss_status(const char*, passwd*, char*, size_t, int*)>(library, prefix + "nam_r");
  const auto getpwuid =
      functionOf<nss_status(uid_t, passwd*, char*, size_t, int*)>(library, prefix + "uid_r");
  return [getpwnam, getpwuid](uint32_t number) {
    passwd entry = {};
    char buffer[16384];
    int error = 0;
    const nss_status status =
        isByName(number) ? getpwnam(nameOf(number).c_str(), &entry, buffer, sizeof buffer, &error)
                         : getpwuid(kFirstUid + number, &entry, buffer, sizeof buffer, &error);
    return status == NSS_STATUS_SUCCESS ? entry.pw_uid : 0;
  };
}

Lookup directFiles(const std::string& backend) {
  return [opened = zonagent::openBackend({backend})](uint32_t number) {
    orvs::wire::Question question{orvs::wire::Kind::User, std::nullopt, std::nullopt};
    if (isByName(number))
      question.name = nameOf(number);
    else
      question.id = kFirstUid + number;
    return opened->find(question).record.id.value_or(0);
  };
}

Lookup throughAgent(orvs::LocalRpcSession& session) {
  return [&session](uint32_t number) {
    return isByName(number) ? session.getUser(nameOf(number), orvs::UNIX_ONLY)->uid
                            : session.getUser(kFirstUid + number, orvs::UNIX_ONLY)->uid;
  };
}

struct Measured {
  const char* name;
  Lookup lookup;
  std::vector<double> microseconds{};

  void round(int count) {
    for (int i = 0; i < count; ++i) {
      const auto number = static_cast<uint32_t>(i) % kUsers;
      const Clock::time_point begin = Clock::now();
      const uint32_t uid = lookup(number);
      microseconds.push_back(
          std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
      if (uid != kFirstUid + number) {
        fprintf(stderr, "lookups: %s says %u for %s\n", name, uid, nameOf(number).c_str());
        exit(1);
      }
    }
  }

  double report() {
    double sum = 0;
    for (const double one : microseconds)
      sum += one;
    const auto size = microseconds.size();
    const auto middle = microseconds.begin() + static_cast<std::ptrdiff_t>(size / 2);
    std::nth_element(microseconds.begin(), middle, microseconds.end());
    printf("  %-14s %9.0f lookups/s   p50 %7.1f us\n", name, static_cast<double>(size) / sum * 1e6,
           *middle);
    return *middle;
  }
};

long residentKib(const std::string& pid) {
  std::ifstream status("/proc/" + pid + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:"))
      return atol(line.c_str() + sizeof "VmRSS:");
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    fputs("usage: lookups SOCKET BACKEND AGENT-PID [COUNT]\n", stderr);
    return 2;
  }
  const std::string backend = argv[2];
  const int count = argc > 4 ? atoi(argv[4]) : 100000;
  orvs::LocalRpcSession session(argv[1], false, false);
  const bool isModule = backend.starts_with("nss:");
  Measured direct{"direct call", isModule ? directModule(backend.substr(4)) : directFiles(backend)};
  Measured agent{"through agent", throughAgent(session)};
  agent.round(1000);  // so that one-time allocations are not measured
  agent.microseconds.clear();

  const long before = residentKib(argv[3]);
  for (int i = 0; i < kRounds; ++i) {
    direct.round(count / kRounds);
    agent.round(count / kRounds);
  }
  const long after = residentKib(argv[3]);

  printf("%s, %zu lookups each\n", backend.c_str(), agent.microseconds.size());
  const double alone = direct.report();
  const double through = agent.report();
  printf("  the agent adds p50 %.1f us; its memory: VmRSS %ld KiB before, %ld KiB after\n",
         through - alone, before, after);
}
