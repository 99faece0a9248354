// pcfg decode: binary to text or JSON. Fields the schema does not know are never dropped silently.
#include <iostream>
#include <memory>

#include "common.h"

namespace pcfg::cli {
namespace {

struct DecodeOptions {
  std::string input;
  std::string output = "-";
  InputOptions in;
  std::optional<Format> to;
  bool drop_unknown = false;
  OutputPolicy policy;
};

int RunDecode(DecodeOptions& options) {
  LoadOptions load = options.in.ToLoadOptions(Format::kBinary);  // by extension; standard input binary
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, load, &loaded)) return kExitTrouble;
  // By the output's extension when it names text or JSON; text otherwise.
  Format to = Format::kText;
  if (options.to)
    to = *options.to;
  else if (options.output != "-" && FormatForPath(options.output) != Format::kBinary)
    to = FormatForPath(options.output);
  if (to != Format::kBinary && !SettleUnknownFields(loaded, options.drop_unknown)) return kExitTrouble;
  options.policy.inputs = {options.input};
  return WriteConfigOrReport(options.output, loaded.config, to, options.policy) ? kExitOk : kExitTrouble;
}

}  // namespace

void AddDecodeCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<DecodeOptions>();
  CLI::App* command = app.add_subcommand("decode", "Decode a binary configuration to text or JSON");
  command->footer(
      "Binary input that carries fields the schema does not know is refused (exit 2), since\n"
      "neither form can carry them back; --drop-unknown decodes it without them.\n"
      "The input's form comes from its extension (.binpb, .txtpb, .json...; binary when it names\n"
      "none, and for standard input); --from chooses it.\n"
      "Exit status: 0 written, 2 usage error, unreadable input or an output that cannot be written.\n"
      "Example: pcfg decode headset.binpb --to json -o headset.json");
  command
      ->add_option("IN", options->input,
                   "input file (binary, or by its extension text or JSON), or - for standard input (binary)")
      ->required();
  command->add_option("-o,--output", options->output, "output file (default: - for stdout)");
  AddFormatOption(*command, options->to, "--to",
                  "output format: text, json or binary (default: by -o's extension, else text)");
  AddInputOptions(*command, options->in);
  AddDropUnknownOption(*command, options->drop_unknown);
  AddForceOption(*command, options->policy);
  command->callback([options, &exit_status] { exit_status = RunDecode(*options); });
}

}  // namespace pcfg::cli
