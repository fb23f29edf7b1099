// A zone in memory: users and groups, found by name and by id.
//
// Read from the text of three files:
//   passwd   lines of passwd(5), seven fields; name, uid and gid are used
//   group    lines of group(5), four fields; name and gid are used
//   aliases  "other-name unix-name", names under which a user also answers
// Empty lines and lines that begin with "#" are skipped. A name may be listed twice only with the
// same ids: getent prints such lines when two sources know an account. Accounts may share an id;
// a lookup by that id finds the first. Every other irregularity is an AgentError that begins with
// "FILE:LINE: ". A last line without a line feed is irregular, because a file cut short would make
// accounts vanish. So is a byte order mark, which would become part of a name. A passwd text
// without any user is an AgentError that begins with "FILE: ".
//
// The caller supplies the text in pieces, so that a large file need not be in memory; nothing here
// touches the disk. `former` is the previous version of the zone: accounts that have not changed
// are shared with it.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "zonagent/account_index.h"
#include "zonagent/backend.h"

namespace zonagent {

// Returns the next piece of a text, and an empty one at the end. A piece is valid until the next
// call.
using Pieces = std::function<std::string_view()>;

Pieces inOnePiece(std::string_view text);

class ZoneTable {
 public:
  // `file` is named in messages. Read the users before the aliases.
  void readUsers(const Pieces& text, const std::string& file, const ZoneTable& former = {});
  void readGroups(const Pieces& text, const std::string& file, const ZoneTable& former = {});
  void readAliases(const Pieces& text, const std::string& file);

  Answer find(const orvs::wire::Question& question) const;

  size_t userCount() const { return users.byName.size(); }
  size_t groupCount() const { return groups.byName.size(); }
  // How many users, groups and aliases.
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
