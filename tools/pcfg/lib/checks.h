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
#include "loader.h"
#include "rule.h"

namespace pcfg {

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
