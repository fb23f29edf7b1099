// The SHA-256 digest of some bytes, by which a file can be told from another one.
//
// For comparing files that an administrator keeps, and nothing else: no key, no secret. Pure.
#pragma once

#include <string>
#include <string_view>

// As 64 lower-case hexadecimal digits, as sha256sum(1) prints them.
std::string sha256(std::string_view bytes);
