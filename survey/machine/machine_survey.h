// Finds what on this machine depends on the numbers of accounts, besides the owners of files in the
// trees.
//
// Reads configuration files, spools and /proc below `root`. A commit converts what lies in the
// trees, so crontabs, mailboxes and container storage count only outside them. A job of at counts
// anywhere, because it has numbers inside. A place that cannot be read is a finding of its own.
#pragma once

#include <string>
#include <vector>

#include "idmap/id_maps.h"
#include "survey/findings.h"

struct SurveyedMachine {
  std::string root;  // put in front of every path; empty for this machine
  const IdMap& uids;
  const IdMap& gids;
  std::vector<std::string> trees;  // absolute, as they were named
  std::vector<std::string> homes;  // of users who move
};

void surveyMachine(const SurveyedMachine& machine, Findings& findings);
