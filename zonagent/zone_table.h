// A zone in memory: users and groups, found by name and by id.
//
// Read from the text of three files:
//   passwd   lines of passwd(5), seven fields; name, uid and gid are used
//   group    lines of group(5), four fields; name and gid are used
//   aliases  "other-name unix-name", names under which a user also answers
// Empty lines and lines that begin with "#" are skipped. A name may be listed twice only with the
// same ids (getent prints such lines when two sources know an account); an id may be shared, its
// first line answers. Every other irregularity is an AgentError that begins with "FILE:LINE: ". A
// last line without a line end is one, because a file cut short would make accounts vanish; a byte
// order mark is one, because it would become part of a name. No user at all is an AgentError of the
// file.
//
// Pure: the text comes from the caller.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "zonagent/backend.h"

namespace zonagent {

class ZoneTable {
 public:
  // `file` is for the messages. Aliases come after the users.
  void readUsers(std::string_view text, const std::string& file);
  void readGroups(std::string_view text, const std::string& file);
  void readAliases(std::string_view text, const std::string& file);

  Answer find(const orvs::wire::Question& question) const;

  size_t userCount() const { return users.byName.size() - aliasCount; }
  size_t groupCount() const { return groups.byName.size(); }
  // Of each file: users, groups, aliases.
  std::array<size_t, 3> counts() const { return {userCount(), groupCount(), aliasCount}; }

 private:
  struct Index {
    std::unordered_map<std::string, orvs::wire::Record> byName;
    std::unordered_map<uint32_t, orvs::wire::Record> byId;
  };

  static void add(Index& index, const orvs::wire::Record& record);

  Index users;
  Index groups;
  size_t aliasCount = 0;
};

}  // namespace zonagent
