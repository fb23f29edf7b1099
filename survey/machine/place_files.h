// Reads files and folders of the machine for a survey. Never waits. A file that cannot be read is
// told apart from one that does not exist.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

// Calls `take` with the path and text of a regular file, cut after about 16 MiB. Does not call it
// for anything else. False when the file exists and cannot be read.
using TextTaker = std::function<void(const std::string& path, const std::string& text)>;
bool readPlace(const std::string& path, const TextTaker& take);

// The names in a folder, sorted, without "." and "..". False when the folder exists and cannot be
// read; a folder that does not exist has no names.
bool namesOf(const std::string& folder, std::vector<std::string>& names);
