// pcfg fmt: the canonical text form, printed, checked or written back in place.
#include <iostream>
#include <memory>

#include "canonical_text.h"
#include "common.h"

namespace pcfg::cli {
namespace {

struct FmtOptions {
  std::vector<std::string> inputs;
  bool in_place = false;
  bool check = false;
  bool drop_comments = false;
  bool drop_unknown = false;
  InputOptions in;
  OutputPolicy policy;
};

void Error(const std::string& file, int line, const std::string& message) {
  Diagnostic d;
  d.file = file;
  d.line = line;
  d.message = message;
  std::cerr << FormatDiagnostic(d) << '\n';
}

enum class Outcome { kDone, kUnformatted, kTrouble };

// -i or --check on one file.
Outcome FormatFile(const std::string& input, const FmtOptions& options) {
  if (options.in_place && input == "-") {
    std::cerr << "pcfg fmt: -i cannot rewrite standard input\n";
    return Outcome::kTrouble;
  }
  LoadedConfig loaded;
  if (!LoadOrReport(input, options.in.ToLoadOptions(Format::kText), &loaded)) return Outcome::kTrouble;
  if (loaded.format != Format::kText) {
    Error(loaded.file, 0,
          std::string("read as ") + FormatName(loaded.format) + "; fmt " +
              (options.in_place ? "-i rewrites" : "--check checks") + " text files only");
    return Outcome::kTrouble;
  }
  const std::string canonical = CanonicalText(loaded.config);
  if (loaded.raw == canonical) return Outcome::kDone;
  if (options.check) {
    std::cout << loaded.file << ": not formatted\n";
    return Outcome::kUnformatted;
  }
  if (!options.drop_comments) {
    if (const auto comment = FindComment(loaded.raw)) {
      Error(loaded.file, comment->line,
            "has comments, which the canonical form cannot keep; left as it was "
            "(--drop-comments to format it without them)");
      return Outcome::kTrouble;
    }
  }
  if (!WriteOrReport(input, canonical, options.policy)) return Outcome::kTrouble;
  std::cerr << loaded.file << ": formatted\n";
  return Outcome::kDone;
}

int RunFmt(const FmtOptions& options) {
  if (options.inputs.empty()) {
    std::cerr << "pcfg fmt: no input files (see pcfg fmt --help)\n";
    return kExitTrouble;
  }
  if (!options.in_place && !options.check) {
    if (options.inputs.size() > 1) {
      std::cerr << "pcfg fmt: prints one input; use -i or --check for several\n";
      return kExitTrouble;
    }
    LoadedConfig loaded;
    if (!LoadOrReport(options.inputs[0], options.in.ToLoadOptions(Format::kText), &loaded) ||
        !SettleUnknownFields(loaded, options.drop_unknown))
      return kExitTrouble;
    OutputPolicy to_standard_output = options.policy;
    to_standard_output.inputs = {options.inputs[0]};  // pcfg fmt a.txtpb >> a.txtpb
    return WriteConfigOrReport("-", loaded.config, Format::kText, to_standard_output) ? kExitOk : kExitTrouble;
  }
  bool trouble = false, unformatted = false;
  for (const std::string& input : options.inputs) {
    const Outcome outcome = FormatFile(input, options);
    trouble = trouble || outcome == Outcome::kTrouble;
    unformatted = unformatted || outcome == Outcome::kUnformatted;
  }
  if (trouble) return kExitTrouble;
  return unformatted ? kExitFindings : kExitOk;
}

}  // namespace

void AddFmtCommand(CLI::App& app, int& exit_status) {
  auto options = std::make_shared<FmtOptions>();
  CLI::App* command = app.add_subcommand("fmt", "Write configurations in the canonical text form");
  command->footer(
      "The canonical form: the proto-file / proto-message header, fields in field-number order,\n"
      "enumerations by canonical name. Comments cannot be kept: -i refuses a file with comments\n"
      "other than the header unless --drop-comments is given. -i refuses read-only files unless\n"
      "--force is given, and keeps each file's mode and owner.\n"
      "Exit status: 0 done (or all formatted under --check), 1 --check found files not formatted,\n"
      "2 unreadable input, a refused file or a usage error.\n"
      "Example: pcfg fmt --check examples/*.txtpb && pcfg fmt -i examples/headset.txtpb");
  command->add_option("IN", options->inputs,
                      "configuration files (- for standard input, read as text); one unless -i or --check");
  auto* in_place = command->add_flag("-i,--in-place", options->in_place,
                                     "rewrite text files in place, atomically, when they change");
  command->add_flag("--check", options->check, "write nothing; list files not formatted and exit 1")
      ->excludes(in_place);
  command->add_flag("--drop-comments", options->drop_comments, "let -i drop comments");
  AddDropUnknownOption(*command, options->drop_unknown);
  AddInputOptions(*command, options->in);
  AddForceOption(*command, options->policy);
  command->callback([options, &exit_status] { exit_status = RunFmt(*options); });
}

}  // namespace pcfg::cli
