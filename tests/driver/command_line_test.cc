#include "driver/command_line.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Parses the words. Returns every field that differs from its default, or the status of a refusal.
std::string parsed(std::vector<std::string> words) {
  words.insert(words.begin(), "idshift");
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  CommandOptions o;
  const int status = ParseCommandLineOpts(static_cast<int>(words.size()), argv.data(), o);
  if (status != 0)
    return "status " + std::to_string(status);

  std::string all;
  const std::pair<char, bool> flags[] = {
      {'c', o.commit},    {'C', o.commitAll},  {'n', o.nfs},        {'f', o.follow},
      {'x', o.xdev},      {'R', o.restart},    {'U', o.undo},       {'V', o.verbose},
      {'D', o.debug},     {'v', o.version},    {'h', o.help},       {'F', o.pretend},
      {'B', o.traceMaps}, {'S', o.traceSkips}, {'+', o.traceExtra}, {'s', o.survey},
      {'j', o.json}};
  for (const auto& [letter, isSet] : flags)
    all += isSet ? std::string(1, letter) : "";
  const std::pair<const char*, const char*> files[] = {{" r=", o.reportFiles},
                                                       {" u=", o.userMapFile},
                                                       {" g=", o.groupMapFile},
                                                       {" p=", o.planFile},
                                                       {" e=", o.expectFile}};
  for (const auto& [name, value] : files)
    all += value != nullptr ? std::string(name) + value : "";
  const std::string range =
      std::to_string(o.newIDRange.low) + "-" + std::to_string(o.newIDRange.high);
  all += range != "50000-60000" ? " i=" + range : "";
  for (int i = 0; i < o.directoryCount; ++i)
    all += std::string(" ") + o.directories[i];
  return all;
}

}  // namespace

TEST(CommandLine, Rows) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{}, " /"},
      {{"-C"}, "cC /"},
      {{"-nfUvVhR"}, "nfRUVvh /"},
      {{"-c", "-x", "-D", "-F", "-B", "-S", "-+"}, "cxDFBS+ /"},
      {{"--commit", "--follow", "--nfs", "--restart", "--undo"}, "cnfRU /"},
      {{"--version", "--verbose", "--help", "--debug", "--xdev"}, "xVDvh /"},
      {{"--survey", "--json", "-V"}, "Vsj /"},
      {{"--plan", "p", "-e=q"}, " p=p e=q /"},
      {{"-s", "-jV"}, "status 7"},  // names without a letter cannot be joined in one word
      {{"-sur", "-j"}, "sj /"},     // but abbreviated
      {{"-commit-all"}, "cC /"},    // one dash
      {{"-d"}, "D /"},              // a prefix, after one dash
      {{"--rep", "f", "--us=m"}, " r=f u=m /"},                     // prefixes with arguments
      {{"--groupmap", "g", "-r-"}, " r=- g=g /"},                   // argument in the same word
      {{"-r", "1", "--report=2", "-u", "a", "-ub"}, " r=2 u=b /"},  // the last one counts
      {{"-i", "x", "--id=7"}, " i=7-4294967295 /"},  // ... and a bad one before it is not parsed
      {{"-i", ""}, " i=0-4294967295 /"},
      {{"-i", "4294967297-5"}, " i=1-5 /"},                             // wraps
      {{"-i", "99999999999999999999"}, " i=4294967295-4294967295 /"},   // saturates
      {{"-i", "2147483647-2147483648"}, " i=2147483647-2147483648 /"},  // compared as unsigned
      {{"-i", "2000-1000"}, "status 7"},
      {{"-i", "-4294967295"}, "status 7"},
      {{"-i", "0-"}, "status 7"},
      {{"-i", "5x"}, "status 7"},
      {{"-i", "5-6x"}, "status 7"},
      {{"b", "-c", "a", "b"}, "c b a b"},  // arguments may stand anywhere
      {{"--", "-c"}, " -c"},
      {{"-h", "-q"}, "status 7"},  // unknown
      {{"-qc"}, "status 7"},       // getopt must forget the rest of the word before the next row
      {{"-h"}, "h /"},
      {{"--com"}, "status 7"},               // two names begin with these letters
      {{"-r"}, "status 7"},                  // no argument
      {{"--commit=yes"}, "status 7"},        // an argument too many
      {{"-h", "--xdev", "-n"}, "status 7"},  // exclude each other
  };
  for (const auto& [words, expected] : rows)
    EXPECT_EQ(parsed(words), expected) << testing::PrintToString(words);
}
