// Plans: written by --plan, compared with the present conversion by --expect.
#include <sys/stat.h>

#include <regex>

#include "services/paths.h"
#include "tests/support/std_trees.h"
#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

using namespace std::string_literals;

namespace {

constexpr const char* kPlan = "/tmp/plan";

class Plan : public WholeRun {
 protected:
  void arrange() override {
    WholeRun::arrange();
    plant("/trees/t", {"- 500:100 f", "- 501:101 g"});
  }
};

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from;
  return at == text.npos ? text : text.replace(at, from.size(), to);
}

const std::string kRows =
    " \"users\": [\n"
    "  {\"local\":{\"name\":\"ann\",\"id\":500},\"zone\":{\"name\":\"ann\",\"id\":10001},"
    "\"resolution\":\"use-zone-id\",\"newId\":10001},\n"
    "  {\"local\":{\"name\":\"bob\",\"id\":501},\"zone\":{\"name\":\"dora\",\"id\":501},"
    "\"resolution\":\"assign-new-id\",\"newId\":50501}],\n"
    " \"groups\": [\n"
    "  {\"local\":{\"name\":\"users\",\"id\":100},\"zone\":{\"name\":\"users\",\"id\":10000},"
    "\"resolution\":\"use-zone-id\",\"newId\":10000},\n"
    "  {\"local\":{\"name\":\"bobs\",\"id\":101},\"zone\":{\"name\":\"domad\",\"id\":101},"
    "\"resolution\":\"assign-new-id\",\"newId\":50101}],\n"
    " \"accounts\": [\n"
    "  {\"kind\":\"group\",\"name\":\"users\",\"old\":{\"gid\":100},\"new\":{\"gid\":10000}},\n"
    "  {\"kind\":\"group\",\"name\":\"bobs\",\"old\":{\"gid\":101},\"new\":{\"gid\":50101}},\n"
    "  {\"kind\":\"passwd\",\"name\":\"ann\",\"old\":{\"uid\":500,\"gid\":100},"
    "\"new\":{\"uid\":10001,\"gid\":10000}},\n"
    "  {\"kind\":\"passwd\",\"name\":\"bob\",\"old\":{\"uid\":501,\"gid\":101},"
    "\"new\":{\"uid\":50501,\"gid\":50101}},\n"
    "  {\"kind\":\"passwd\",\"name\":\"cid\",\"old\":{\"uid\":502,\"gid\":100},"
    "\"new\":{\"uid\":502,\"gid\":10000}}]}\n";

const std::string kHead =
    "{\"format\":\"idshift-plan\",\"version\":1,\"domain\":\"corp\",\"host\":\"h\","
    "\"date\":\"2026-11-21T18:00:00Z\",\"options\":{\"range\":[50000,60000]},\n";

}  // namespace

TEST_F(Plan, IsWrittenByADryRunToAFileOrInPlaceOfTheTables) {
  const TreeSnapshot etc = takeSnapshot("/etc");
  const RunResult printed = idshift({"--plan", "-", "/trees/t"});
  EXPECT_EQ(printed.status, 0) << printed;
  const std::regex head(
      "\\{\"format\":\"idshift-plan\",\"version\":1,\"domain\":\"corp\",\"host\":\"[^\"]*\","
      "\"date\":\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\",\"options\":\\{\"range\":\\[50000,60000\\]\\},\n");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(printed.out, match, head)) << printed;
  EXPECT_EQ(match.suffix().str(), kRows);

  writeFile("/etc/map", "abc");  // has no line feed, so no line counts
  const RunResult filed = idshift({"--plan", kPlan, "-u", "/etc/map", "-i", "7"});
  EXPECT_EQ(filed.out, idshift({"-i", "7"}).out);
  EXPECT_TRUE(contains(readFile(kPlan),
                       "\"options\":{\"range\":[7,4294967295],\"usermap\":\""
                       "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\"}"));
  remove("/etc/map");
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
  // Bytes that are not UTF-8 come back unchanged.
  setPasswd("\xff:x:501:100::/:/bin/sh\n");
  writeFile("/etc/map", "\xff ann\n");
  EXPECT_EQ(idshift({"--plan", kPlan, "-u", "/etc/map"}).status, 0);
  EXPECT_EQ(countOf(readFile(kPlan), "\"nameBytes\":\"/w==\""), 2U) << readFile(kPlan);
  EXPECT_EQ(idshift({"-C", "--expect", kPlan, "-u", "/etc/map", "/trees/t"}).status, 0);
  EXPECT_EQ(readFile("/etc/passwd"), "\xff:x:10001:10000::/:/bin/sh\n");
}

