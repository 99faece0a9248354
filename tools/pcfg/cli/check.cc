// pcfg check: the rules of what the library leaves to its clients, over one or more files.
#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>

#include "common.h"
#include "sarif.h"

namespace pcfg::cli {
namespace {

struct CheckCommandOptions {
  std::vector<std::string> inputs;
  std::string format = "text";
  InputOptions in;
  bool list = false;
  RuleSelection rules;
};

void ListRules() {
  size_t width = 0;
  for (const Rule& rule : Rules()) width = std::max(width, std::strlen(rule.id));
  for (const Rule& rule : Rules()) {
    std::cout << std::left << std::setw(static_cast<int>(width) + 2) << rule.id << std::setw(9)
              << SeverityName(rule.severity) << rule.description;
    for (size_t i = 0; i < rule.prerequisites.size(); ++i)
      std::cout << (i == 0 ? " (after " : ", ") << rule.prerequisites[i]
                << (i + 1 == rule.prerequisites.size() ? ")" : "");
    std::cout << '\n';
  }
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
  // Diagnostics are written as they come and only counted here, so that memory does not grow
  // with the number of findings (--max-diagnostics 0 on millions of entries).
  std::unique_ptr<DiagnosticWriter> writer = options.format == "json" ? MakeJsonDiagnosticWriter(std::cout)
                                             : options.format == "sarif"
                                                 ? MakeSarifDiagnosticWriter(std::cout)
                                                 : MakeTextDiagnosticWriter(std::cout);
  bool trouble = false;
  long total_errors = 0;
  for (const std::string& input : options.inputs) {
    long errors = 0, warnings = 0, suppressed = 0;
    const auto write = [&](const Diagnostic& d) {
      suppressed += d.suppressed;
      errors += d.severity == Severity::kError && !d.suppressed;
      warnings += d.severity == Severity::kWarning && !d.suppressed;
      writer->Write(d);
    };
    LoadedConfig loaded;
    std::vector<Diagnostic> load_diagnostics;
    const bool was_loaded =
        LoadConfig(input, options.in.ToLoadOptions(Format::kText), &loaded, &load_diagnostics);
    for (const Diagnostic& d : load_diagnostics) write(d);
    if (was_loaded) {
      RunChecks(loaded, options.rules.ToOptions(), write);
    } else {
      trouble = true;
    }
    if (options.format == "text")
      std::cerr << DisplayName(input) << ": " << errors << " error(s), " << warnings << " warning(s)"
                << (suppressed > 0 ? ", " + std::to_string(suppressed) + " suppressed" : "") << "\n";
    total_errors += errors;
  }
  writer->Finish();
  if (trouble) return kExitTrouble;
  return total_errors > 0 ? kExitFindings : kExitOk;
}

}  // namespace

void AddCheckCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<CheckCommandOptions>();
  CLI::App* command = app.add_subcommand("check", "Check configurations for what the schema cannot enforce");
  command->footer(
      "A rule whose findings depend on another rule is skipped, with a note, when that rule finds\n"
      "problems. --format sarif writes SARIF 2.1.0 for code-review systems.\n"
      "Exit status: 0 no errors (warnings allowed), 1 errors found (or warnings under --werror),\n"
      "2 unreadable or unparsable input.\n"
      "Example: pcfg check examples/headset.txtpb --disable no-driver");
  command->add_option("IN", options->inputs, "configuration files (- for standard input, read as text)");
  command->add_option("--format", options->format, "diagnostics as text, json or sarif")
      ->check(CLI::IsMember({"text", "json", "sarif"}));
  command->add_flag("--list", options->list, "list the rules and exit");
  AddInputOptions(*command, options->in);
  AddRuleOptions(*command, options->rules);
  command->callback([options, &exit_status] { exit_status = RunCheck(*options); });
}

}  // namespace pcfg::cli
