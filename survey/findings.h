// What a survey has found so far: for each kind, and id where ids tell rows apart, a count and the
// first examples.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "survey/kinds.h"

struct FindingKey {
  Kind kind;
  std::optional<uint32_t> id = std::nullopt;
  auto operator<=>(const FindingKey&) const = default;  // NOLINT(modernize-use-nullptr): 14 errs
};

struct Example {
  std::string name;    // a path, or what else it is known by; any bytes
  std::string detail;  // ASCII, may be empty
};

struct Finding {
  uint64_t count = 0;
  std::vector<Example> examples;
};

class Findings {
 public:
  explicit Findings(size_t examplesForEach) : mostExamples(examplesForEach) {}

  void add(const FindingKey& key, std::string_view name, std::string_view detail = {});

  // One more, without an example.
  void count(const FindingKey& key) { ++rows[key].count; }

  // Takes over what was found elsewhere; nothing has been found under that key so far.
  void take(const FindingKey& key, Finding finding) { rows.emplace(key, std::move(finding)); }

  const std::map<FindingKey, Finding>& all() const { return rows; }

 private:
  size_t mostExamples;
  std::map<FindingKey, Finding> rows;
};