// A plan is written by the rules for report files, only to a regular file, and whole or not at all.
TEST_F(Plan, TakesItsNameWhenItIsWhole) {
  ASSERT_EQ(shell("mkdir /trees/home /trees/d; mkfifo /trees/fifo; cd /trees; echo old > victim;"
                  "ln -s ../victim home/link; ln victim home/hard; ln -s victim ours;"
                  "chown -h 777:777 home home/link; chmod 1777 /tmp; echo his > /tmp/his;"
                  "chown 777 /tmp/his; chmod 640 victim; chown 5:6 victim")
                .status,
            0);
  for (const char* name : {"/trees/home/link", "/trees/home/hard", "/tmp/his", "/trees/fifo",
                           "/trees/d", "/trees/none/plan", "/dev/null", ""}) {
    const RunResult refused = idshift({"--plan", name});
    EXPECT_EQ(refused.status, 6) << name;
    EXPECT_TRUE(refused.err.starts_with("Error: cannot write plan "s + name + ": ")) << refused;
  }
  EXPECT_EQ(readFile("/trees/victim") + readFile("/tmp/his"), "old\nhis\n");
  const TreeSnapshot before = takeSnapshot("/trees");
  const auto isWrite = [](const SystemCall& call) {
    return call.number == SYS_write && contains(call.descriptorPath(0), "/trees/.idshift-plan.");
  };
  const auto fail = [](const SystemCall&) { return CallVerdict{CallVerdict::kFail, ENOSPC}; };
  const RunResult full =
      runTraced({binaryPath("idshift"), "--plan", "/trees/ours"}, atCall(isWrite, 1, fail));
  EXPECT_EQ(full.err, "Error: cannot write plan /trees/ours: No space left on device\n");
  EXPECT_TRUE(sameTree(before, takeSnapshot("/trees")));

  EXPECT_EQ(idshift({"--plan", "/trees/ours"}).status, 0);
  EXPECT_TRUE(readFile("/trees/victim").ends_with(kRows));
  EXPECT_EQ(readFile("/trees/home/hard"), "old\n");
  EXPECT_EQ(ownerOf("/trees/victim"), "5:6");
  EXPECT_EQ(takeSnapshot("/trees").at("victim").mode, 0640U);
}

