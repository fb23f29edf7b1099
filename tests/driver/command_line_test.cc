#include "driver/command_line.h"

#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kTop = 4294967295u;

// argv as the parser wants it; the strings live as long as this.
class Arguments {
 public:
  Arguments(std::initializer_list<const char*> words) {
    texts.emplace_back("idshift");
    texts.insert(texts.end(), words.begin(), words.end());
    for (std::string& text : texts)
      pointers.push_back(text.data());
    pointers.push_back(nullptr);
  }
  int parse(CommandOptions& options) {
    return ParseCommandLineOpts(static_cast<int>(texts.size()), pointers.data(), options);
  }
  std::string joined() const {
    std::string all;
    for (const std::string& text : texts)
      all += text + " ";
    return all;
  }

 private:
  std::vector<std::string> texts;
  std::vector<char*> pointers;
};

// Every field that differs from its default, as one letter each or "letter=value".
std::string summary(const CommandOptions& o) {
  std::string text;
  const struct {
    bool set;
    char letter;
  } flags[] = {{o.commit, 'c'},    {o.commitAll, 'C'},  {o.nfs, 'n'},       {o.follow, 'f'},
               {o.xdev, 'x'},      {o.restart, 'R'},    {o.undo, 'U'},      {o.verbose, 'V'},
               {o.debug, 'D'},     {o.version, 'v'},    {o.help, 'h'},      {o.pretend, 'F'},
               {o.traceMaps, 'B'}, {o.traceSkips, 'S'}, {o.traceExtra, '+'}};
  for (const auto& flag : flags) {
    if (flag.set)
      text += flag.letter;
  }
  const struct {
    const char* value;
    const char* name;
  } files[] = {{o.reportFiles, " r="}, {o.userMapFile, " u="}, {o.groupMapFile, " g="}};
  for (const auto& file : files) {
    if (file.value != nullptr)
      text += std::string(file.name) + file.value;
  }
  for (int i = 0; i < o.directoryCount; ++i)
    text += std::string(" ") + o.directories[i];
  return text;
}

}  // namespace

TEST(IdRangeText, Rows) {
  const struct {
    const char* text;
    bool accepted;
    uint32_t low, high;
  } rows[] = {
      {"", true, 0, kTop},
      {"1000", true, 1000, kTop},
      {"1000-1000", true, 1000, 1000},
      {"0-4294967295", true, 0, kTop},
      {"4294967297-5", true, 1, 5},                               // wraps
      {"99999999999999999999", true, kTop, kTop},                 // saturates
      {"2147483647-2147483648", true, 2147483647u, 2147483648u},  // compared as unsigned
      {"2000-1000", false, 0, 0},
      {"5-", false, 0, 0},
      {"0-", false, 0, 0},
      {"-5", false, 0, 0},
      {"-", false, 0, 0},
      {"5-6-7", false, 0, 0},
      {"5--7", false, 0, 0},
      {"5x", false, 0, 0},
      {"5x7", false, 0, 0},
      {"5 ", false, 0, 0},
      {" 5", false, 0, 0},
      {"5-6x", false, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const std::optional<IdRange> range = parseIdRange(row.text);
    ASSERT_EQ(range.has_value(), row.accepted);
    if (range) {
      EXPECT_EQ(range->low, row.low);
      EXPECT_EQ(range->high, row.high);
    }
  }
}

TEST(CommandLine, Accepted) {
  const struct {
    Arguments arguments;
    const char* expected;
  } rows[] = {
      {{}, " /"},
      {{"-c"}, "c /"},
      {{"-C"}, "cC /"},
      {{"-nfUvVhR"}, "nfRUVvh /"},
      {{"-x"}, "x /"},
      {{"-D", "-F", "-B", "-S", "-+"}, "DFBS+ /"},
      {{"--commit", "--follow", "--nfs", "--restart", "--undo"}, "cnfRU /"},
      {{"--version", "--verbose", "--help", "--debug", "--xdev"}, "xVDvh /"},
      {{"-commit-all"}, "cC /"},                                    // one dash
      {{"-d"}, "D /"},                                              // a prefix, after one dash
      {{"--rep", "f", "--us=m"}, " r=f u=m /"},                     // prefixes with arguments
      {{"--groupmap", "g", "-r-"}, " r=- g=g /"},                   // argument in the same word
      {{"-r", "1", "--report=2", "-u", "a", "-ub"}, " r=2 u=b /"},  // the last one holds
      {{"b", "-c", "a", "b"}, "c b a b"},                           // arguments may stand anywhere
      {{"--", "-c"}, " -c"},
  };
  for (auto row : rows) {
    SCOPED_TRACE(row.arguments.joined());
    CommandOptions options;
    EXPECT_EQ(row.arguments.parse(options), 0);
    EXPECT_EQ(summary(options), row.expected);
    EXPECT_EQ(options.newIDRange.low, 50000u);
    EXPECT_EQ(options.newIDRange.high, 60000u);
  }
}

TEST(CommandLine, Refused) {
  Arguments rows[] = {
      {"-q"},                  // unknown
      {"-h", "-q"},            // behind a good one
      {"--com"},               // two names begin so
      {"--nothing"},           //
      {"-r"},                  // no argument
      {"--usermap"},           //
      {"--commit=yes"},        // an argument too many
      {"-n", "-x"},            // contradict each other
      {"-h", "--xdev", "-n"},  //
  };
  for (Arguments& arguments : rows) {
    SCOPED_TRACE(arguments.joined());
    CommandOptions options;
    EXPECT_EQ(arguments.parse(options), 7);
  }
}

TEST(CommandLine, AnIdRangeReplacesBothEnds) {
  CommandOptions options;
  EXPECT_EQ((Arguments{"-i", "x", "--id=7"}.parse(options)), 0);
  EXPECT_EQ(options.newIDRange.low, 7u);
  EXPECT_EQ(options.newIDRange.high, kTop);
}

TEST(CommandLine, ARefusalInsideAWordLeavesNothingForTheNextCall) {
  CommandOptions options;
  Arguments refused = {"-qc"};
  EXPECT_EQ(refused.parse(options), 7);
  EXPECT_EQ((Arguments{"-h"}.parse(options)), 0);
  EXPECT_EQ(summary(options), "h /");
}
