// The accounts of one file of a zone, found by name or by id: two flat tables of shared accounts.
//
// Two versions of a zone share each account that has not changed. So a reload of a large zone needs
// memory for two more tables, a quarter of the zone, and not for a second zone. An account lives as
// long as a table refers to it. Nothing here fails but for lack of memory (std::bad_alloc). The
// counters of references are not atomic: only one thread may use the accounts of a zone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

namespace zonagent {

struct Account : boost::intrusive_ref_counter<Account, boost::thread_unsafe_counter> {
  Account(std::string_view accountName, uint32_t accountId, uint32_t accountGid)
      : name(accountName), id(accountId), gid(accountGid) {}

  std::string name;
  uint32_t id;
  uint32_t gid;  // of a user; 0 for a group
};
using SharedAccount = boost::intrusive_ptr<const Account>;

// A hash table with open addressing, three quarters full at most. `Key::of` is an account's key,
// `Key::hash` the key's hash.
template <class Key>
class AccountTable {
 public:
  const SharedAccount* find(const typename Key::Type& key) const {
    if (slots.empty())
      return nullptr;
    const SharedAccount& slot = slots[slotOf(slots, key)];
    return slot ? &slot : nullptr;
  }
  // REQUIRES: the table has no account of the same key.
  void insert(SharedAccount account) {
    if ((used + 1) * 4 > slots.size() * 3)
      resize(slots.size() + slots.size() / 2 + 16);
    const size_t slot = slotOf(slots, Key::of(*account));
    slots[slot] = std::move(account);
    ++used;
  }
  // Makes room for `count` accounts and a sixteenth more.
  void reserve(size_t count) { resize(count * 4 / 3 + count / 16 + 16); }
  size_t size() const { return used; }

 private:
  using Slots = std::vector<SharedAccount>;

  // The slot that holds the key, or the free one where the key belongs.
  static size_t slotOf(const Slots& slots, const typename Key::Type& key) {
    size_t slot = Key::hash(key) % slots.size();
    while (slots[slot] && Key::of(*slots[slot]) != key)
      slot = slot + 1 == slots.size() ? 0 : slot + 1;
    return slot;
  }
  void resize(size_t size) {
    Slots larger(size);
    for (SharedAccount& account : slots) {
      if (account) {
        const size_t slot = slotOf(larger, Key::of(*account));
        larger[slot] = std::move(account);
      }
    }
    slots = std::move(larger);
  }

  Slots slots;
  size_t used = 0;
};

struct NameKey {
  using Type = std::string_view;
  static Type of(const Account& account) { return account.name; }
  static size_t hash(Type name) { return std::hash<Type>()(name); }
};

struct IdKey {
  using Type = uint32_t;
  static Type of(const Account& account) { return account.id; }
  // Ids are mostly consecutive. Unmixed, they would fill one long run of slots.
  static size_t hash(Type id) { return (id * 0x9E3779B97F4A7C15u) >> 20; }
};

}  // namespace zonagent