TEST_F(Plan, OfAnotherConversionIsRefusedAndNothingIsTouched) {
  const struct {
    std::string from, to;  // replaced in the plan
    std::string line;      // expected on standard error
    int lines = 1;
  } rows[] = {
      {"\"corp\"", "\"corpse\"", "domain: approved \"corpse\", now \"corp\""},
      {"500},", "77},", "user: not approved {\"local\":{\"name\":\"ann\",\"id\":500},", 2},
      {kRows.substr(kRows.find("  {\"local\":{\"name\":\"ann"), 110), "",
       "user: not approved {\"local\":{\"name\":\"ann\",\"id\":500},"},
      {"\"users\": [",
       "\"users\": [{\"local\":{\"name\":\"cid\",\"id\":502},\"zone\":{\"name\":"
       "\"cid\",\"id\":7},\"resolution\":\"use-zone-id\",\"newId\":7},",
       "user: approved {\"local\":{\"name\":\"cid\",\"id\":502}"},
      {"\"newId\":50501", "\"newId\":50502", "user: approved {\"local\":{\"name\":\"bob\""},
      {"assign-new-id", "use-zone-id", "user: approved {\"local\":{\"name\":\"bob\""},
      {"{\"name\":\"ann\"", "{\"name\":\"Ann\"", "user: approved {\"local\":{\"name\":\"Ann\""},
      {"\"dora\"", "\"nora\"", "user: approved {\"local\":{\"name\":\"bob\""},
      {"\"dora\",\"id\":501", "\"dora\",\"id\":502", "user: approved {\"local\":{\"name\":\"bob\""},
      {"\"newId\":50101", "\"newId\":50102", "group: approved {\"local\":{\"name\":\"bobs\""},
      {"\"name\":\"bobs\",\"id\"", "\"nameBytes\":\"/w==\",\"id\"",
       "group: approved {\"local\":{\"nameBytes\":\"/w==\""},
      {",\n  {\"kind\":\"passwd\",\"name\":\"cid\",\"old\":{\"uid\":502,\"gid\":100},"
       "\"new\":{\"uid\":502,\"gid\":10000}}",
       "", "account: not approved {\"kind\":\"passwd\",\"name\":\"cid\""},
      {"\"name\":\"cid\"", "\"name\":\"eve\"",
       "account: approved {\"kind\":\"passwd\",\"name\":\"eve\"", 2},
      {"\"new\":{\"gid\":50101}", "\"new\":{\"gid\":50102}",
       "account: approved {\"kind\":\"group\",\"name\":\"bobs\"", 2},
  };
  const std::string former = "domain:elsewhere\n!Thu\n/f:1:2:3:4:5:6\n";
  for (const std::string& log : {former, ""s}) {
    if (!log.empty())
      writeFile(paths::kPrivateLog, log, 0600);
    const TreeSnapshot etc = takeSnapshot("/etc");
    const TreeSnapshot trees = takeSnapshot("/trees");
    for (const auto& row : rows) {
      SCOPED_TRACE(row.line);
      writeFile(kPlan, replaced(kHead + kRows, row.from, row.to));
      for (const char* letters : {"-C", "-cR", "-CF", "-x"}) {
        const RunResult result = idshift({letters, "--expect", kPlan, "/trees/t"});
        EXPECT_EQ(result.status, 168) << result;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(countOf(result.err, "Not as approved: "), size_t(row.lines)) << result;
        EXPECT_TRUE(contains(result.err, "Not as approved: " + row.line)) << result;
        if (log.empty())
          break;
      }
    }
    // Each difference names the options that were others when the plan was made.
    writeFile(kPlan, kHead + kRows);
    const RunResult other = idshift({"-C", "-i", "1000-2000", "--expect", kPlan, "/trees/t"});
    EXPECT_EQ(countOf(other.err, " (approved with another --id)\n"), 6U) << other;
    EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
    EXPECT_TRUE(sameTree(trees, takeSnapshot("/trees")));
    remove(paths::kPrivateLog);
  }
}

