// Reads the log's header, and reports a log of another domain or an index that does not fit.
//
// All messages are logged and printed on standard error.
#pragma once

#include <string>

#include "privatelog/log_reader.h"
#include "privatelog/log_scan.h"

// Reads the header, which is the reader's next line. False without a message when there is no
// complete line, and with a warning when the line is no header.
bool getHeader(LogReader& reader, std::string& domain);

// The name of the joined domain. False, with a message, when it cannot be read.
bool getCurrentDomain(std::string& domain);

// Whether the machine has joined the log's domain; a message when it has not.
bool verifyInDomain(const std::string& logDomain);

// Reports that the index does not fit the log, and which file to move away.
void reportMisfit(const LogScan& scan);

// Reports how many lines no record vouches for, if there are any.
void reportUnvouched(const LogScan& scan);
