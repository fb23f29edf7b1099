// Extended attributes of an entry, read and written through its pin.
//
// No call for attributes accepts an O_PATH descriptor, so the calls here use the descriptor's name
// below /proc/self/fd. They read and change the pinned inode, even when another file has taken its
// path meanwhile. Values are bytes of at most 64 KiB. A failure leaves errno; ENODATA means that
// the inode has no such attribute.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "entry/pinned_entry.h"

// The numbers are those in the log's index.
enum class AttributeKind : uint8_t { AccessAcl = 1, DefaultAcl = 2, Capability = 3 };

const char* attributeName(AttributeKind kind);

std::optional<std::string> readAttribute(const PinnedEntry& entry, AttributeKind kind);
bool writeAttribute(const PinnedEntry& entry, AttributeKind kind, std::string_view value);

// Sets a capability again that a change of owner has cleared. A write to the file clears it too, so
// it stays cleared when somebody has written to the file since it was pinned.
bool restoreCapability(const PinnedEntry& entry, std::string_view value);

// Whether an entry of the current directory has the attribute. One system call; false with errno.
bool hasAttribute(const char* name, bool follow, AttributeKind kind);

// The attributes that an entry may have: all three when the list of its names is too long to read.
struct AttributeSet {
  bool accessAcl = false;
  bool defaultAcl = false;
  bool capability = false;
};

// attributesOf() asks once for the list of names. attributesOneByOne() asks for each attribute,
// because the list of a network file system may leave some out. Both return nothing on failure,
// with errno.
std::optional<AttributeSet> attributesOf(const char* name, bool follow);
std::optional<AttributeSet> attributesOneByOne(const char* name, bool follow);
