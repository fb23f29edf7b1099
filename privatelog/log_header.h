// What there is to say about a log before it is worked with: whose ids these are, and whether the
// index belongs to it.
//
// The messages are this file's own: logged, and printed on standard error.
#pragma once

#include <string>

#include "privatelog/log_reader.h"
#include "privatelog/log_scan.h"

// Reads the header, which is the reader's next line. False when there is no whole line, without a
// word, and when the line is none, with a warning.
bool getHeader(LogReader& reader, std::string& domain);

// The joined domain's name. False, with a message, when it cannot be had.
bool getCurrentDomain(std::string& domain);

// Whether the log's domain is the one that this machine has joined; says so when it is not.
bool verifyInDomain(const std::string& logDomain);

// Says which file is to be taken away when log and index do not belong together.
void reportMisfit(const LogScan& scan);

// Tells how many lines no reader acts on, if there are any.
void reportUnvouched(const LogScan& scan);
