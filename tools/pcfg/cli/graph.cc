// pcfg graph: the peripheral topology as Graphviz DOT, or rendered to SVG or PNG by dot(1).
#include "graph.h"

#include <iostream>
#include <memory>

#include "common.h"
#include "dot_renderer.h"

namespace pcfg::cli {
namespace {

struct GraphOptions {
  std::string input;
  std::string output = "-";
  InputOptions in;
  OutputPolicy policy;
};

int RunGraph(GraphOptions& options) {
  LoadedConfig loaded;
  if (!LoadOrReport(options.input, options.in.ToLoadOptions(Format::kText), &loaded)) return kExitTrouble;
  const std::string dot = GraphDot(ConfigIndex(loaded.config));
  options.policy.inputs = {options.input};
  const Drawing drawing = DrawingForPath(options.output);
  if (drawing == Drawing::kDot)
    return WriteOrReport(options.output, dot, options.policy) ? kExitOk : kExitTrouble;

  std::string image, error;
  switch (RenderWithDot(dot, DrawingName(drawing), &image, &error)) {
    case Render::kOk:
      return WriteOrReport(options.output, image, options.policy) ? kExitOk : kExitTrouble;
    case Render::kNoDot:
      std::cerr << "pcfg graph: cannot render " << options.output
                << ": Graphviz's dot is not on PATH; install the Debian package graphviz "
                   "(apt-get install graphviz), or write DOT with -o FILE.dot (nothing written)\n";
      return kExitTrouble;
    case Render::kFailed:
      break;
  }
  std::cerr << "pcfg graph: cannot render " << options.output << ": " << error << " (nothing written)\n";
  return kExitTrouble;
}

}  // namespace

void AddGraphCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<GraphOptions>();
  CLI::App* command = app.add_subcommand("graph", "Draw the peripheral topology as Graphviz DOT, SVG or PNG");
  command->footer(
      "Solid edges run from a dependency to the peripheral that lists it (bring-up order); dashed\n"
      "edges from a camera to its camera sets and logical cameras. OUT ending in .svg or .png is\n"
      "rendered with Graphviz's dot (Debian package graphviz); any other OUT gets DOT.\n"
      "Exit status: 0 written, 2 usage error, unreadable or unparsable input, or dot missing or failing.\n"
      "Example: pcfg graph examples/headset.txtpb -o docs/headset.svg");
  command->add_option("IN", options->input, "configuration file, or - for standard input (read as text)")
      ->required();
  command->add_option("-o,--output", options->output,
                      "output file: .svg, .png, or DOT otherwise (default: - for stdout)");
  AddInputOptions(*command, options->in);
  AddForceOption(*command, options->policy);
  command->callback([options, &exit_status] { exit_status = RunGraph(*options); });
}

}  // namespace pcfg::cli
