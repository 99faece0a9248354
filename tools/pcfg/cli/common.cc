#include "common.h"

#include <iostream>

#include "output.h"

namespace pcfg::cli {

void AddFromOption(CLI::App& command, std::string& from, const std::string& name, const std::string& what) {
  command.add_option(name, from, what + " format: text, json or binary (default: by extension)")
      ->check(CLI::IsMember({"text", "json", "binary"}));
}

std::optional<Format> OptionalFormat(const std::string& name) {
  if (name.empty()) return std::nullopt;
  return ParseFormatName(name);
}

bool LoadOrReport(const std::string& path, const std::string& from, LoadedConfig* loaded,
                  Format stdin_format) {
  std::vector<Diagnostic> diagnostics;
  const bool ok = LoadConfig(path, OptionalFormat(from), loaded, &diagnostics, stdin_format);
  PrintDiagnostics(std::cerr, diagnostics);
  return ok;
}

CheckOptions RuleSelection::ToOptions() const {
  CheckOptions options;
  options.werror = werror;
  options.disabled.insert(disabled.begin(), disabled.end());
  return options;
}

void AddRuleOptions(CLI::App& command, RuleSelection& selection) {
  command.add_flag("--werror", selection.werror, "treat warnings as errors");
  command
      .add_option("--disable", selection.disabled, "rules to skip (comma-separated; see pcfg check --list)")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check([](const std::string& id) {
        return FindRule(id) ? std::string() : "unknown rule '" + id + "' (see pcfg check --list)";
      });
}

bool WriteOrReport(const std::string& path, const std::string& bytes) {
  std::string error;
  if (WriteFileAtomically(path, bytes, &error)) return true;
  std::cerr << path << ": error: " << error << " (nothing written)\n";
  return false;
}

}  // namespace pcfg::cli
