#include "driver/command_line.h"

#include <getopt.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/exit_status.h"
#include "services/logger.h"
#include "services/say.h"

namespace {

constexpr const char* kDigits = "0123456789";

// At the end "+" is an option letter. At the front it would be a flag of getopt.
constexpr const char* kShortOptions = "cCr:u:g:i:xfnUvVhDRFBS+";

// What getopt returns for options without a letter.
enum : int { kSurvey = 256, kJson, kPlan, kExpect };

constexpr option kLongOptions[] = {
    {"commit", no_argument, nullptr, 'c'},
    {"commit-all", no_argument, nullptr, 'C'},
    {"report", required_argument, nullptr, 'r'},
    {"usermap", required_argument, nullptr, 'u'},
    {"groupmap", required_argument, nullptr, 'g'},
    {"id", required_argument, nullptr, 'i'},
    {"xdev", no_argument, nullptr, 'x'},
    {"follow", no_argument, nullptr, 'f'},
    {"nfs", no_argument, nullptr, 'n'},
    {"restart", no_argument, nullptr, 'R'},
    {"undo", no_argument, nullptr, 'U'},
    {"version", no_argument, nullptr, 'v'},
    {"verbose", no_argument, nullptr, 'V'},
    {"help", no_argument, nullptr, 'h'},
    {"debug", no_argument, nullptr, 'D'},
    {"survey", no_argument, nullptr, kSurvey},
    {"json", no_argument, nullptr, kJson},
    {"plan", required_argument, nullptr, kPlan},
    {"expect", required_argument, nullptr, kExpect},
    {nullptr, 0, nullptr, 0},
};

constexpr struct {
  int letter;
  bool CommandOptions::*flag;
} kFlags[] = {
    {'c', &CommandOptions::commit},
    {'x', &CommandOptions::xdev},
    {'f', &CommandOptions::follow},
    {'n', &CommandOptions::nfs},
    {'R', &CommandOptions::restart},
    {'U', &CommandOptions::undo},
    {'v', &CommandOptions::version},
    {'V', &CommandOptions::verbose},
    {'h', &CommandOptions::help},
    {'D', &CommandOptions::debug},
    // These options have neither a long name nor a line in the usage text.
    {'F', &CommandOptions::pretend},
    {'B', &CommandOptions::traceMaps},
    {'S', &CommandOptions::traceSkips},
    {'+', &CommandOptions::traceExtra},
    {kSurvey, &CommandOptions::survey},
    {kJson, &CommandOptions::json},
};

bool setFlag(int letter, CommandOptions& options) {
  for (const auto& row : kFlags) {
    if (row.letter == letter) {
      options.*row.flag = true;
      return true;
    }
  }
  return false;
}

// Applies one letter that getopt returned. False for a letter that is no option: getopt returns "?"
// for an unknown option, an ambiguous name and a missing argument.
bool applyLetter(int letter,
                 const char* argument,
                 CommandOptions& options,
                 const char*& rangeText) {
  switch (letter) {
    case 'C':
      options.commit = true;
      options.commitAll = true;
      return true;
    case 'r':
      options.reportFiles = argument;
      return true;
    case 'u':
      options.userMapFile = argument;
      return true;
    case 'g':
      options.groupMapFile = argument;
      return true;
    case 'i':
      rangeText = argument;
      return true;
    case kPlan:
      options.planFile = argument;
      return true;
    case kExpect:
      options.expectFile = argument;
      return true;
    default:
      return setFlag(letter, options);
  }
}

void takeDirectories(int argc, char** argv, CommandOptions& options) {
  static constexpr const char* kRootAlone[] = {"/"};
  const bool given = optind < argc;
  options.directories = given ? argv + optind : kRootAlone;
  options.directoryCount = given ? argc - optind : 1;
}

// Required: a number that is too long becomes the largest long, then keeps its low 32 bits, without
// a message. So a range up to 18446744073709551615, which some tools print for "no limit", reaches
// the largest id.
uint32_t leadingNumber(const char* text) {
  return static_cast<uint32_t>(strtol(text, nullptr, 10));
}

}  // namespace

std::optional<IdRange> parseIdRange(const char* text) {
  const size_t firstEnd = strspn(text, kDigits);
  if (text[firstEnd] == '\0')
    return IdRange{leadingNumber(text), UINT32_MAX};
  if (firstEnd == 0 || text[firstEnd] != '-' || text[firstEnd + 1] == '\0')
    return std::nullopt;

  const char* second = text + firstEnd + 1;
  if (second[strspn(second, kDigits)] != '\0')
    return std::nullopt;
  const IdRange range = {leadingNumber(text), leadingNumber(second)};
  if (range.low > range.high)
    return std::nullopt;
  return range;
}

int ParseCommandLineOpts(int argc, char** argv, CommandOptions& options) {
  opterr = 0;
  optind = 0;  // not 1: only 0 makes glibc forget an earlier argv
  const char* rangeText = nullptr;
  int letter;
  while ((letter = getopt_long_only(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
    if (!applyLetter(letter, optarg, options, rangeText))
      return kExitUsage;
  }
  if (options.nfs && options.xdev)
    return kExitUsage;
  takeDirectories(argc, argv, options);
  if (rangeText == nullptr)
    return kExitSuccess;

  const std::optional<IdRange> range = parseIdRange(rangeText);
  if (!range) {
    const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
    TELL(Echo::Stderr, "Error: invalid id-range specification");
    return kExitUsage;
  }
  options.newIDRange = *range;
  return kExitSuccess;
}
