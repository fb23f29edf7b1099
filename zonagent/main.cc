#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>

#include "services/properties.h"
#include "services/setting_keys.h"
#include "zonagent/agent_log.h"
#include "zonagent/agent_signals.h"
#include "zonagent/backend.h"
#include "zonagent/listen_socket.h"
#include "zonagent/options.h"
#include "zonagent/self_check.h"
#include "zonagent/server.h"

namespace {

using zonagent::AgentError;
using zonagent::Options;

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

// Standard streams that were closed would give their numbers to sockets.
void openStandardStreams() {
  for (const int descriptor : {0, 1, 2}) {
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR | O_CLOEXEC) != descriptor)
      _exit(kFailed);
  }
}

int complain(const char* what) {
  TELL("main", "zonagent: %s", what);
  return kFailed;
}

int run(Options& options) {
  if (options.mode == Options::Mode::Check)
    zonagent::unblockSignals();
  fillFromSettings(options);
  const auto backend = zonagent::openBackend(
      options.backend, orvs::loadSetting(orvs::PN::ZONAGENT_ONLINE_CHECK, false, false));
  if (options.mode == Options::Mode::Check)
    return zonagent::selfCheck(options.backend, backend, options.names) ? 0 : kFailed;
  std::unique_ptr<zonagent::ListenSocket> listener = zonagent::ListenSocket::passed();
  if (!listener)
    listener = std::make_unique<zonagent::ListenSocket>(options.socket);
  zonagent::Server(*listener, backend, options.service).run();
  return 0;
}

int runNet(int argc, char** argv) {
  Options options;
  try {
    options = zonagent::parseOptions(argc, argv);
  } catch (const AgentError& error) {
    fprintf(stderr, "zonagent: %s\n%s", error.what(), zonagent::kUsage);
    return kUsageError;
  }
  if (options.mode == Options::Mode::Help) {
    fputs(zonagent::kUsage, stdout);
    return 0;
  }
  if (options.mode == Options::Mode::Version) {
    puts("zonagent " IDSHIFT_VERSION);
    return 0;
  }
  try {
    return run(options);
  } catch (const std::exception& error) {
    return complain(error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  zonagent::prepareSignals();
  openStandardStreams();
  zonagent::nameTheLog();
  const int status = runNet(argc, argv);
  // No destructors of statics: a worker may still be inside a module that hangs.
  fflush(nullptr);
  _exit(status);
}
