// What the library leaves to its clients, checked before a configuration reaches a device:
// references between peripheral ids, dependency cycles, option pairing, membership and the
// like. Each rule is one small function and one row of the rule table; a rule may name rules
// that must pass before its own findings mean anything, and is skipped, with a note, when one
// of them fails.
#pragma once

#include <functional>
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
  // Findings of text and JSON input held to be put in line order, at most: beyond, memory would
  // grow with the findings of --max-diagnostics 0 (a few hundred bytes each), so the rest go out
  // rule by rule as they come, with a note.
  size_t max_put_in_line_order = size_t{1} << 18;
};

// Runs the enabled rules and hands SINK their diagnostics, located in the input where it can, in
// the order of the input's lines (rule by rule where it has none: binary), notes last. Binary
// findings go to SINK as each rule finds them; the others are held only to be put in order.
using DiagnosticSink = std::function<void(Diagnostic&& diagnostic)>;
void RunChecks(const LoadedConfig& loaded, const CheckOptions& options, const DiagnosticSink& sink);

// The same diagnostics, returned.
std::vector<Diagnostic> RunChecks(const LoadedConfig& loaded, const CheckOptions& options);

// The findings of the rule on fields the schema does not know, alone: what decode and fmt must
// tell before they print a form that cannot carry them.
std::vector<Diagnostic> FindUnknownFields(const LoadedConfig& loaded);

}  // namespace pcfg
