// ACLs and capabilities for tests, set and read by raw system calls. An ACL is written as the text
// of its named users and groups, "u:500:rw g:100:r". setAcl() adds the entries for owner, group,
// mask and others by itself, and aclOf() leaves them out. A failure to set aborts.
#pragma once

#include <cstdint>
#include <string>

inline constexpr const char* kAccessAcl = "system.posix_acl_access";
inline constexpr const char* kDefaultAcl = "system.posix_acl_default";

void setAcl(const std::string& path, const std::string& named, const char* attribute = kAccessAcl);

// The ACL's named users and groups; empty when the entry has no ACL.
std::string aclOf(const std::string& path, const char* attribute = kAccessAcl);

// Sets a file capability of version 2 or 3. Version 3 also stores a root uid, `root`.
void setCapability(const std::string& path, int version, uint32_t root = 1);
