// Questions about files and texts, for tests and for the rest of the support.
//
// Nothing here writes: what changes files needs the sandbox and is in sandbox.h. Paths are used as
// they are; a last link is followed only by readFile. Texts are bytes, nothing is decoded.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// A world that cannot be made ends the process, with errno.
void orDie(bool done, const std::string& what);

// The whole file. A file that cannot be read fails the test and is an empty string.
std::string readFile(const std::string& path);

// Whether there is an entry of that name, a dangling link included.
bool exists(const std::string& path);

// "uid:gid" of an entry, not followed, or "gone".
std::string ownerOf(const std::string& path);

// The lines without their line feeds.
std::vector<std::string> linesOf(const std::string& text);
bool contains(const std::string& text, const std::string& part);
size_t countOf(const std::string& text, const std::string& part);
