// pcfg check: the rules of what the library leaves to its clients, over one or more files.
#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>

#include "common.h"

namespace pcfg::cli {
namespace {

struct CheckCommandOptions {
  std::vector<std::string> inputs;
  std::string format = "text";
  std::string from;
  bool list = false;
  RuleSelection rules;
};

void ListRules() {
  size_t width = 0;
  for (const Rule& rule : Rules()) width = std::max(width, std::strlen(rule.id));
  for (const Rule& rule : Rules())
    std::cout << std::left << std::setw(static_cast<int>(width) + 2) << rule.id << std::setw(9)
              << SeverityName(rule.severity) << rule.description << '\n';
}

int RunCheck(const CheckCommandOptions& options) {
  if (options.list) {
    ListRules();
    return kExitOk;
  }
  if (options.inputs.empty()) {
    std::cerr << "pcfg check: no input files (see pcfg check --help)\n";
    return kExitTrouble;
  }
  bool trouble = false;
  std::vector<Diagnostic> all;
  for (const std::string& input : options.inputs) {
    LoadedConfig loaded;
    std::vector<Diagnostic> diagnostics;
    if (!LoadConfig(input, OptionalFormat(options.from), &loaded, &diagnostics, Format::kText)) {
      trouble = true;
    } else {
      std::vector<Diagnostic> found = RunChecks(loaded, options.rules.ToOptions());
      diagnostics.insert(diagnostics.end(), found.begin(), found.end());
    }
    if (options.format == "text") {
      PrintDiagnostics(std::cout, diagnostics);
      std::cerr << loaded.file << ": " << CountSeverity(diagnostics, Severity::kError) << " error(s), "
                << CountSeverity(diagnostics, Severity::kWarning) << " warning(s)\n";
    }
    all.insert(all.end(), diagnostics.begin(), diagnostics.end());
  }
  if (options.format == "json") PrintDiagnosticsJson(std::cout, all);
  if (trouble) return kExitTrouble;
  return CountSeverity(all, Severity::kError) > 0 ? kExitFindings : kExitOk;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<CheckCommandOptions>();
  CLI::App* command = app.add_subcommand("check", "Check configurations for what the schema cannot enforce");
  command->footer(
      "Exit status: 0 no errors (warnings allowed), 1 errors found (or warnings under --werror),\n"
      "2 unreadable or unparsable input.\n"
      "Example: pcfg check examples/headset.txtpb --disable no-driver");
  command->add_option("IN", options->inputs, "configuration files (- for standard input, read as text)");
  command->add_option("--format", options->format, "diagnostics as text or json")
      ->check(CLI::IsMember({"text", "json"}));
  command->add_flag("--list", options->list, "list the rules and exit");
  AddFromOption(*command, options->from);
  AddRuleOptions(*command, options->rules);
  command->callback([options, &exit_status] { exit_status = RunCheck(*options); });
}

}  // namespace pcfg::cli
