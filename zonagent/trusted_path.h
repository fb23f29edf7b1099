// Whether root alone decides where a path leads and what stands there. Reads the disk and changes
// nothing.
#pragma once

#include <string>

namespace zonagent {

// Returns the first part of `path` that somebody besides root can change, or an empty string. The
// parts are every directory on the way, the targets of links with the directories on their ways,
// and the file or directory at the end.
//
// Root alone can change a part that root owns and that neither others nor a group besides root's
// may write to. A sticky directory on the way may be open to others if the next part belongs to
// root; a directory at the end may not. The search ends at a part that does not exist. A path that
// root cannot resolve (a loop of links) is returned as open.
std::string openToOthers(const std::string& path);

}  // namespace zonagent
