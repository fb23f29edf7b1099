// The findings of a survey: a count and the first examples for each kind, and for each id where a
// kind is divided by ids.
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
  std::string name;    // a path, or another name of the thing found; any bytes
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

  // Counts one more, without an example.
  void count(const FindingKey& key) { ++rows[key].count; }

  // Takes over a finding that was collected elsewhere. Nothing may have been found under `key` so
  // far.
  void take(const FindingKey& key, Finding finding) { rows.emplace(key, std::move(finding)); }

  const std::map<FindingKey, Finding>& all() const { return rows; }

 private:
  size_t mostExamples;
  std::map<FindingKey, Finding> rows;
};
