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
  std::string from;
};

void Error(const std::string& file, int line, const std::string& message) {
  Diagnostic d;
  d.file = file;
  d.line = line;
  d.message = message;
  std::cerr << FormatDiagnostic(d) << '\n';
}

// Prints the canonical text of one input; binary input may carry fields the schema does not know.
int PrintCanonical(const LoadedConfig& loaded) {
  CheckOptions unknown_only;
  unknown_only.only = {"unknown-field"};
  PrintDiagnostics(std::cerr, RunChecks(loaded, unknown_only));
  return WriteOrReport("-", CanonicalText(loaded.config)) ? kExitOk : kExitTrouble;
}

int RunFmt(const FmtOptions& options) {
  if (options.inputs.empty()) {
    std::cerr << "pcfg fmt: no input files (see pcfg fmt --help)\n";
    return kExitTrouble;
  }
  const bool to_stdout = !options.in_place && !options.check;
  if (to_stdout && options.inputs.size() > 1) {
    std::cerr << "pcfg fmt: prints one input; use -i or --check for several\n";
    return kExitTrouble;
  }
  bool trouble = false, unformatted = false;
  for (const std::string& input : options.inputs) {
    if (options.in_place && input == "-") {
      std::cerr << "pcfg fmt: -i cannot rewrite standard input\n";
      trouble = true;
      continue;
    }
    LoadedConfig loaded;
    if (!LoadOrReport(input, options.from, &loaded, Format::kText)) {
      trouble = true;
      continue;
    }
    if (to_stdout) return PrintCanonical(loaded);
    if (loaded.format != Format::kText) {
      Error(loaded.file, 0,
            std::string("read as ") + FormatName(loaded.format) + "; fmt " +
                (options.in_place ? "-i rewrites" : "--check checks") + " text files only");
      trouble = true;
      continue;
    }
    const std::string canonical = CanonicalText(loaded.config);
    if (loaded.raw == canonical) continue;
    if (options.check) {
      std::cout << loaded.file << ": not formatted\n";
      unformatted = true;
      continue;
    }
    if (!options.drop_comments) {
      if (const auto comment = FindComment(loaded.raw)) {
        Error(loaded.file, comment->line,
              "has comments, which the canonical form cannot keep; left as it was "
              "(--drop-comments to format it without them)");
        trouble = true;
        continue;
      }
    }
    if (!WriteOrReport(input, canonical)) {
      trouble = true;
      continue;
    }
    std::cerr << loaded.file << ": formatted\n";
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
      "other than the header unless --drop-comments is given.\n"
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
  AddFromOption(*command, options->from);
  command->callback([options, &exit_status] { exit_status = RunFmt(*options); });
}

}  // namespace pcfg::cli
