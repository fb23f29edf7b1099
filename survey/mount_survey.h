// The file systems under the trees that a conversion cannot change, should not, or cannot name its
// files on; and quotas, wherever they are.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "survey/findings.h"

// `mountTable` is the text of /proc/self/mountinfo. Local file systems are looked at for birth
// times; of the others only the table is read. `acrossMounts` is false under --xdev.
void surveyMounts(std::string_view mountTable,
                  const std::vector<std::string>& trees,
                  bool acrossMounts,
                  Findings& findings);
