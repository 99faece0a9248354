// Pieces that every pcfg command shares: exit statuses, format options, loading with
// diagnostics printed, and rule selection.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "checks.h"
#include "diagnostics.h"
#include "formats.h"
#include "loader.h"

namespace pcfg::cli {

// As diff(1) and compilers: 0 fine (warnings allowed), 1 findings, 2 trouble.
constexpr int kExitOk = 0;
constexpr int kExitFindings = 1;
constexpr int kExitTrouble = 2;

// Adds an input-format option (--from unless NAME says otherwise) to a command.
void AddFromOption(CLI::App& command, std::string& from, const std::string& name = "--from",
                   const std::string& what = "input");
// "" -> nullopt; otherwise the format named (the option's validator has vetted the name).
std::optional<Format> OptionalFormat(const std::string& name);

// Loads PATH; on failure prints the diagnostics to stderr and returns false.
bool LoadOrReport(const std::string& path, const std::string& from, LoadedConfig* loaded,
                  Format stdin_format = Format::kBinary);

// Adds --werror and --disable RULE[,RULE] to a command.
struct RuleSelection {
  bool werror = false;
  std::vector<std::string> disabled;
  CheckOptions ToOptions() const;
};
void AddRuleOptions(CLI::App& command, RuleSelection& selection);

// Writes BYTES to PATH atomically; on failure says why on stderr and returns false.
bool WriteOrReport(const std::string& path, const std::string& bytes);

// Each command adds itself to the application; its callback stores the exit status.
void AddCompileCommand(CLI::App& app, int& exit_status);
void AddDecodeCommand(CLI::App& app, int& exit_status);
void AddCheckCommand(CLI::App& app, int& exit_status);
void AddDiffCommand(CLI::App& app, int& exit_status);
void AddFmtCommand(CLI::App& app, int& exit_status);
void AddShowCommand(CLI::App& app, int& exit_status);
void AddGraphCommand(CLI::App& app, int& exit_status);

}  // namespace pcfg::cli
