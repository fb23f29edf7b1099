// The standard trees that tests share. Each is a small table in the .cc file; a row names its
// owner.
//
// The owners are those of the standard accounts: ann 500:100, bob 501:101, cid 502:100, root 0:0.
// `root` is the tree's top directory, made when it is missing (its own owner is not changed when
// it is there). A failure aborts.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>

struct TreeEntry {
  std::string path;  // below the top
  char type;    // - file, d directory, l symbolic link, h hard link, p pipe, s socket, c device
  mode_t mode;  // not for l and h
  uid_t uid;    // not for h
  gid_t gid;
  std::string target = {};  // l: the text; h: the path below the top; -: the contents
};

void makeTree(const std::string& root, std::span<const TreeEntry> entries);

void basicTree(const std::string& root);  // one or more of every kind of entry
void modesTree(const std::string& root);  // set-id, sticky and odd permission bits
void loopsTree(const std::string& root);  // links to directories, parents, themselves, nothing

// Files "f0" to "f<count-1>" in one directory, by turns of ann, bob, cid and root.
void manyFiles(const std::string& root, int count);
