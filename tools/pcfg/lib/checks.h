// What the library leaves to its clients, checked before a configuration reaches a device:
// references between peripheral ids, dependency cycles, option pairing, membership and the
// like. Each rule is one small function and one row of the rule table; a rule may name rules
// that must pass before its own findings mean anything, and is skipped, with a note, when one
// of them fails.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "field_path.h"
#include "loader.h"

namespace pcfg {

class CheckContext;

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
  const std::vector<Item>& items() const { return items_; }
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

// Every rule, in the order in which they run and are listed.
const std::vector<Rule>& Rules();
const Rule* FindRule(std::string_view id);

constexpr size_t kDefaultMaxDiagnosticsPerRule = 100;

struct CheckOptions {
  std::set<std::string> disabled;                       // rule ids
  bool werror = false;                                  // report warnings as errors
  std::set<std::string> only;                           // when not empty, run just these rules
  size_t max_per_rule = kDefaultMaxDiagnosticsPerRule;  // 0: all
};

// Runs the enabled rules and returns their diagnostics, located in the input where it can.
std::vector<Diagnostic> RunChecks(const LoadedConfig& loaded, const CheckOptions& options);

// The findings of the rule on fields the schema does not know, alone: what decode and fmt must
// tell before they print a form that cannot carry them.
std::vector<Diagnostic> FindUnknownFields(const LoadedConfig& loaded);

}  // namespace pcfg
