// Finds file systems under the trees that a conversion cannot change, should not change, or on
// which it cannot tell files apart for an undo. Finds file systems with quotas anywhere.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "survey/findings.h"

// `mountTable` is the text of /proc/self/mountinfo. Only local file systems are looked at; of
// remote ones, and of FUSE ones closed to root, only the table is read, because a look could hang.
// `acrossMounts` is false under --xdev.
void surveyMounts(std::string_view mountTable,
                  const std::vector<std::string>& trees,
                  bool acrossMounts,
                  Findings& findings);
