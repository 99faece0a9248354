// Pieces that every pcfg command shares: exit statuses, input and rule options, loading with
// diagnostics printed, and writing outputs with the reason printed when it fails.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "checks.h"
#include "diagnostics.h"
#include "file_io.h"
#include "formats.h"
#include "loader.h"

namespace pcfg::cli {

// As diff(1) and compilers: 0 fine (warnings allowed), 1 findings, 2 trouble.
constexpr int kExitOk = 0;
constexpr int kExitFindings = 1;
constexpr int kExitTrouble = 2;

// Adds a form option (--from unless NAME says otherwise) that takes any name or alias of a form.
void AddFormatOption(CLI::App& command, std::optional<Format>& format, const std::string& name,
                     const std::string& help);

// How a command reads its inputs: the form (--from) and the size limit (--max-input-size).
struct InputOptions {
  std::optional<Format> from;
  uint64_t max_bytes = kDefaultMaxInputBytes;
  LoadOptions ToLoadOptions(Format stdin_format) const;
};
void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& from_name = "--from",
                     const std::string& whose = "input");
// Adds only --max-input-size, for commands whose --from options are per input.
void AddSizeLimitOption(CLI::App& command, uint64_t& max_bytes);

// Loads PATH; on failure prints the diagnostics to stderr and returns false.
bool LoadOrReport(const std::string& path, const LoadOptions& options, LoadedConfig* loaded);

// Adds --werror, --disable RULE[,RULE], --only RULE[,RULE] and --max-diagnostics N.
struct RuleSelection {
  bool werror = false;
  std::vector<std::string> disabled;
  std::vector<std::string> only;
  size_t max_per_rule = kDefaultMaxDiagnosticsPerRule;
  CheckOptions ToOptions() const;
};
void AddRuleOptions(CLI::App& command, RuleSelection& selection);

// Adds --force, which lets an output replace a read-only file.
void AddForceOption(CLI::App& command, OutputPolicy& policy);

// Writes BYTES, or CONFIG in FORMAT, to PATH (see WriteOutput); on failure says why on stderr
// and returns false.
bool WriteOrReport(const std::string& path, std::string_view bytes, const OutputPolicy& policy = {});
bool WriteConfigOrReport(const std::string& path, const Config& config, Format format,
                         const OutputPolicy& policy = {});

// Binary input may carry fields the schema does not know, which neither the text nor the JSON
// form can carry back (the text form would keep them as numbers that no parser reads back).
// Without DROP they are errors and the answer is false; with it, warnings, and they are dropped.
bool SettleUnknownFields(LoadedConfig& loaded, bool drop);
void AddDropUnknownOption(CLI::App& command, bool& drop);

// Each command adds itself to the application; its callback stores the exit status.
void AddCompileCommand(CLI::App& app, int& exit_status);
void AddDecodeCommand(CLI::App& app, int& exit_status);
void AddCheckCommand(CLI::App& app, int& exit_status);
void AddDiffCommand(CLI::App& app, int& exit_status);
void AddFmtCommand(CLI::App& app, int& exit_status);
void AddLspCommand(CLI::App& app, int& exit_status);
void AddShowCommand(CLI::App& app, int& exit_status);
void AddGraphCommand(CLI::App& app, int& exit_status);

}  // namespace pcfg::cli
