// pcfg compile: text or JSON to the binary wire format, after the checks pass.
#include <iostream>
#include <memory>

#include "common.h"

namespace pcfg::cli {
namespace {

struct CompileOptions {
  std::string input;
  std::string output;
  InputOptions in;
  bool no_check = false;
  RuleSelection rules;
  OutputPolicy policy;
};

int RunCompile(CompileOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.in.ToLoadOptions(Format::kText), &loaded)) return kExitTrouble;
  if (!options.no_check) {
    const std::unique_ptr<DiagnosticWriter> writer = MakeTextDiagnosticWriter(std::cerr);
    long errors = 0;
    RunChecks(loaded, options.rules.ToOptions(), [&](Diagnostic&& d) {
      errors += d.severity == Severity::kError && !d.suppressed;
      writer->Write(d);
    });
    if (errors > 0) {
      std::cerr << loaded.file << ": " << errors << " error(s) found; nothing written\n";
      return kExitFindings;
    }
  }
  // cameras.txtpb -> cameras.binpb; standard input goes to standard output.
  const std::string output = !options.output.empty() ? options.output
                             : options.input == "-"  ? "-"
                                                     : PathWithFormat(options.input, Format::kBinary);
  options.policy.inputs = {options.input};
  if (!WriteConfigOrReport(output, loaded.config, Format::kBinary, options.policy)) return kExitTrouble;
  // The size that the binary writer has just computed and cached.
  if (output != "-")
    std::cerr << "pcfg: wrote " << output << " (" << loaded.config.GetCachedSize() << " bytes, "
              << loaded.config.peripherals_size() << " peripherals)\n";
  return kExitOk;
}

}  // namespace

void AddCompileCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<CompileOptions>();
  CLI::App* command = app.add_subcommand("compile", "Compile a text or JSON configuration to binary");
  command->footer(
      "Runs the checks first and writes nothing when they find errors. The output (-o) is replaced\n"
      "atomically when it is a plain file and written through otherwise (a FIFO, a device, standard "
      "output).\n"
      "Exit status: 0 written, 1 the checks found errors, 2 usage error, unreadable or unparsable\n"
      "input, or an output that cannot be written.\n"
      "Example: pcfg compile examples/headset.txtpb -o headset.binpb");
  command->add_option("IN", options->input, "input file, or - for standard input (read as text)")->required();
  command->add_option("-o,--output", options->output, "output file (default: IN with .binpb; - for stdout)");
  AddInputOptions(*command, options->in);
  command->add_flag("--no-check", options->no_check, "skip the checks");
  AddRuleOptions(*command, options->rules);
  AddForceOption(*command, options->policy);
  command->callback([options, &exit_status] { exit_status = RunCompile(*options); });
}

}  // namespace pcfg::cli
