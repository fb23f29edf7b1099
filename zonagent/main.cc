#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "services/paths.h"
#include "services/properties.h"
#include "services/std_streams.h"
#include "zonagent/agent_log.h"
#include "zonagent/agent_signals.h"
#include "zonagent/backend.h"
#include "zonagent/listen_socket.h"
#include "zonagent/options.h"
#include "zonagent/reload_request.h"
#include "zonagent/self_check.h"
#include "zonagent/server.h"
#include "zonagent/zone_source.h"

namespace {

using zonagent::AgentError;
using zonagent::Options;

constexpr int kFailed = 1;
constexpr int kUsageError = 2;

int complain(const char* what) {
  AGENT_SAY("main", "zonagent: %s", what);
  return kFailed;
}

std::string socketOf(const Options& options) {
  return options.socket.empty() ? paths::kAgentSocket : options.socket;
}

int check(const Options& options) {
  zonagent::unblockSignals();
  orvs::Properties properties;
  properties.load(paths::kSettings);
  const zonagent::Settings settings = zonagent::settingsFor(options, properties);
  const auto backend = zonagent::openBackend(settings.backend);
  return zonagent::selfCheck(settings.backend.backend, backend, options.names) ? 0 : kFailed;
}

// With a socket from systemd the agent keeps running although its zone cannot be opened. If it
// ended, systemd would start it again for each client, and soon close the socket for good.
int serve(const Options& options) {
  using zonagent::ListenSocket;
  using AtStart = zonagent::ZoneSource::AtStart;
  std::unique_ptr<ListenSocket> listener = ListenSocket::passed();
  zonagent::ZoneSource source(options, listener ? AtStart::MayStayClosed : AtStart::MustOpen);
  if (!listener)
    listener = std::make_unique<ListenSocket>(socketOf(options));
  zonagent::Server server(*listener, source);
  AGENT_SAY("main", "zonagent: %s: %s", listener->path().c_str(), source.state().c_str());
  server.run();
  return 0;
}

int reload(const Options& options) {
  zonagent::unblockSignals();
  zonagent::requestReload(options.agent, socketOf(options));
  return 0;
}

int run(const Options& options) {
  switch (options.mode) {
    case Options::Mode::Check:
      return check(options);
    case Options::Mode::Reload:
      return reload(options);
    default:
      return serve(options);
  }
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
  if (!fillStandardStreams())
    _exit(kFailed);
  zonagent::nameTheLog();
  const int status = runNet(argc, argv);
  // exit() would destroy statics while a worker may still be inside a module that hangs.
  fflush(nullptr);
  _exit(status);
}
