// pcfg compile: text or JSON to the binary wire format, after the checks pass.
#include <iostream>
#include <memory>

#include "common.h"
#include "output.h"

namespace pcfg::cli {
namespace {

struct CompileOptions {
  std::string input;
  std::string output;
  std::string from;
  bool no_check = false;
  RuleSelection rules;
};

// cameras.txtpb -> cameras.binpb; standard input goes to standard output.
std::string DefaultOutput(const std::string& input) {
  if (input == "-") return "-";
  const size_t slash = input.find_last_of('/');
  const size_t dot = input.find_last_of('.');
  const bool has_extension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  return (has_extension ? input.substr(0, dot) : input) + ".binpb";
}

int RunCompile(const CompileOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.from, &loaded, Format::kText)) return kExitTrouble;
  if (!options.no_check) {
    const std::vector<Diagnostic> diagnostics = RunChecks(loaded, options.rules.ToOptions());
    PrintDiagnostics(std::cerr, diagnostics);
    const int errors = CountSeverity(diagnostics, Severity::kError);
    if (errors > 0) {
      std::cerr << loaded.file << ": " << errors << " error(s) found; nothing written\n";
      return kExitFindings;
    }
  }
  const std::string output = options.output.empty() ? DefaultOutput(options.input) : options.output;
  const std::string bytes = SerializeConfig(loaded.config, Format::kBinary);
  if (!WriteOrReport(output, bytes)) return kExitTrouble;
  if (output != "-")
    std::cerr << "pcfg: wrote " << output << " (" << bytes.size() << " bytes, "
              << loaded.config.peripherals_size() << " peripherals)\n";
  return kExitOk;
}

}  // namespace

void AddCompileCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<CompileOptions>();
  CLI::App* command = app.add_subcommand("compile", "Compile a text or JSON configuration to binary");
  command->footer(
      "Runs the checks first and writes nothing when they find errors.\n"
      "Example: pcfg compile examples/headset.txtpb -o headset.binpb");
  command->add_option("IN", options->input, "input file, or - for standard input (read as text)")->required();
  command->add_option("-o,--output", options->output, "output file (default: IN with .binpb; - for stdout)");
  AddFromOption(*command, options->from);
  command->add_flag("--no-check", options->no_check, "skip the checks");
  AddRuleOptions(*command, options->rules);
  command->callback([options, &exit_status] { exit_status = RunCompile(*options); });
}

}  // namespace pcfg::cli