TEST_F(Plan, ATextThatIsNoPlanIsRefusedInOneSentence) {
  const std::string good = kHead + kRows;
  const struct {
    std::string text;
    const char* fault;
  } rows[] = {
      {"", "is cut short or not JSON, at byte 1"},
      {good.substr(0, 900), "is cut short or not JSON, at byte [0-9]+"},
      {good + "{}", "is cut short or not JSON, at byte [0-9]+"},
      {"[]", "has no object where one is required"},
      {"{}", "lacks the key \"format\""},
      {replaced(good, "idshift-plan", "idshift-survey"), "has another format than idshift-plan"},
      {replaced(good, "\"version\":1", "\"version\":2"), "has another version than 1"},
      {replaced(good, "\"version\":1", "\"version\":true"), "has another version than 1"},
      {replaced(good, "\"host\"", "\"hosts\""), "has the unknown key \"hosts\""},
      {replaced(good, "\"newId\"", "\"newid\""), "has the unknown key \"newid\""},
      {replaced(good, "\"host\":\"h\"", "\"host\":\"h\",\"host\":\"h\""),
       "has the key \"host\" twice"},
      {replaced(good, "\"id\":500", "\"id\":500,\"id\":500"), "has the key \"id\" twice"},
      {replaced(good, "\"date\":\"2026-11-21T18:00:00Z\",", ""), "lacks the key \"date\""},
      {replaced(good, "\"id\":500", "\"id\":4294967296"), "has no id from .* in \"id\""},
      {replaced(good, "\"id\":500", "\"id\":-1"), "has no id from .* in \"id\""},
      {replaced(good, "\"id\":500", "\"id\":500.0"), "has no id from .* in \"id\""},
      {replaced(good, "\"uid\":500", "\"uid\":\"500\""), "has no id from .* in \"uid\""},
      {replaced(good, "[50000,60000]", "[50000]"), "does not have two ids in \"range\""},
      {replaced(good, "use-zone-id", "none"), "has an unknown resolution"},
      {replaced(good, "\"kind\":\"group\"", "\"kind\":\"shadow\""),
       "has an unknown kind of account"},
      {replaced(good, "\"id\":501", "\"id\":500"), "has two conflicts for the id 500"},
      {replaced(good, "\"name\":\"ann\"", "\"nameBytes\":\"YW5u\""),
       "has an invalid value in \"nameBytes\""},
      {replaced(good, "\"name\":\"ann\"", "\"nameBytes\":\"/x==\""),
       "has an invalid value in \"nameBytes\""},
      {replaced(good, "\"users\": [", "\"users\": [7,"), "has no list of objects in \"users\""},
      {replaced(good, "\"host\":\"h\"", "\"host\":" + std::string(100000, '[')),
       "has more members in one place than a plan can have"},
      {replaced(good, "\"id\":500", "\"id\":[" + replaced(std::string(60, '0'), "0", "") + "]"),
       "is cut short or not JSON.*"},
      {"\"" + std::string(size_t{100} << 20, 'x') + "\"", "is longer than 64 MiB"},
  };
  const TreeSnapshot etc = takeSnapshot("/etc");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fault);
    writeFile(kPlan, row.text);
    const RunResult result = idshift({"-C", "--expect", kPlan, "/trees/t"});
    EXPECT_EQ(result.status, 168) << result;
    EXPECT_TRUE(
        std::regex_match(result.err, std::regex("Error: the plan /tmp/plan "s + row.fault + "\n")))
        << result;
  }
  const struct {
    const char* command;  // behind the program's name
    int status;
    const char* err;
  } others[] = {
      {"-C --expect /tmp/none", 6,
       "Error: cannot read plan /tmp/none: No such file or directory\n"},
      {"-C --expect /tmp", 6, "Error: cannot read plan /tmp: Is a directory\n"},
      {"-C --expect -", 168, "Error: the plan - is cut short or not JSON, at byte 1\n"},
      {"-C --expect - < /dev/zero", 168, "Error: the plan - is longer than 64 MiB\n"},
      {"-C --expect - < /tmp", 6, "Error: cannot read plan -: Is a directory\n"},
      {"-C --expect /tmp/fifo", 168,
       "Error: the plan /tmp/fifo is cut short or not JSON, at byte 1\n"},
      {"-C --expect /tmp/plan -u /none", 162, "Error: cannot load user-map file /none\n"}};
  writeFile(kPlan, good);
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  for (const auto& row : others) {
    const RunResult result = shell(binaryPath("idshift") + " " + row.command);
    EXPECT_EQ(result.status, row.status) << row.command;
    EXPECT_EQ(result.err, row.err);
  }
  EXPECT_TRUE(sameTree(etc, takeSnapshot("/etc")));
}

