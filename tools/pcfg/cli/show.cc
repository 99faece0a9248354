// pcfg show: a readable summary of one configuration, as text or JSON.
#include <iostream>
#include <memory>

#include "common.h"
#include "show_facts.h"

namespace pcfg::cli {
namespace {

struct ShowOptions {
  std::string input;
  std::string format = "text";
  InputOptions in;
};

int RunShow(const ShowOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.in.ToLoadOptions(Format::kText), &loaded)) return kExitTrouble;
  const ConfigIndex index(loaded.config);
  const ShowFacts facts = GatherShowFacts(loaded.file, index);
  if (options.format == "json")
    PrintShowJson(std::cout, facts);
  else
    PrintShowText(std::cout, facts);
  return kExitOk;
}

}  // namespace

void AddShowCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* command =
      app.add_subcommand("show", "Summarise a configuration: device, peripherals, bring-up order");
  command->footer(
      "Lists the device, peripheral counts, the bring-up order (dependencies first), cameras with\n"
      "their model, driver and system options, camera sets, logical cameras, stream configurations\n"
      "and the HAL pipeline table. A dependency cycle is reported and the rest still ordered.\n"
      "Exit status: 0 shown, 2 usage error or unreadable or unparsable input.\n"
      "Example: pcfg show examples/headset.txtpb --format json");
  command->add_option("IN", options->input, "configuration file, or - for standard input (read as text)")
      ->required();
  command->add_option("--format", options->format, "output as text or json (default: text)")
      ->check(CLI::IsMember({"text", "json"}));
  AddInputOptions(*command, options->in);
  command->callback([options, &exit_status] { exit_status = RunShow(*options); });
}

}  // namespace pcfg::cli
