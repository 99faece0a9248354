// What the library leaves to its clients, checked before a configuration reaches a device:
// references between peripheral ids, dependency cycles, option pairing, membership and the
// like. Each rule is one small function and one row of the rule table.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "field_path.h"
#include "loader.h"

namespace pcfg {

class CheckContext;

// Collects the findings of one rule.
class Findings {
 public:
  void Add(const FieldPath& path, std::string message) { items_.push_back({path, std::move(message)}); }

  struct Item {
    FieldPath path;
    std::string message;
  };
  const std::vector<Item>& items() const { return items_; }

 private:
  std::vector<Item> items_;
};

using CheckFunction = void (*)(const CheckContext& context, Findings& findings);

struct Rule {
  const char* id;
  Severity severity;
  const char* description;
  CheckFunction check;
};

// Every rule, in the order in which they run and are listed.
const std::vector<Rule>& Rules();
const Rule* FindRule(const std::string& id);

struct CheckOptions {
  std::set<std::string> disabled;  // rule ids
  bool werror = false;             // report warnings as errors
  std::set<std::string> only;      // when not empty, run just these rules
};

// Runs the enabled rules and returns their diagnostics, located in the input where it can.
std::vector<Diagnostic> RunChecks(const LoadedConfig& loaded, const CheckOptions& options);

}  // namespace pcfg
