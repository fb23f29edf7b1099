// Extended attributes of an entry, read and written through its pin.
//
// A path-only descriptor takes no call about attributes, so they go through its name below
// /proc/self/fd. What the pin holds is what is read and changed, whatever stands at the entry's
// path by then. Values are bytes of at most 64 KiB. Failures leave errno; ENODATA: it has none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "entry/pinned_entry.h"

// As the log's index has them.
enum class AttributeKind : uint8_t { AccessAcl = 1, DefaultAcl = 2, Capability = 3 };

const char* attributeName(AttributeKind kind);

std::optional<std::string> readAttribute(const PinnedEntry& entry, AttributeKind kind);
bool writeAttribute(const PinnedEntry& entry, AttributeKind kind, std::string_view value);

// Puts a capability back that a change of owner has cleared. A write clears it as well, so it stays
// off when somebody has written to the file since it was pinned.
bool restoreCapability(const PinnedEntry& entry, std::string_view value);

// Whether an entry of the current directory has the attribute, by one call; false with errno.
bool hasAttribute(const char* name, bool follow, AttributeKind kind);

// What an entry may have. Where its names do not fit, all of them.
struct AttributeSet {
  bool accessAcl = false;
  bool defaultAcl = false;
  bool capability = false;
};

// By one call for all of them, or by one for each: what a server answers for may be in no list.
// Nothing when it cannot be told, with errno.
std::optional<AttributeSet> attributesOf(const char* name, bool follow);
std::optional<AttributeSet> attributesOneByOne(const char* name, bool follow);
