// Reads files and searches texts, for tests and for the rest of the support.
//
// Nothing here writes; sandbox.h has the functions that change files. Paths are used as they are.
// Only readFile() follows a link at the end of a path. Texts are bytes and are not decoded.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Unless `done`, aborts with a message of `what` and errno. For steps that a test cannot do
// without.
void orDie(bool done, const std::string& what);

// The whole file. If the file cannot be read, fails the test and returns an empty string.
std::string readFile(const std::string& path);

// Whether the entry exists; a dangling link exists.
bool exists(const std::string& path);

// "uid:gid" of the entry (of a link, not of its target), or "gone".
std::string ownerOf(const std::string& path);

// The lines without their line feeds.
std::vector<std::string> linesOf(const std::string& text);
bool contains(const std::string& text, const std::string& part);
size_t countOf(const std::string& text, const std::string& part);
