// What a rule is: one small function that adds its findings, and one row of the rule table
// with its id, severity, one-line description and the rules it needs to pass first.
#pragma once

#include <string>
#include <vector>

#include "config.h"
#include "diagnostics.h"
#include "field_path.h"
#include "loader.h"

namespace pcfg {

// What every rule sees: the configuration with its index, and the input it came from.
class CheckContext {
 public:
  CheckContext(const LoadedConfig& input, const ConfigIndex& index)
      : config(input.config), index(index), input(input) {}
  const Config& config;
  const ConfigIndex& index;
  const LoadedConfig& input;  // its form and bytes, for the rules that read the wire
};

// Collects the findings of one rule, keeping at most a limit of them and counting the rest.
class Findings {
 public:
  explicit Findings(size_t limit) : limit_(limit) {}
  void Add(const FieldPath& path, std::string message) {
    if (full()) return Count();
    items_.push_back({path, std::move(message)});
    ++total_;
  }
  // Counts a finding that would not be kept anyway (for rules whose messages cost much to build).
  void Count() { ++total_; }
  bool full() const { return limit_ != 0 && items_.size() >= limit_; }

  struct Item {
    FieldPath path;
    std::string message;
  };
  std::vector<Item>& items() { return items_; }
  size_t total() const { return total_; }

 private:
  size_t limit_;  // 0: no limit
  std::vector<Item> items_;
  size_t total_ = 0;
};

using CheckFunction = void (*)(const CheckContext& context, Findings& findings);

struct Rule {
  const char* id;
  Severity severity;
  const char* description;
  std::vector<const char*> prerequisites;  // rules listed before this one in the table
  CheckFunction check;
};

}  // namespace pcfg
