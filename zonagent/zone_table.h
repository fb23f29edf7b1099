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
// A text comes in pieces, so that a large file need not be in memory. An account that `former`, the
// version before, has with the same ids is shared with it.
//
// Pure: the text comes from the caller.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "zonagent/account_index.h"
#include "zonagent/backend.h"

namespace zonagent {

// The next piece of a text; an empty one at its end. A piece lives until the next is asked for.
using Pieces = std::function<std::string_view()>;

Pieces inOnePiece(std::string_view text);

class ZoneTable {
 public:
  // `file` is for the messages. Aliases come after the users.
  void readUsers(const Pieces& text, const std::string& file, const ZoneTable& former = {});
  void readGroups(const Pieces& text, const std::string& file, const ZoneTable& former = {});
  void readAliases(const Pieces& text, const std::string& file);

  Answer find(const orvs::wire::Question& question) const;

  size_t userCount() const { return users.byName.size(); }
  size_t groupCount() const { return groups.byName.size(); }
  // Of each file: users, groups, aliases.
  std::array<size_t, 3> counts() const { return {userCount(), groupCount(), aliases.size()}; }

 private:
  struct Index {
    AccountTable<NameKey> byName;
    AccountTable<IdKey> byId;

    void makeRoomFor(const Index& former);
    void add(std::string_view name, uint32_t id, uint32_t gid, const Index& former);
  };

  Index users;
  Index groups;
  std::unordered_map<std::string, SharedAccount> aliases;
};

}  // namespace zonagent