// A conversion that was approved once can be made, interrupted anywhere, continued and repeated.
TEST_F(Plan, CanBeContinuedAndRepeated) {
  setPasswd(readFile("/etc/passwd") + "dan:x:503:999::/:/bin/sh\n");
  setZone(zoneUsers, "users:x:10000:\ndomad:x:101:\nfar:x:999:\n");
  ASSERT_EQ(idshift({"--plan", kPlan, "/trees/t"}).status, 0);
  ASSERT_TRUE(contains(readFile(kPlan), "{\"name\":\"\",\"id\":999}")) << readFile(kPlan);
  const std::vector<std::string> commit = {binaryPath("idshift"), "-C", "--expect", kPlan,
                                           "/trees/t"};
  const auto killAt = [&](auto isCall) {
    runTraced(commit,
              atCall(isCall, 2, [](const SystemCall&) { return CallVerdict{CallVerdict::kKill}; }));
  };
  killAt([](const SystemCall& call) {
    return call.number == SYS_fchownat || call.number == SYS_lchown;
  });
  EXPECT_EQ(ownerOf("/trees/t/f") == "500:100" || ownerOf("/trees/t/g") == "501:101", true);
  // The second rename of an account file: one group has its new gid by then.
  killAt([](const SystemCall& call) {
    return call.number == SYS_rename && call.text(1) == "/etc/group";
  });
  EXPECT_TRUE(contains(readFile("/etc/group"), "users:x:10000:") &&
              contains(readFile("/etc/passwd"), "ann:x:500:"));
  EXPECT_EQ(idshift({"--expect", kPlan}).status, 0);
  EXPECT_EQ(idshift({"-C", "-i", "100000", "--expect", kPlan, "/trees/t"}).status, 0);
  const RunResult repeated = runProgram(commit);
  EXPECT_EQ(repeated.status, 0) << repeated;
  EXPECT_EQ(repeated.err, "");
  EXPECT_TRUE(contains(repeated.out, "No user-id or group-id conflicts were found")) << repeated;
  EXPECT_EQ(ownerOf("/trees/t/f") + " " + ownerOf("/trees/t/g"), "10001:10000 50501:50101");
  EXPECT_TRUE(contains(readFile("/etc/passwd"), "dan:x:503:50999:"));
  // An account that somebody gave other ids does not count as converted.
  setPasswd(replaced(readFile("/etc/passwd"), "dan:x:503:50999", "dan:x:503:998"));
  EXPECT_TRUE(std::regex_match(
      runProgram(commit).err,
      std::regex("Not as approved: group: approved .*, now no conflict\n"
                 "Not as approved: account: approved .*\"dan\".*, now no update\n")));
}

TEST_F(Plan, ReportsComeAsJsonLines) {
  writeFile("/trees/t/\xff\x1b", "");
  ASSERT_EQ(shell("chown 500:100 /trees/t/*; chown 0:0 /trees/t/g").status, 0);
  const RunResult result = idshift({"-C", "-r", "-", "--json", "/trees/t"});
  EXPECT_EQ(result.status, 0) << result;
  const std::string rows =
      std::regex_replace(result.out, std::regex("\"date\":\"[^\"]+ 20\\d\\d\""), "DATE");
  const std::string file =
      "\"old\":{\"uid\":500,\"gid\":100},\"new\":{\"uid\":10001,\"gid\":10000}}";
  for (
      const std::string& row :
      {"{\"kind\":\"file\",DATE,\"path\":\"/trees/t/f\"," + file,
       "{\"kind\":\"file\",DATE,\"pathBytes\":\"L3RyZWVzL3Qv/xs=\"," + file,
       "{\"kind\":\"passwd\",DATE,\"name\":\"ann\"," + file,
       "{\"kind\":\"group\",DATE,\"name\":\"bobs\",\"old\":{\"gid\":101},\"new\":{\"gid\":50101}}"s})
    EXPECT_TRUE(contains(rows, row + "\n")) << rows << row;
  EXPECT_EQ(linesOf(rows).size(), 8U) << rows;  // two files, five accounts, the count
}
