// One parser for each kind of file in which an administrator may have written an account's number
// instead of its name. id_mention.h says what the parsers have in common.
#pragma once

#include <string_view>

#include "survey/machine/id_mention.h"

// /etc/subuid and /etc/subgid: the owner of each range, who is a user in both files.
IdMentions mentionsInSubIds(std::string_view text);

// sudoers: "#1000" and "%#1000", in user lists and run-as lists. A "#" begins a comment when no
// digit follows or the word in front has not ended.
IdMentions mentionsInSudoers(std::string_view text);

// systemd units and their drop-ins: User=, Group=, SupplementaryGroups=, SocketUser=, SocketGroup=.
IdMentions mentionsInUnit(std::string_view text);

// exports: anonuid= and anongid=.
IdMentions mentionsInExports(std::string_view text);

// A job of at: the user and group that its header names.
IdMentions mentionsInAtJob(std::string_view text);
