// Files in which an administrator may have written an account's number instead of its name: one
// parser for each kind of file. See id_mention.h for what they have in common.
#pragma once

#include <string_view>

#include "survey/machine/id_mention.h"

// /etc/subuid and /etc/subgid: whom a range belongs to. Always a user.
IdMentions mentionsInSubIds(std::string_view text);

// sudoers: "#1000" and "%#1000", in user lists and run-as lists. A "#" that no digit follows, or in
// front of which a word is not over, begins a comment.
IdMentions mentionsInSudoers(std::string_view text);

// systemd units and their drop-ins: User=, Group=, SupplementaryGroups=, SocketUser=, SocketGroup=.
IdMentions mentionsInUnit(std::string_view text);

// exports: anonuid= and anongid=.
IdMentions mentionsInExports(std::string_view text);

// A job of at: whom its header names.
IdMentions mentionsInAtJob(std::string_view text);
