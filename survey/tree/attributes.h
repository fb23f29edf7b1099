// Reads extended attributes and inode flags of an entry of the current directory, by its name.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

// The names of the attributes, each with a NUL behind it. Empty when there are none or they cannot
// be read.
std::string attributeNames(const char* name, bool follow);

bool hasAttribute(const std::string& names, const char* attribute);

// The value of an attribute. Empty when the attribute is absent or cannot be read.
std::string readAttribute(const char* name, bool follow, const char* attribute);

// "immutable", "append-only", both with a comma between them, or empty.
std::string unchangeableFlags(const char* name, bool follow);
