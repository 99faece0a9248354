// The rule table and the run that applies it.
#include "checks.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <optional>

#include "rule_families.h"
#include "suppressions.h"

namespace pcfg {
namespace {

const char kUnknownFieldRule[] = "unknown-field";
const char kUnusedSuppressionRule[] = "unused-suppression";

// Its findings come from matching suppressions with the other rules' findings, in RunChecks.
void CheckNothing(const CheckContext&, Findings&) {}

// Below this much input the rules run on one thread: a second would cost more than it saves.
constexpr size_t kSmallestInputWorthTwoThreads = 256 << 10;

}  // namespace

const std::vector<Rule>& Rules() {
  using namespace rules;
  static const std::vector<Rule> table = {
      // References and topology.
      {"duplicate-id",
       Severity::kError,
       "two registry entries, or two entries of one topology list, share an id",
       {},
       CheckDuplicateIds},
      {"dangling-reference",
       Severity::kError,
       "a peripheral id reference names no registry entry",
       {},
       CheckDanglingReferences},
      {"reference-kind",
       Severity::kError,
       "a peripheral id reference names a registry entry of the wrong type",
       {"dangling-reference"},
       CheckReferenceKinds},
      {"dependency-cycle",
       Severity::kError,
       "peripheral dependencies form a cycle",
       {},
       CheckDependencyCycles},
      {"missing-entry",
       Severity::kWarning,
       "a registry camera, camera set or logical camera has no topology entry",
       {},
       CheckMissingEntries},
      {"membership-mismatch",
       Severity::kWarning,
       "a camera and a camera set disagree about membership",
       {"dangling-reference"},
       CheckMembership},
      {"no-driver", Severity::kWarning, "a physical camera has neither camx nor cadmor", {}, CheckNoDriver},
      {"template-reference",
       Severity::kError,
       "a template_id names no template",
       {},
       CheckTemplateReferences},
      {"index-range",
       Severity::kError,
       "primary_camera_index is not below the member count",
       {},
       CheckIndexRange},
      // Field rules.
      {"options-pairing",
       Severity::kError,
       "an options entry sets a member that does not pair with its type",
       {},
       CheckOptionsPairing},
      {"duplicate-options", Severity::kWarning, "two option entries for one type", {}, CheckDuplicateOptions},
      {"missing-options",
       Severity::kWarning,
       "a peripheral's system type has no system_options entry",
       {},
       CheckMissingOptions},
      {"bad-hex", Severity::kError, "a ..._hex value is not a hexadecimal number", {}, CheckHexStrings},
      {"undeclared-enum",
       Severity::kWarning,
       "an enumerated field holds an undeclared number",
       {},
       CheckUndeclaredEnums},
      {"duplicate-sequence",
       Severity::kWarning,
       "an I2C device holds two sequences with one id",
       {},
       CheckDuplicateSequences},
      {"duplicate-pipeline",
       Severity::kWarning,
       "the HAL stream table repeats a system type or pipeline",
       {},
       CheckDuplicatePipelines},
      {kUnknownFieldRule,
       Severity::kWarning,
       "binary input carries fields the schema does not know",
       {},
       CheckUnknownFields},
      {"device-wire",
       Severity::kError,
       "binary input holds wire data the device's parser reads differently",
       {},
       CheckDeviceWire},
      {kUnusedSuppressionRule,
       Severity::kWarning,
       "a '# pcfg: ignore' comment silences nothing",
       {},
       CheckNothing},
  };
  return table;
}

const Rule* FindRule(std::string_view id) {
  for (const Rule& rule : Rules())
    if (id == rule.id) return &rule;
  return nullptr;
}

namespace {

// A note about RULE, or about the run as a whole when RULE is null.
Diagnostic Note(const LoadedConfig& loaded, const Rule* rule, std::string message) {
  Diagnostic d;
  d.file = loaded.file;
  d.severity = Severity::kNote;
  if (rule) d.rule = rule->id;
  d.message = std::move(message);
  return d;
}

// The first prerequisite of RULE that ran and found something, or null.
const char* FailedPrerequisite(const Rule& rule, const std::vector<std::string>& failed) {
  for (const char* prerequisite : rule.prerequisites)
    if (std::find(failed.begin(), failed.end(), prerequisite) != failed.end()) return prerequisite;
  return nullptr;
}

void FlushInLineOrder(std::vector<Diagnostic>& held, const DiagnosticSink& sink) {
  std::stable_sort(held.begin(), held.end(), [](const Diagnostic& a, const Diagnostic& b) {
    return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column);
  });
  for (Diagnostic& d : held) sink(std::move(d));
  held.clear();
  held.shrink_to_fit();
}

// Marks D suppressed when a suppression covers its line and names its rule.
void Suppress(std::vector<Suppression>& suppressions, Diagnostic* d) {
  for (Suppression& suppression : suppressions) {
    if (d->line < suppression.first_line || d->line > suppression.last_line) continue;
    if (std::find(suppression.rules.begin(), suppression.rules.end(), d->rule) == suppression.rules.end())
      continue;
    d->suppressed = true;
    d->justification = suppression.reason;
    suppression.used = true;
    return;
  }
}

}  // namespace

