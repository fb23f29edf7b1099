// Extended attributes and inode flags of an entry of the current directory, read by name.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

// The names of the attributes, each with a NUL behind it; empty when there are none or they can't
// be had.
std::string attributeNames(const char* name, bool follow);

bool hasAttribute(const std::string& names, const char* attribute);

// Empty when it is not there or cannot be read.
std::string readAttribute(const char* name, bool follow, const char* attribute);

// "immutable", "append-only", both with a comma, or empty.
std::string unchangeableFlags(const char* name, bool follow);
