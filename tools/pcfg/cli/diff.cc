// pcfg diff: what changed between two configurations, entry by entry, in any mix of forms.
#include "diff.h"

#include <iostream>
#include <memory>

#include "common.h"

namespace pcfg::cli {
namespace {

struct DiffOptions {
  std::string a;
  std::string b;
  std::optional<Format> from_a;
  std::optional<Format> from_b;
  uint64_t max_bytes = kDefaultMaxInputBytes;
};

int RunDiff(const DiffOptions& options) {
  if (options.a == "-" && options.b == "-") {
    std::cerr << "pcfg diff: only one side can be standard input\n";
    return kExitTrouble;
  }
  LoadOptions load_a, load_b;
  load_a.format = options.from_a, load_b.format = options.from_b;
  load_a.stdin_format = load_b.stdin_format = Format::kText;
  load_a.max_bytes = load_b.max_bytes = options.max_bytes;
  LoadedConfig a, b;
  // Both are loaded even when the first fails, so that every unreadable input is reported.
  const bool loaded_a = LoadOrReport(options.a, load_a, &a);
  const bool loaded_b = LoadOrReport(options.b, load_b, &b);
  if (!loaded_a || !loaded_b) return kExitTrouble;
  const std::vector<Difference> differences = DiffConfigs(a.config, b.config);
  PrintDifferences(std::cout, differences);
  return differences.empty() ? kExitOk : kExitFindings;
}

}  // namespace

void AddDiffCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<DiffOptions>();
  CLI::App* command = app.add_subcommand("diff", "Show what differs between two configurations");
  command->footer(
      "Entries of the topology, options and HAL lists are matched by id or type, so reordering\n"
      "them is no difference; other lists are compared by position. One line per difference:\n"
      "  PATH: OLD -> NEW,  + PATH: added,  - PATH: removed\n"
      "Exit status: 0 no differences, 1 differences, 2 unreadable or unparsable input.\n"
      "Example: pcfg diff examples/headset.txtpb headset.binpb");
  command->add_option("A", options->a, "the old configuration (- for standard input, read as text)")
      ->required();
  command->add_option("B", options->b, "the new configuration")->required();
  AddFormatOption(*command, options->from_a, "--from-a", "A's format (default: by extension)");
  AddFormatOption(*command, options->from_b, "--from-b", "B's format (default: by extension)");
  AddSizeLimitOption(*command, options->max_bytes);
  command->callback([options, &exit_status] { exit_status = RunDiff(*options); });
}

}  // namespace pcfg::cli
