#include "privatelog/torn_tail.h"

#include <gtest/gtest.h>

namespace {

using enum TailVerdict;

const EntryOnDisk kOld = {{1, 2}, {500, 100}};
const EntryOnDisk kChanged = {{1, 2}, {10001, 10000}};
const EntryOnDisk kOtherInode = {{1, 3}, {10001, 10000}};

struct TailRow {
  const char* tail = nullptr;
  std::optional<EntryOnDisk> onDisk;
  TailVerdict verdict = Leave;
};

const TailRow kRows[] = {
    {"", {}, Leave},
    // The whole start of a change: the disk decides.
    {"/a:1:2:500:100", kChanged, CompleteChange},
    {">/a:1:2:500:100", kChanged, CompleteChange},
    {"/a:1:2:500:100", EntryOnDisk{{1, 2}, {500, 7}}, CompleteChange},
    {"/a:1:2:500:100", kOld, EndLine},
    {"/a:1:2:500:100", kOtherInode, Leave},
    {"/a:1:2:500:100", {}, Leave},
    // Cut inside a start.
    {"/a", {}, Leave},
    {"/a:1", {}, Leave},
    {"/a:1:2", {}, EndLine},
    {"/a:1:2:500", {}, EndLine},
    {"/a:1:2:500:", kChanged, EndLine},
    // A path with colons.
    {"/a:b:1:2:500:100", {}, Leave},
    {"/a:7:1:2:500:100", {}, Leave},
    // Lines of other kinds.
    {"+/a:1:2", {}, CommentOut},
    {"=ann:500:1", {}, EndLine},
    {"@staff:1", {}, EndLine},
    {"!Thu Nov 12 12:3", {}, Leave},
    {"#/a:1:2:500:100", kChanged, Leave},
};

TEST(TornTail, Verdicts) {
  for (const TailRow& row : kRows)
    EXPECT_EQ(judgeTornTail(row.tail, row.onDisk, {}), row.verdict) << row.tail;
  // A piece of a path with line feeds.
  EXPECT_EQ(judgeTornTail("/a:1:2:500:100", kChanged, {.insideLineFeedPath = true}), EndLine);
}

// A write() that was killed ends at a page, in an end or in the gid of a start.
TEST(TornTail, AtTheEndOfAPage) {
  const TailRow rows[] = {
      {"/a:1:2:500:1", kOld, EndLine},         {"/a:1:2:500:1", kChanged, CompleteChange},
      {"/a:1:2:500:2", kOld, CompleteChange},  {"/a:1:2:500:100:", {}, EndLine},
      {"/a:1:2:500:100:10001:1", {}, EndLine}, {"/a:b:1:2:500:100", {}, Leave},
      {"/a:1:2:500:100:10001:1:", {}, Leave}};
  for (const TailRow& row : rows)
    EXPECT_EQ(judgeTornTail(row.tail, row.onDisk, {.atPageEnd = true}), row.verdict) << row.tail;
  EXPECT_EQ(judgeTornTail("/a:1:2:500:1", kOld, {}), CompleteChange);
}

}  // namespace
