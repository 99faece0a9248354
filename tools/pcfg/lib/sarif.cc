#include "sarif.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "checks.h"
#include "json_output.h"

namespace pcfg {
namespace {

// Results that are not a rule's (a file that cannot be read or parsed) carry this rule id.
const char kLoadErrorRule[] = "load-error";

// SARIF's levels are pcfg's severities by the same names.
const char* Level(Severity severity) { return SeverityName(severity); }

// A URI reference for FILE: relative to the working folder when it lies below it, otherwise an
// absolute file: URI; every byte outside the unreserved set and '/' percent-encoded.
std::string ArtifactUri(const std::string& file) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path absolute = fs::absolute(file, error).lexically_normal();
  const fs::path base = fs::current_path(error);
  fs::path relative = absolute.lexically_relative(base);
  const bool below = !error && !relative.empty() && *relative.begin() != "..";
  const std::string path = below ? relative.generic_string() : absolute.generic_string();
  std::string uri = below ? "" : "file://";
  for (unsigned char c : path) {
    if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
      uri += static_cast<char>(c);
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      uri += escaped;
    }
  }
  return uri;
}

Json RuleDescriptors() {
  Json rules = Json::array();
  for (const Rule& rule : Rules())
    rules.push_back({{"id", rule.id},
                     {"shortDescription", {{"text", rule.description}}},
                     {"defaultConfiguration", {{"level", Level(rule.severity)}}}});
  rules.push_back({{"id", kLoadErrorRule},
                   {"shortDescription", {{"text", "the input cannot be read or parsed as a configuration"}}},
                   {"defaultConfiguration", {{"level", "error"}}}});
  return rules;
}

int RuleIndex(const std::string& id) {
  const std::vector<Rule>& rules = Rules();
  for (size_t i = 0; i < rules.size(); ++i)
    if (id == rules[i].id) return static_cast<int>(i);
  return static_cast<int>(rules.size());  // the load-error descriptor, last
}

// The log is written as results come: the run's tool first, then its results one at a time, and
// the invocation last, since whether everything loaded is known only at the end.
class SarifWriter : public DiagnosticWriter {
 public:
  explicit SarifWriter(std::ostream& out) : out_(out) {
    const Json driver = {{"name", "pcfg"}, {"version", PCFG_VERSION}, {"rules", RuleDescriptors()}};
    out_
        << "{\n  \"$schema\": \"https://json.schemastore.org/sarif-2.1.0.json\",\n  \"version\": \"2.1.0\",\n"
           "  \"runs\": [\n    {\n      \"tool\": ";
    WriteJsonAt(out_, {{"driver", driver}}, 3);
    out_ << ",\n      \"results\": ";
    results_.emplace(out_, 3);
  }

  void Write(const Diagnostic& d) override {
    // Notes say how the run went (a rule skipped, findings left out), not what is wrong where.
    if (d.severity == Severity::kNote) {
      Json notification = {{"level", "note"}, {"message", {{"text", d.message}}}};
      if (!d.rule.empty()) notification["associatedRule"] = {{"id", d.rule}, {"index", RuleIndex(d.rule)}};
      notifications_.push_back(std::move(notification));
      return;
    }
    const std::string rule = d.rule.empty() ? kLoadErrorRule : d.rule;
    loaded_everything_ = loaded_everything_ && !d.rule.empty();
    Json result = {{"ruleId", rule},
                   {"ruleIndex", RuleIndex(rule)},
                   {"level", Level(d.severity)},
                   {"message", {{"text", d.message}}},
                   {"locations", Json::array({Location(d)})}};
    // Silenced in the source: reported as such, not dropped, so that review tools can show it.
    if (d.suppressed) {
      Json suppression = {{"kind", "inSource"}};
      if (!d.justification.empty()) suppression["justification"] = d.justification;
      result["suppressions"] = Json::array({suppression});
    }
    results_->Add(result);
  }

  void Finish() override {
    results_->Close();
    Json invocation = {{"executionSuccessful", loaded_everything_}};
    if (!notifications_.empty()) invocation["toolExecutionNotifications"] = notifications_;
    out_ << ",\n      \"invocations\": ";
    WriteJsonAt(out_, Json::array({invocation}), 3);
    out_ << "\n    }\n  ]\n}\n";
  }

 private:
  Json Location(const Diagnostic& d) {
    // Resolving a file name against the working folder costs system calls: once per file.
    if (d.file != uri_of_) uri_ = ArtifactUri(uri_of_ = d.file);
    Json physical = {{"artifactLocation", {{"uri", uri_}}}};
    if (d.line > 0) {
      Json region = {{"startLine", d.line}};
      if (d.column > 0) region["startColumn"] = d.column;
      if (d.end_line > 0) region["endLine"] = d.end_line;
      if (d.end_column > 0) region["endColumn"] = d.end_column;
      physical["region"] = region;
    } else if (d.byte_offset >= 0) {
      physical["region"] = {{"byteOffset", d.byte_offset}, {"byteLength", d.byte_length}};
    }
    Json location = {{"physicalLocation", physical}};
    if (!d.path.empty())
      location["logicalLocations"] = Json::array({{{"fullyQualifiedName", d.path}, {"kind", "member"}}});
    return location;
  }

  std::ostream& out_;
  std::optional<JsonArrayWriter> results_;
  Json notifications_ = Json::array();
  bool loaded_everything_ = true;
  std::string uri_of_, uri_;
};

}  // namespace

std::unique_ptr<DiagnosticWriter> MakeSarifDiagnosticWriter(std::ostream& out) {
  return std::make_unique<SarifWriter>(out);
}

void PrintDiagnosticsSarif(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  const std::unique_ptr<DiagnosticWriter> writer = MakeSarifDiagnosticWriter(out);
  for (const Diagnostic& d : diagnostics) writer->Write(d);
  writer->Finish();
}

}  // namespace pcfg
