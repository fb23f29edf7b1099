// The stores that edit the account files themselves, and those over the C library's iteration.
#include <unistd.h>

#include <gtest/gtest.h>

#include "accountdb/db_account_file.h"
#include "accountdb/db_ent.h"
#include "tests/accountdb/etc_state.h"

namespace orvs {
namespace {

constexpr const char* kAnn = "ann:x:1:1:::";

class AccountFileTest : public SandboxTest {
 protected:
  void arrange() override {
    setPasswd("root:x:0:0:::\n");
    setGroup("root:x:0:\n");
    writeFile("/etc/shadow", "root:*:1::::::\n", 0640);
  }
};

TEST_F(AccountFileTest, AUserIsAddedToBothFilesEvenTwice) {
  DBPwUser store;
  EXPECT_TRUE(store.add(kAnn));
  EXPECT_TRUE(store.add(kAnn));
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\nann:x:1:1:::\nann:x:1:1:::\n");
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\nann:*:::::::\nann:*:::::::\n");
  EXPECT_TRUE(store.remove("ann:y:7:7:::"));  // the name decides, the first of it goes
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\nann:x:1:1:::\n");
  EXPECT_EQ(readFile("/etc/shadow"), "root:*:1::::::\nann:*:::::::\n");
}

TEST_F(AccountFileTest, WithoutAUsableShadowFileThePasswdChangeStands) {
  DBPwUser store;
  removeFile("/etc/shadow");
  EXPECT_TRUE(store.add(kAnn));
  EXPECT_FALSE(exists("/etc/shadow"));
  EXPECT_TRUE(store.remove(kAnn));
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\n");
  setPasswd("root:x:0:0:::\nann:x:1:1:::\n");
  writeFile("/etc/shadow", "root:*:1::::::\n");
  EXPECT_FALSE(store.remove(kAnn));  // no shadow line: the passwd line goes all the same
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:0:0:::\n");
}

TEST_F(AccountFileTest, WhatFailsBeforeTheCommitTouchesNothing) {
  DBPwUser users;
  DBGrGroup groups;
  EXPECT_FALSE(users.add("+ann:x:1:1:::") || groups.add("staff:x:7"));
  EXPECT_FALSE(exists("/etc/.pwd.lock"));
  writeFile("/etc/passwd.lock", std::to_string(::getppid()));
  EXPECT_FALSE(users.add(kAnn));
  removeFile("/etc/passwd.lock");
  EXPECT_FALSE(users.modify(kAnn) || users.remove(kAnn) || users.closeUpdate({}));
  EXPECT_FALSE(groups.modify("staff:x:7:") || groups.remove("staff:x:7:"));
  EXPECT_FALSE(exists("/etc/passwd-") || exists("/etc/group-") || exists("/etc/shadow-"));
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

TEST_F(AccountFileTest, GroupsAndUsersAreModifiedInPlace) {
  DBGrGroup groups;
  EXPECT_TRUE(groups.add("staff:x:7:ann") && groups.modify("root:x:5:bob"));
  EXPECT_EQ(readFile("/etc/group"), "root:x:5:bob\nstaff:x:7:ann\n");
  EXPECT_TRUE(groups.remove("root:x:0:"));
  EXPECT_EQ(readFile("/etc/group"), "staff:x:7:ann\n");
  EXPECT_TRUE(DBPwUser().modify("root:x:8:9:::"));
  EXPECT_EQ(readFile("/etc/passwd"), "root:x:8:9:::\n");
  EXPECT_EQ(leftovers(), std::set<std::string>{});
}

template <class Store>
std::string walk() {
  Store store;
  std::string text;
  EXPECT_TRUE(store.open());
  for (int round = 0; round < 2; ++round, store.first()) {
    for (; store.hasLine(); store.next())
      text += store.getLine() + "\n";
  }
  EXPECT_TRUE(store.isOpen());
  store.close();
  EXPECT_FALSE(store.isOpen() || store.hasLine());
  return text;
}

TEST_F(AccountFileTest, EveryStoreWalksItsAccounts) {
  const std::string users = "root:x:0:0:r:/root:/bin/sh\nann:x:4294967294:1:::\n";
  const std::string groups = "root:x:0:\nstaff:x:7:ann,bob\n";
  setPasswd(users);
  setGroup(groups);
  writeFile("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
  EXPECT_EQ(walk<DBPwUser>(), users + users);
  EXPECT_EQ(walk<DBGrGroup>(), groups + groups);
  EXPECT_EQ(walk<DBPwEnt>(), users + users);
  EXPECT_EQ(walk<DBGrEnt>(), groups + groups);
}

}  // namespace
}  // namespace orvs
