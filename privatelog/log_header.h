// The log's first line: whose ids these are, and whether they are this machine's.
//
// The messages are this file's own: logged, and printed on standard error.
#pragma once

#include <string>

#include "privatelog/log_reader.h"

// Reads the header, which is the reader's next line. False when there is no whole line, without a
// word, and when the line is none, with a warning.
bool getHeader(LogReader& reader, std::string& domain);

// The joined domain's name. False, with a message, when it cannot be had.
bool getCurrentDomain(std::string& domain);

// Whether the log's domain is the one that this machine has joined; says so when it is not.
bool verifyInDomain(const std::string& logDomain);
