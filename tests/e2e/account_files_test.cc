// Account files with every oddity go through a --commit-all and its undo. The results are compared,
// byte for byte, with texts written by hand.
#include <sys/xattr.h>

#include "tests/support/std_trees.h"
#include "tests/support/whole_run.h"

namespace {

using namespace std::string_literals;

// "%U" and "%G" are ann's ids, "%g" is the gid of the group users.
std::string filled(std::string text, const char* uid, const char* gid) {
  const std::pair<std::string, const char*> places[] = {{"%U", uid}, {"%G", gid}, {"%g", gid}};
  for (const auto& [place, value] : places) {
    for (size_t at = 0; (at = text.find(place, at)) != std::string::npos;)
      text.replace(at, place.size(), value);
  }
  return text;
}

std::string before(const std::string& text) {
  return filled(text, "500", "100");
}
std::string after(const std::string& text) {
  return filled(text, "10001", "10000");
}

// A passwd line of exactly this length without its newline, before the commit: a user of the group
// users.
std::string longUser(const std::string& name, size_t length) {
  const std::string start = name + ":x:600:%g:";
  return start + std::string(length - start.size() - 1 - 12, 'g') + ":/home:/bin/"s + "\n";
}

std::string longUsers() {
  std::string text;
  for (const size_t length : {1022U, 1023U, 1024U, 1025U, 100000U})
    text +=
        longUser("u" + std::to_string(length), length) + "#" + std::string(length - 1, '+') + "\n";
  return text;
}

std::string manyMembers() {
  std::string members = "cid";
  for (int i = 100; i < 230; ++i)
    members += ",member" + std::to_string(i);
  return members;
}

const char* const kAttributes[] = {"system.posix_acl_access", "security.label", "trusted.note"};

std::string attributesOf(const char* path) {
  std::string all;
  for (const char* name : kAttributes) {
    char value[256];
    const ssize_t length = getxattr(path, name, value, sizeof value);
    all += length < 0 ? "none" : std::string(value, static_cast<size_t>(length));
  }
  return all;
}

class OddAccountFiles : public WholeRun {
 protected:
  // The expected texts, with places for the ids. The file starts out as `before`, whose marker
  // lines stand in other places.
  const std::string start = "# comment\nroot:x:0:0:root:/root:/bin/sh\nshort:x:1\n";
  const std::string accounts =
      "ann:x:%U:%G:Ann,,,:/home/ann:/bin/sh\nann:x:500:100:twice::\nb\xc3\xb6rje:x:601:%g:::\n"
      "\xff\xfe:x:602:%g:\xa0::\n"s +
      longUsers() + "nul:x:603:%g:a\0b::\nodd:x:abc:7:::\n"s;
  const std::string behind = "\nhidden:x:500:100:::\n+also\n\nno end";
  const std::string groupsBefore = "+g\nroot:x:0:\n#\nfifth:x:007:a,,b:c,d\nlist:x:008:a,,b,\n";
  const std::string groupsAfter = "root:x:0:\n#\nfifth:x:007:a,,b:c,d\nlist:x:8:a,b\n";
  const std::string users = "users:x:%g:" + manyMembers();

  void arrange() override {
    WholeRun::arrange();
    setPasswd(before(start + "+@net::::::\n" + accounts + "-out\n" + behind));
    setGroup(before(groupsBefore + users));
    writeFile("/etc/orvantadc/user.ignore", "\xff\xfe\n");  // only UTF-8 can be sent to the agent
    writeFile("/trees/t/f", "");
  }

  void expectFiles(std::string (*ids)(const std::string&)) {
    EXPECT_TRUE(readFile("/etc/passwd") == ids(start + accounts + "+@net::::::\n-out\n" + behind));
    EXPECT_EQ(readFile("/etc/group"), ids(groupsAfter + users + "\n+g\n"));
  }
};

}  // namespace

TEST_F(OddAccountFiles, LoseNothingByACommitAndItsUndo) {
  const std::string list =
      "\2\0\0\0\1\0\6\0\xff\xff\xff\xff\2\0\4\0\xf4\1\0\0\4\0\4\0\xff\xff\xff\xff"
      "\x10\0\4\0\xff\xff\xff\xff\x20\0\4\0\xff\xff\xff\xff"s;  // user 500 may read
  const std::string values[] = {list, "a_label_t\0"s, "\xff note"};
  for (const char* path : {"/etc/passwd", "/etc/group"}) {
    for (size_t i = 0; i < std::size(values); ++i)
      ASSERT_EQ(setxattr(path, kAttributes[i], values[i].data(), values[i].size(), 0), 0);
  }
  const RunResult committed = idshift({"-C", "/trees"});
  EXPECT_TRUE(committed.status == 0 && committed.err.empty()) << committed;
  expectFiles(after);
  const RunResult undone = idshift({"-U"});
  EXPECT_TRUE(undone.status == 0 && countOf(undone.err, "\n") == 1) << undone;
  expectFiles(before);
  for (const char* path : {"/etc/passwd", "/etc/group"})
    EXPECT_EQ(attributesOf(path), values[0] + values[1] + values[2]) << path;
}

// With idshift.hardened off a file is rewritten from its parsed lines: in pieces, and up to the
// first empty line.
TEST_F(OddAccountFiles, AreRewrittenLiterallyWithoutHardening) {
  addSetting("idshift.hardened = false");
  const RunResult committed = idshift({"-C", "/trees"});
  EXPECT_EQ(committed.status, 0) << committed;
  const std::string passwd = readFile("/etc/passwd");
  EXPECT_FALSE(contains(passwd, "#") || contains(passwd, "short") || contains(passwd, "hidden"));
  EXPECT_TRUE(contains(passwd, "\nodd:x:0:7:::\n") && passwd.ends_with("\n+@net::::::\n-out\n"));
  EXPECT_TRUE(contains(readFile("/etc/group"), "\nfifth:x:7:c,d\n")) << readFile("/etc/group");
}
