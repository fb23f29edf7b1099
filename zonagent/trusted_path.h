// Whether root alone decides where a path leads and what is found there.
#pragma once

#include <string>

namespace zonagent {

// The first thing on the way to `path`, the file or directory at its end included, that somebody
// besides root can change, or an empty string. Links are followed, and their ways looked at as
// well.
//
// Root alone can change what root owns and neither others nor a group besides root's may write to.
// A directory on the way may be open to others when it is sticky and what it leads to is root's;
// one at the end may not. What is not there stops the look.
std::string openToOthers(const std::string& path);

}  // namespace zonagent
