// What a survey can find: the kinds, in the order in which they are shown, with their words.
//
// A kind is one row of the table, or one row for each id where the rows are told apart by ids. The
// keys are what JSON readers go by and stay as they are; titles and advice are for people.
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
