// Makes trees for tests. Each entry is a row of text:
//   "d 500:100 dir"           a directory with the mode 755
//   "-640 501:101 dir/file x" a file with the mode 640, 644 if it is left out, and the contents "x"
//   "l 500:100 link dir/file" a symbolic link
//   "h 0:0 hard dir/file"     another name of a file; the owner is ignored
//   "p", "s", "c"             a pipe, a socket, a device
//
// The sample accounts are ann 500:100, bob 501:101, cid 502:100 and root 0:0. Names have no blanks.
// A missing root of the tree is made; an owner is never set on the root. A failure aborts.
#pragma once

#include <string>
#include <vector>

void plant(const std::string& root, const std::vector<std::string>& rows);

void basicTree(const std::string& root);  // one or more of every kind of entry
