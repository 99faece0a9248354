// pcfg fmt: text configurations laid out as written (every comment kept), or in the canonical
// form; printed, checked or written back in place.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <system_error>

#include "canonical_text.h"
#include "common.h"
#include "formats.h"
#include "text_formatting.h"
#include "text_layout.h"

namespace pcfg::cli {
namespace {

struct FmtOptions {
  std::vector<std::string> inputs;
  bool in_place = false;
  bool check = false;
  bool drop_comments = false;
  bool drop_unknown = false;
  bool canonical = false;
  std::string lines;  // "N:M", or empty for the whole file
  int first_line = 1, last_line = 0;
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

// Loads INPUT; a text is laid out on a second thread while the first parses it, as the two do
// not depend on each other until the layout is checked against the parse.
bool LoadAndLayOut(const std::string& input, const FmtOptions& options, LoadedConfig* loaded,
                   std::future<TextLayoutResult>* layout) {
  LoadOptions load = options.in.ToLoadOptions(Format::kText);
  if (!options.canonical)
    load.on_read = [&](const std::string& raw, Format format) {
      if (format != Format::kText) return;
      // Either policy: where no thread can be had, the layout is worked out when it is asked for.
      // RAW is LOADED's own text, which the parse only reads: no copy of it is needed.
      *layout = std::async(std::launch::async | std::launch::deferred, [&options, file = DisplayName(input),
                                                                        text = &raw] {
        return options.lines.empty() ? LayOutAndReparse(file, *text)
                                     : LayOutAndReparse(file, *text, options.first_line, options.last_line);
      });
    };
  return LoadOrReport(input, load, loaded);
}

// LOADED's text laid out as written, used only when it is faithful; otherwise the file is
// refused, never changed.
bool LaidOut(const LoadedConfig& loaded, std::future<TextLayoutResult>& job, std::string* formatted) {
  TextLayoutResult layout = job.get();
  int line = 0;
  std::string why;
  const LayoutFault fault = CheckLayoutFaithful(loaded.config, layout, &line, &why);
  if (fault != LayoutFault::kNone) {
    const bool comment = fault == LayoutFault::kComment;
    Error(loaded.file, line,
          why + "; left as it was (--canonical " +
              (comment ? "--drop-comments formats it without comments)" : "formats it)"));
    return false;
  }
  *formatted = std::move(layout.formatted);
  return true;
}

// The formatted text of LOADED, a text file: laid out as written, or canonical.
bool Formatted(const LoadedConfig& loaded, const FmtOptions& options, std::future<TextLayoutResult>& job,
               std::string* formatted) {
  if (!options.canonical) return LaidOut(loaded, job, formatted);
  *formatted = CanonicalText(loaded.config);
  return true;
}

// -i or --check on one file.
Outcome FormatFile(const std::string& input, const FmtOptions& options) {
  if (options.in_place && input == "-") {
    std::cerr << "pcfg fmt: -i cannot rewrite standard input\n";
    return Outcome::kTrouble;
  }
  LoadedConfig loaded;
  std::future<TextLayoutResult> job;
  if (!LoadAndLayOut(input, options, &loaded, &job)) return Outcome::kTrouble;
  if (loaded.format != Format::kText) {
    Error(loaded.file, 0,
          std::string("read as ") + FormatName(loaded.format) + "; fmt " +
              (options.in_place ? "-i rewrites" : "--check checks") + " text files only");
    return Outcome::kTrouble;
  }
  std::string formatted;
  if (!Formatted(loaded, options, job, &formatted)) return Outcome::kTrouble;
  if (loaded.raw == formatted) return Outcome::kDone;
  if (options.check) {
    std::cout << UnifiedDiff(loaded.file, loaded.raw, formatted);
    std::cerr << loaded.file << ": not formatted\n";
    return Outcome::kUnformatted;
  }
  if (options.canonical && !options.drop_comments) {
    if (const auto comment = FindComment(loaded.raw)) {
      Error(loaded.file, comment->line,
            "has comments, which the canonical form cannot keep; left as it was "
            "(--drop-comments to format it without them)");
      return Outcome::kTrouble;
    }
  }
  if (!WriteOrReport(input, formatted, options.policy)) return Outcome::kTrouble;
  std::cerr << loaded.file << ": formatted\n";
  return Outcome::kDone;
}

// With -i or --check, a folder stands for the text configurations in it and in the folders below
// it (.txtpb, .textproto, .pbtxt, .txtproto), in name order. Links to folders are not followed,
// so that a link loop ends; files that are not text configurations are passed over. False, with
// the reason said, when a folder cannot be read.
bool ExpandFolders(std::vector<std::string>* inputs) {
  namespace fs = std::filesystem;
  std::vector<std::string> expanded;
  for (const std::string& input : *inputs) {
    std::error_code error;
    if (input == "-" || !fs::is_directory(input, error)) {
      expanded.push_back(input);
      continue;
    }
    std::vector<std::string> found;
    for (fs::recursive_directory_iterator it(input, error), end; !error && it != end; it.increment(error)) {
      const std::string path = it->path().string();
      if (!ExtensionNamesAForm(path) || FormatForPath(path) != Format::kText) continue;
      std::error_code unreadable;
      const fs::file_status status = it->status(unreadable);  // a link's target
      if (fs::is_directory(status)) continue;
      // A FIFO or a device would be waited on or read without end: passed over, and said so. A
      // link to nothing is kept, for reading it to say why it fails.
      if (!unreadable && !fs::is_regular_file(status)) {
        std::cerr << "pcfg fmt: " << path << ": not a regular file; passed over\n";
        continue;
      }
      found.push_back(path);
    }
    if (error) {
      std::cerr << "pcfg fmt: " << input << ": cannot read the folder: " << error.message() << '\n';
      return false;
    }
    if (found.empty()) std::cerr << "pcfg fmt: " << input << ": no text configuration in this folder\n";
    std::sort(found.begin(), found.end());
    expanded.insert(expanded.end(), found.begin(), found.end());
  }
  *inputs = std::move(expanded);
  return true;
}

int RunFmt(FmtOptions& options) {
  const bool named_any = !options.inputs.empty();
  if ((options.in_place || options.check) && !ExpandFolders(&options.inputs)) return kExitTrouble;
  if (named_any && options.inputs.empty()) return kExitOk;  // folders without any, as said
  if (options.inputs.empty()) {
    std::cerr << "pcfg fmt: no input files (see pcfg fmt --help)\n";
    return kExitTrouble;
  }
  if (!options.lines.empty()) {
    if (options.inputs.size() > 1) {
      std::cerr << "pcfg fmt: --lines applies to one input\n";
      return kExitTrouble;
    }
    std::sscanf(options.lines.c_str(), "%d:%d", &options.first_line, &options.last_line);
  }
  if (!options.in_place && !options.check) {
    if (options.inputs.size() > 1) {
      std::cerr << "pcfg fmt: prints one input; use -i or --check for several\n";
      return kExitTrouble;
    }
    LoadedConfig loaded;
    std::future<TextLayoutResult> job;
    if (!LoadAndLayOut(options.inputs[0], options, &loaded, &job) ||
        !SettleUnknownFields(loaded, options.drop_unknown))
      return kExitTrouble;
    OutputPolicy to_standard_output = options.policy;
    to_standard_output.inputs = {options.inputs[0]};  // pcfg fmt a.txtpb >> a.txtpb
    // Binary and JSON have no layout of their own to keep: they print in the canonical form.
    if (loaded.format != Format::kText || options.canonical)
      return WriteConfigOrReport("-", loaded.config, Format::kText, to_standard_output) ? kExitOk
                                                                                        : kExitTrouble;
    std::string formatted;
    if (!LaidOut(loaded, job, &formatted)) return kExitTrouble;
    return WriteOrReport("-", formatted, to_standard_output) ? kExitOk : kExitTrouble;
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
  CLI::App* command = app.add_subcommand("fmt", "Lay out text configurations, keeping every comment");
  command->footer(
      "Text keeps its fields in the order written, every comment, the enumeration names written\n"
      "and one blank line where it had some; two-space indents, ':' after scalar names only,\n"
      "a message written on one line stays so while it fits in 100 columns, and lists of scalars\n"
      "wrap with an aligned continuation. The header lines come first. The result is checked to\n"
      "mean what the input means and to hold its comments, or the file is left as it was.\n"
      "--canonical writes the canonical form instead (fields in field-number order, canonical\n"
      "enumeration names, no comments: -i then refuses a file with comments unless\n"
      "--drop-comments). Binary and JSON input print in the canonical form. -i refuses read-only\n"
      "files unless --force is given, and keeps each file's mode and owner.\n"
      "--lines N:M (for editors) lays out only what touches lines N to M: each stretch of lines\n"
      "the layout would change is taken whole when one of its lines is in the range.\n"
      "With -i or --check a folder stands for the text configurations in it and below it.\n"
      "Exit status: 0 done (or all formatted under --check), 1 --check found files not formatted\n"
      "(their diffs on standard output), 2 unreadable input, a refused file or a usage error.\n"
      "Example: pcfg fmt --check examples/ && pcfg fmt -i examples/headset.txtpb");
  command->add_option("IN", options->inputs,
                      "configuration files (- for standard input, read as text); one unless -i or --check "
                      "(which take folders too)");
  auto* in_place = command->add_flag("-i,--in-place", options->in_place,
                                     "rewrite text files in place, atomically, when they change");
  command
      ->add_flag("--check", options->check,
                 "write nothing; print how each file not formatted would change, and exit 1")
      ->excludes(in_place);
  auto* canonical = command->add_flag("--canonical", options->canonical,
                                      "the canonical form: field-number order, canonical names, no comments");
  command
      ->add_option("--lines", options->lines,
                   "lay out only the stretches of changed lines that touch lines N to M (1-based, inclusive)")
      ->type_name("N:M")
      ->excludes(canonical)
      ->check(CLI::Validator(
          [](std::string& value) -> std::string {
            unsigned first = 0, last = 0;
            char end = 0;
            if (std::sscanf(value.c_str(), "%9u:%9u%c", &first, &last, &end) == 2 && first >= 1 &&
                last >= first && value.find_first_not_of("0123456789:") == std::string::npos)
              return "";
            return "expected N:M, two line numbers from 1 with N <= M, not '" + value + "'";
          },
          "N:M"));
  command->add_flag("--drop-comments", options->drop_comments, "with --canonical, let -i drop comments");
  AddDropUnknownOption(*command, options->drop_unknown);
  AddInputOptions(*command, options->in);
  AddForceOption(*command, options->policy);
  command->callback([options, &exit_status] { exit_status = RunFmt(*options); });
}

}  // namespace pcfg::cli
