// Parsers for accounts by number in the files of a machine, for the table of mounts, and for
// attributes.
#include <gtest/gtest.h>

#include "entry/attribute_ids.h"
#include "entry/mount_table.h"
#include "survey/machine/account_texts.h"
#include "survey/machine/process_status.h"
#include "survey/mount_survey.h"

namespace {

// The mentions as "u500@1 g100@2": kind, id, line.
std::string shown(const IdMentions& mentions) {
  std::string text;
  for (const IdMention& mention : mentions)
    text += (text.empty() ? "" : " ") + std::string(mention.isGroup ? "g" : "u") +
            std::to_string(mention.id) + "@" + std::to_string(mention.line);
  return text;
}

}  // namespace

TEST(MachineTexts, AccountsByNumber) {
  const struct {
    IdMentions (*parser)(std::string_view);
    const char* text;
    const char* expected;
  } rows[] = {
      {mentionsInSubIds, "ann:100000:65536\n500:165536:65536\n\n501", "u500@2"},
      {mentionsInSubIds, "4294967295:1:1\n4294967296:1:1\n5x:1:1\n:1:1", "u4294967295@1"},
      {mentionsInSudoers, "# a comment of 500\n#500 ALL=(ALL) ALL\n", "u500@2"},
      {mentionsInSudoers, "%#100,!#501 h = (#502:#503) /bin/x # 504\n",
       "g100@1 u501@1 u502@1 u503@1"},
      {mentionsInSudoers, "ann ALL = \\\n  (#500) x\n#include y\n#includedir #7", "u500@1"},
      {mentionsInSudoers, "User_Alias A=#500\nann h=/bin/a\\#5, /bin/b#6\nb \"#7 x\"", "u500@1"},
      {mentionsInUnit, "[Service]\nUser=500\n Group = 100 \n#User=7\n;Group=8\nUserX=9\n",
       "u500@2 g100@3"},
      {mentionsInUnit, "SupplementaryGroups=a 100 \\\n \"101\"\nUser=ann5\nSocketGroup='7'",
       "g100@1 g101@1 g7@4"},
      {mentionsInExports, "/a *(rw,anonuid=500,anongid=100) b(anonuid=501)\n",
       "u500@1 u501@1 g100@1"},
      {mentionsInExports, "# (anonuid=1)\n/a -anonuid=500 \\\n h(xanonuid=2,anongid=-2)\n",
       "u500@2"},
      {mentionsInAtJob, "#!/bin/sh\n# atrun uid=500 gid=100\n# mail x\n# atrun uid=7 gid=8\n",
       "u500@2 g100@2"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(shown(row.parser(row.text)), row.expected) << row.text;
}

TEST(MachineTexts, ProcessesWithAllTheirIds) {
  const ProcessStatus status = parseProcessStatus(
      "Name:\ta b\nUmask:\t0022\nUid:\t500\t0\t501\t502\nGid:\t1\t2\t3\t4\nGroups:\t100 101 \n");
  EXPECT_EQ(status.name, "a b");
  EXPECT_EQ(status.uids, (std::vector<uint32_t>{500, 0, 501, 502}));
  EXPECT_EQ(status.gids, (std::vector<uint32_t>{1, 2, 3, 4, 100, 101}));
}

TEST(MountTable, TraitsOfAMount) {
  const struct {
    const char* rest;  // the line behind its mount point
    const char* traits;
  } rows[] = {
      {"rw,relatime - ext4 /dev/vda rw", ""},
      {"ro,relatime shared:1 - ext4 /dev/vda rw,errors=ro", "ro"},
      {"rw - ext4 /dev/vda ro", "ro"},
      {"rw - ext4 /dev/vda rw,errors=remount-ro,rot", ""},
      {"rw master:1 shared:2 - xfs /dev/vda rw,usrquota,noquota", "quota"},
      {"rw - ext4 /dev/vda rw,noquota,grpjquota=aquota.group", "quota"},
      {"rw - nfs4 h:/x rw", "remote"},
      {"rw - fuse.sshfs h:/x rw,user_id=0,group_id=0", "remote"},
      {"rw - fuse.x x rw,user_id=500,group_id=0", "closed"},
      {"rw - fuse x rw,user_id=500,allow_other", ""},
      {"rw - fuseblk x rw,user_id=0", ""},
      {"rw - sysfs x rw", "kernel"},
  };
  for (const auto& row : rows) {
    const auto mounts =
        parseMounts(std::string("7 1 8:1 /r /a\\040b\\134 ") + row.rest + "\n\njunk\n");
    ASSERT_EQ(mounts.size(), 1U) << row.rest;
    const Mount& mount = mounts[0];
    EXPECT_EQ(mount.point, "/a b\\");
    std::string traits;
    for (const auto& [holds, word] : {std::pair(mount.isReadOnly(), "ro"),
                                      {mount.hasQuota(), "quota"},
                                      {mount.isRemote(), "remote"},
                                      {mount.isClosedFuse(), "closed"},
                                      {mount.isKernelsOwn(), "kernel"}})
      traits += holds ? word : "";
    EXPECT_EQ(traits, row.traits) << row.rest;
  }
}

TEST(MountTable, WhatAWalkMeets) {
  std::string table;
  int id = 0;
  for (const char* point : {"/", "/proc", "/proc/x", "/home", "/home/ann", "/homes", "/srv/a"})
    table += std::to_string(++id) + " 1 8:1 / " + point + " rw - t s rw\n";
  table += "8 5 8:2 / /home/ann rw - over s rw\n";  // hides another mount
  const auto mounts = parseMounts(table);
  const auto met = [&](const std::vector<std::string>& trees, bool across) {
    std::string points;
    for (const Mount& mount : mountsOfTrees(mounts, trees, {"/proc", "/dev/fd"}, across))
      points += std::to_string(mount.id) + " ";
    return points;
  };
  EXPECT_EQ(met({"/home"}, true), "4 8 ");
  EXPECT_EQ(met({"/home"}, false), "4 ");
  EXPECT_EQ(met({"/home/ann/x", "/srv"}, true), "1 7 8 ");
  EXPECT_EQ(met({"/"}, true), "1 4 6 7 8 ");
  EXPECT_EQ(met({"/"}, false), "1 ");
}

TEST(MountTable, QuotasCountOnceForEachFileSystemAndEverywhere) {
  const char* table =
      "1 0 8:1 / / rw - ext4 s rw,usrquota\n"
      "2 1 8:1 /x /bind rw - ext4 s rw,usrquota\n"
      "3 1 8:2 / /no-such-place rw - nfs s rw,usrquota\n"
      "4 1 8:3 / /no-such-place/either rw - xfs s rw,grpquota\n";
  Findings findings(5);
  surveyMounts(table, {"/bind/x"}, true, findings);
  ASSERT_EQ(findings.all().size(), 1U);
  const Finding& quotas = findings.all().at({Kind::Quota});
  ASSERT_EQ(quotas.count, 2U);
  EXPECT_EQ(quotas.examples[0].name, "/");
  EXPECT_EQ(quotas.examples[1].name, "/no-such-place/either");
}

TEST(AttributeIds, AclsAndCapabilities) {
  using namespace std::string_literals;
  const std::string head = "\2\0\0\0"s;
  const std::string user = "\2\0\6\0\xf4\1\0\0"s;
  const std::string group = "\x08\0\6\0\0\0\1\0"s;
  const std::string owner = "\1\0\6\0\xff\xff\xff\xff"s;
  using Ids = std::vector<AclId>;
  EXPECT_EQ(idsOfAcl(head + owner + user + group), (Ids{{false, 500}, {true, 65536}}));
  EXPECT_EQ(idsOfAcl(head + user + "\2"s), Ids());
  EXPECT_EQ(idsOfAcl("\3\0\0\0"s + user), Ids());
  EXPECT_EQ(idsOfAcl("\2\0"s), Ids());

  const std::string sets(16, '\0');
  EXPECT_EQ(rootOfCapability("\1\0\0\3"s + sets + "\xf4\1\0\0"s), 500U);
  EXPECT_EQ(rootOfCapability("\1\0\0\2"s + sets), std::nullopt);
  EXPECT_EQ(rootOfCapability("\1\0\0\2"s + sets + "\xf4\1\0\0"s), std::nullopt);
  EXPECT_EQ(rootOfCapability(""), std::nullopt);
}

TEST(AttributeIds, AnAclIsConvertedEntryForEntryAndOnce) {
  using namespace std::string_literals;
  const auto entry = [](char tag, char id) { return ""s + tag + "\0\4\0"s + id + "\0\0\0"s; };
  const std::string head = "\2\0\0\0"s;
  const std::string mask = entry(16, '\xff');
  const IdTable users = {{1, 2}, {2, 9}, {5, 5}};
  const IdTable groups = {{1, 7}};
  const struct {
    std::string before;
    AclVerdict verdict;
    std::string after;
  } rows[] = {
      {entry(2, 1) + entry(2, 2) + entry(8, 1) + mask, AclVerdict::Converted,
       entry(2, 2) + entry(2, 9) + entry(8, 7) + mask},
      {entry(2, 2) + entry(2, 4), AclVerdict::Converted, entry(2, 9) + entry(2, 4)},
      {entry(2, 5) + entry(8, 2) + entry(1, 1) + entry(4, 1), AclVerdict::Unconcerned, {}},
      {entry(2, 2) + entry(2, 9), AclVerdict::Colliding, {}},
      {entry(2, 1) + entry(8, 2), AclVerdict::Converted, entry(2, 2) + entry(8, 2)},
      {entry(2, 1) + "\2", AclVerdict::Malformed, {}},
  };
  for (const auto& row : rows) {
    const ConvertedAcl result = convertAcl(head + row.before, users, groups);
    EXPECT_EQ(result.verdict, row.verdict);
    EXPECT_EQ(result.bytes, row.after.empty() ? "" : head + row.after);
  }
  EXPECT_EQ(convertAcl("\3\0\0\0"s, users, groups).verdict, AclVerdict::Malformed);
  EXPECT_EQ(sortedAcl(head + entry(2, 9) + entry(2, 4) + entry(8, 3) + entry(8, 1) + mask),
            head + entry(2, 4) + entry(2, 9) + entry(8, 1) + entry(8, 3) + mask);
  EXPECT_EQ(changesOfAcl(head + entry(2, 2) + entry(8, 2), head + entry(2, 9) + entry(8, 2)).users,
            (IdTable{{2, 9}}));
}
