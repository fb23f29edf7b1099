#include "zonagent/options.h"

#include <charconv>

#include <boost/program_options.hpp>

#include "services/paths.h"
#include "services/setting_keys.h"
#include "services/text.h"
#include "zonagent/agent_log.h"
#include "zonagent/backend.h"

namespace zonagent {

const char* const kUsage =
    "usage: zonagent [--backend SPEC] [--socket PATH] [--service NAME]\n"
    "       zonagent [--backend SPEC] --check [NAME...]\n"
    "       zonagent [--socket PATH] --reload PID\n"
    "\n"
    "  --backend SPEC   where the zone comes from: files:DIR (passwd, group and aliases\n"
    "                   in DIR) or nss:NAME (the host's NSS module libnss_NAME.so.2)\n"
    "  --socket PATH    where to listen\n"
    "  --service NAME   the name of the service on the wire\n"
    "  --check          try the backend, look the names up, print a verdict and exit;\n"
    "                   status 1 when the agent would not serve this zone\n"
    "  --reload PID     make the agent with this process id reload, and wait until it has\n"
    "  --help, --version\n"
    "\n"
    "Without --backend and --service the settings zonagent.backend and agent.service count.\n"
    "SIGHUP makes the agent read its settings and the zone again; SIGTERM ends the agent.\n";

namespace {

namespace po = boost::program_options;

po::variables_map parse(int argc, const char* const* argv) {
  po::options_description all;
  all.add_options()("backend", po::value<std::string>())("socket", po::value<std::string>())(
      "service", po::value<std::string>())("check", "")("reload", po::value<pid_t>())("help", "")(
      "version", "")("name", po::value<std::vector<std::string>>());
  po::positional_options_description positional;
  positional.add("name", -1);
  po::variables_map values;
  try {
    using Style = po::command_line_style::style_t;
    po::store(po::command_line_parser(argc, argv)
                  .options(all)
                  .positional(positional)
                  .style(Style::unix_style & ~Style::allow_guessing)
                  .run(),
              values);
  } catch (const po::error& error) {
    throw AgentError(error.what());
  }
  return values;
}

std::string textOf(const po::variables_map& values, const char* key) {
  if (!values.contains(key))
    return "";
  std::string text = values[key].as<std::string>();
  if (text.empty())
    throw AgentError(std::string("--") + key + " must not be empty");
  return text;
}

std::chrono::seconds secondsOf(const char* key,
                               orvs::Properties& properties,
                               std::chrono::seconds otherwise) {
  constexpr unsigned kMost = 3600;
  const std::string text = properties.getString(key);
  if (text.empty())
    return otherwise;
  unsigned seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || stop != end || seconds > kMost)
    throw AgentError(std::string(key) + " must be a whole number from 0 to 3600, not " +
                     inQuotes(text));
  return std::chrono::seconds(seconds);
}

}  // namespace

Options parseOptions(int argc, const char* const* argv) {
  const po::variables_map values = parse(argc, argv);
  Options options;
  if (values.contains("help"))
    options.mode = Options::Mode::Help;
  else if (values.contains("version"))
    options.mode = Options::Mode::Version;
  else if (values.contains("check"))
    options.mode = Options::Mode::Check;
  else if (values.contains("reload"))
    options.mode = Options::Mode::Reload;
  options.backend = textOf(values, "backend");
  options.socket = textOf(values, "socket");
  options.service = textOf(values, "service");
  if (values.contains("name"))
    options.names = values["name"].as<std::vector<std::string>>();
  if (options.mode != Options::Mode::Check && !options.names.empty())
    throw AgentError("names to look up need --check");
  if (options.mode == Options::Mode::Reload)
    options.agent = values["reload"].as<pid_t>();
  if (options.mode == Options::Mode::Reload && options.agent <= 0)
    throw AgentError("--reload needs a process id");
  return options;
}

Settings settingsFor(const Options& commandLine, orvs::Properties& properties) {
  const auto choose = [&](const std::string& given, const char* key, const std::string& otherwise) {
    const std::string value = given.empty() ? properties.getString(key) : given;
    return value.empty() ? otherwise : value;
  };
  Settings settings;
  settings.backend.backend = choose(commandLine.backend, orvs::PN::ZONAGENT_BACKEND,
                                    std::string("files:") + paths::kZoneDirectory);
  settings.backend.onlineCheck = properties.getString(orvs::PN::ZONAGENT_ONLINE_CHECK);
  settings.backend.onlineWindow =
      secondsOf(orvs::PN::ZONAGENT_ONLINE_SECONDS, properties, settings.backend.onlineWindow);
  settings.service =
      choose(commandLine.service, orvs::PN::AGENT_SERVICE, orvs::wire::kDefaultService);
  if (orvs::wire::nameForm(settings.service) != orvs::wire::NameForm::Good)
    throw AgentError("the service's name is not UTF-8 or has a control character");
  return settings;
}

}  // namespace zonagent