void RunChecks(const LoadedConfig& loaded, const CheckOptions& options, const DiagnosticSink& sink) {
  const ConfigIndex index(loaded.config);
  const CheckContext context(loaded, index);
  // Binary input has no lines: its findings stay in rule order, so nothing needs holding.
  const bool in_line_order = loaded.format != Format::kBinary;
  std::vector<Diagnostic> held, notes;
  bool overflowed = false;  // more findings than are put in line order
  std::vector<std::string> failed, ran;
  // Only text has comments; files without the marker never pay for a syntax tree.
  std::vector<Suppression> suppressions;
  if (loaded.format == Format::kText && loaded.raw.find("pcfg:") != std::string::npos)
    suppressions = FindSuppressions(loaded.Syntax());
  const auto enabled = [&options](const char* id) {
    return !options.disabled.count(id) && (options.only.empty() || options.only.count(id));
  };
  // The rules that depend on no other rule's outcome are worked out first, on two threads when
  // the input is large; what they found is reported below, in table order as ever.
  const std::vector<Rule>& rules = Rules();
  std::vector<std::optional<Findings>> found_early(rules.size());
  if (loaded.raw.size() >= kSmallestInputWorthTwoThreads) {
    std::atomic<size_t> next{0};
    const auto work = [&] {
      for (size_t i = next++; i < rules.size(); i = next++) {
        if (!rules[i].prerequisites.empty() || !enabled(rules[i].id)) continue;
        found_early[i].emplace(options.max_per_rule);
        rules[i].check(context, *found_early[i]);
      }
    };
    std::future<void> helper = std::async(std::launch::async | std::launch::deferred, work);
    work();
    helper.get();
  }
  for (size_t r = 0; r < rules.size(); ++r) {
    const Rule& rule = rules[r];
    if (!enabled(rule.id)) continue;
    if (const char* prerequisite = FailedPrerequisite(rule, failed)) {
      notes.push_back(Note(loaded, &rule,
                           std::string("skipped: its findings depend on ") + prerequisite +
                               ", which found problems; fix those first"));
      continue;
    }
    Findings findings = found_early[r] ? std::move(*found_early[r]) : Findings(options.max_per_rule);
    if (!found_early[r]) rule.check(context, findings);
    ran.push_back(rule.id);
    if (findings.total() > 0) failed.push_back(rule.id);
    for (Findings::Item& item : findings.items()) {
      Diagnostic d;
      d.file = loaded.file;
      const LoadedConfig::Location location = loaded.Locate(item.path);
      d.line = location.line;
      d.column = location.column;
      d.end_line = location.end_line;
      d.end_column = location.end_column;
      d.byte_offset = location.byte_offset;
      d.byte_length = location.byte_length;
      d.text_offset = location.text_offset;
      d.text_length = location.text_length;
      d.severity = options.werror ? Severity::kError : rule.severity;
      d.rule = rule.id;
      d.path = item.path.ToString();
      d.message = std::move(item.message);
      Suppress(suppressions, &d);
      if (in_line_order && held.size() < options.max_put_in_line_order) {
        held.push_back(std::move(d));
      } else {
        if (in_line_order && !overflowed) {
          FlushInLineOrder(held, sink);
          overflowed = true;
        }
        sink(std::move(d));
      }
    }
    if (findings.total() > findings.items().size())
      notes.push_back(Note(loaded, &rule,
                           std::to_string(findings.total() - findings.items().size()) +
                               " more finding(s) of this rule not shown (--max-diagnostics " +
                               std::to_string(options.max_per_rule) + ")"));
  }
  if (enabled(kUnusedSuppressionRule)) {
    for (const Suppression& suppression : suppressions) {
      if (suppression.used) continue;
      std::string unknown, not_run;
      for (const std::string& id : suppression.rules) {
        if (FindRule(id) == nullptr)
          unknown += (unknown.empty() ? "" : ", ") + id;
        else if (std::find(ran.begin(), ran.end(), id) == ran.end())
          not_run = id;
      }
      // A rule that did not run (disabled, skipped) might have found what the comment silences.
      if (unknown.empty() && !not_run.empty()) continue;
      Diagnostic d;
      d.file = loaded.file;
      d.line = suppression.line;
      d.column = suppression.column;
      d.severity = options.werror ? Severity::kError : Severity::kWarning;
      d.rule = kUnusedSuppressionRule;
      d.message = !unknown.empty() ? "the suppression names no rule: " + unknown
                  : suppression.first_line == 0
                      ? "the suppression stands before no entry, so it silences nothing"
                      : "the suppression silences nothing: no finding of its rules on lines " +
                            std::to_string(suppression.first_line) + " to " +
                            std::to_string(suppression.last_line);
      if (in_line_order && !overflowed) {
        held.push_back(std::move(d));
      } else {
        sink(std::move(d));
      }
    }
  }
  FlushInLineOrder(held, sink);
  if (overflowed)
    notes.push_back(Note(loaded, nullptr,
                         "more than " + std::to_string(options.max_put_in_line_order) +
                             " findings: those after the first are written rule by rule, not in line order"));
  for (Diagnostic& d : notes) sink(std::move(d));
}

std::vector<Diagnostic> RunChecks(const LoadedConfig& loaded, const CheckOptions& options) {
  std::vector<Diagnostic> diagnostics;
  RunChecks(loaded, options, [&diagnostics](Diagnostic&& d) { diagnostics.push_back(std::move(d)); });
  return diagnostics;
}

std::vector<Diagnostic> FindUnknownFields(const LoadedConfig& loaded) {
  CheckOptions unknown_only;
  unknown_only.only = {kUnknownFieldRule};
  return RunChecks(loaded, unknown_only);
}

}  // namespace pcfg
