// pcfg decode: binary to text or JSON; unknown fields are reported, never dropped silently.
#include <iostream>
#include <memory>

#include "common.h"
#include "output.h"

namespace pcfg::cli {
namespace {

struct DecodeOptions {
  std::string input;
  std::string output = "-";
  std::string from;
  std::string to;
};

int RunDecode(const DecodeOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.from.empty() ? "binary" : options.from, &loaded))
    return kExitTrouble;
  Format to = Format::kText;
  if (!options.to.empty())
    to = *ParseFormatName(options.to);
  else if (options.output != "-" && FormatForPath(options.output) != Format::kBinary)
    to = FormatForPath(options.output);

  CheckOptions unknown_only;
  unknown_only.only = {"unknown-field"};
  std::vector<Diagnostic> diagnostics = RunChecks(loaded, unknown_only);
  if (to == Format::kJson)
    for (Diagnostic& d : diagnostics) d.message += " (the JSON form cannot carry them: they are left out)";
  PrintDiagnostics(std::cerr, diagnostics);
  return WriteOrReport(options.output, SerializeConfig(loaded.config, to)) ? kExitOk : kExitTrouble;
}

}  // namespace

void AddDecodeCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<DecodeOptions>();
  CLI::App* command = app.add_subcommand("decode", "Decode a binary configuration to text or JSON");
  command->footer("Example: pcfg decode headset.binpb --to json -o headset.json");
  command->add_option("IN", options->input, "binary input file, or - for standard input")->required();
  command->add_option("-o,--output", options->output, "output file (default: - for stdout)");
  command
      ->add_option("--to", options->to,
                   "output format: text or json (default: by OUT's extension, else text)")
      ->check(CLI::IsMember({"text", "json"}));
  AddFromOption(*command, options->from);
  command->callback([options, &exit_status] { exit_status = RunDecode(*options); });
}

}  // namespace pcfg::cli
