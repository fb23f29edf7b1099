// Files and folders of the machine as a survey reads them: nothing waits, and what cannot be read
// is told apart from what is not there.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

// Calls `take` with the path and text of one regular file, cut after 16 MiB. False when the file is
// there and refuses to be read.
using TextTaker = std::function<void(const std::string& path, const std::string& text)>;
bool readPlace(const std::string& path, const TextTaker& take);

// The names in a folder, sorted, without "." and "..". False when the folder is there and refuses
// to be read; a folder that is not there has no names.
bool namesOf(const std::string& folder, std::vector<std::string>& names);
