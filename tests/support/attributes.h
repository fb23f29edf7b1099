// ACLs and capabilities for tests, by raw system calls. A list is text: "u:500:rw g:100:r" are its
// named users and groups; owner, mask and the rest are made to fit. A failure aborts.
#pragma once

#include <cstdint>
#include <string>

inline constexpr const char* kAccessAcl = "system.posix_acl_access";
inline constexpr const char* kDefaultAcl = "system.posix_acl_default";

void setAcl(const std::string& path, const std::string& named, const char* attribute = kAccessAcl);

// The named entries of a list; empty when there is none.
std::string aclOf(const std::string& path, const char* attribute = kAccessAcl);

// A capability of this version; one of the third is for the root of uid `root`.
void setCapability(const std::string& path, int version, uint32_t root = 1);
