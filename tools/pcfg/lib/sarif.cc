#include "sarif.h"

#include <cctype>
#include <cstdio>
#include <filesystem>

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

Json Location(const Diagnostic& d) {
  Json physical = {{"artifactLocation", {{"uri", ArtifactUri(d.file)}}}};
  if (d.line > 0) {
    Json region = {{"startLine", d.line}};
    if (d.column > 0) region["startColumn"] = d.column;
    physical["region"] = region;
  } else if (d.byte_offset >= 0) {
    physical["region"] = {{"byteOffset", d.byte_offset}, {"byteLength", d.byte_length}};
  }
  Json location = {{"physicalLocation", physical}};
  if (!d.path.empty())
    location["logicalLocations"] = Json::array({{{"fullyQualifiedName", d.path}, {"kind", "member"}}});
  return location;
}

}  // namespace

void PrintDiagnosticsSarif(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  Json results = Json::array(), notifications = Json::array();
  bool loaded_everything = true;
  for (const Diagnostic& d : diagnostics) {
    // Notes say how the run went (a rule skipped, findings left out), not what is wrong where.
    if (d.severity == Severity::kNote) {
      notifications.push_back({{"level", "note"},
                               {"message", {{"text", d.message}}},
                               {"associatedRule", {{"id", d.rule}, {"index", RuleIndex(d.rule)}}}});
      continue;
    }
    const std::string rule = d.rule.empty() ? kLoadErrorRule : d.rule;
    loaded_everything = loaded_everything && !d.rule.empty();
    results.push_back({{"ruleId", rule},
                       {"ruleIndex", RuleIndex(rule)},
                       {"level", Level(d.severity)},
                       {"message", {{"text", d.message}}},
                       {"locations", Json::array({Location(d)})}});
  }
  Json invocation = {{"executionSuccessful", loaded_everything}};
  if (!notifications.empty()) invocation["toolExecutionNotifications"] = notifications;
  Json driver = {{"name", "pcfg"}, {"version", PCFG_VERSION}, {"rules", RuleDescriptors()}};
  Json run = {
      {"tool", {{"driver", driver}}}, {"invocations", Json::array({invocation})}, {"results", results}};
  PrintJson(out, {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                  {"version", "2.1.0"},
                  {"runs", Json::array({run})}});
}

}  // namespace pcfg
