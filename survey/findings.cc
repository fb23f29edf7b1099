#include "survey/findings.h"

void Findings::add(const FindingKey& key, std::string_view name, std::string_view detail) {
  Finding& finding = rows[key];
  ++finding.count;
  if (finding.examples.size() < mostExamples)
    finding.examples.push_back({std::string(name), std::string(detail)});
}
