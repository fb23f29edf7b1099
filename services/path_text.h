// Small cuts of path strings. Pure: nothing is looked up on the disk.
#pragma once

#include <string>
#include <string_view>

// The part of `path` behind its last slash; the whole path when it has no slash or is shorter than
// two characters. The view points into `path` and reaches to its end, so it is NUL-terminated when
// `path` is.
std::string_view baseNameView(std::string_view path);

// The same part as a string of its own.
std::string baseName(const std::string& path);

// Cuts `path` at its last slash, in place. A last slash at position 0 leaves "/"; a path without a
// slash stays as it is.
void trimLastComponent(std::string& path);
