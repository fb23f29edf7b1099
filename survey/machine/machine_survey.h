// What the machine holds outside its trees that knows accounts by their numbers.
//
// Reads configuration files, spools and /proc below `root`; nothing else of this machine is asked.
// What lies in the trees is converted with them, so spools and storage count only outside. A place
// that refuses to be read is a finding of its own.
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
