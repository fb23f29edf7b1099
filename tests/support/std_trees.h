// Trees for tests, made of rows:
//   "d 500:100 dir"           a directory with the mode 755
//   "-640 501:101 dir/file x" a file with the mode 640, 644 if it is left out, and the contents "x"
//   "l 500:100 link dir/file" a symbolic link
//   "h 0:0 hard dir/file"     another name of a file; the owner does not count
//   "p", "s", "c"             a pipe, a socket, a device
//
// The owners are those of the standard accounts: ann 500:100, bob 501:101, cid 502:100, root 0:0.
// Names hold no blanks. The top is made when it is missing; its own owner is never changed. A
// failure aborts.
#pragma once

#include <string>
#include <vector>

void plant(const std::string& root, const std::vector<std::string>& rows);

void basicTree(const std::string& root);  // one or more of every kind of entry
