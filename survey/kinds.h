// The kinds of findings, in the order in which they are shown, with their words.
//
// A kind is one row of the table; a kind that is divided by ids is one row for each id. Programs
// that read the JSON go by the keys, so these stay as they are. Titles and advice are for people.
#pragma once

#include <string_view>

enum class Kind {
  // In the trees.
  Changes,
  ChangesOfUser,   // by old uid
  ChangesOfGroup,  // by old gid
  UnknownUser,     // by uid
  UnknownGroup,    // by gid
  AclEntry,
  Capability,
  SetId,
  Unchangeable,
  ReadOnlyMount,
  RemoteMount,
  ClosedFuseMount,
  LineFeed,
  NoBirthTime,
  // On the machine.
  Process,
  SubordinateIds,
  Sudoers,
  Unit,
  Export,
  Quota,
  AtJob,
  Crontab,
  Mail,
  ContainerStorage,
  NotRead,
};

struct KindWords {
  Kind kind;
  std::string_view key;
  std::string_view title;
  std::string_view advice;  // may be empty
};

const KindWords& wordsOf(Kind kind);
