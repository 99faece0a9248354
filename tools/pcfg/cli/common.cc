#include "common.h"

#include <iostream>

#include "serialize.h"

namespace pcfg::cli {

void AddFormatOption(CLI::App& command, std::optional<Format>& format, const std::string& name,
                     const std::string& help) {
  command.add_option(name, format, help)
      ->transform(CLI::Validator(
          [](std::string& value) -> std::string {
            if (const auto form = ParseFormatName(value)) {
              value = std::to_string(static_cast<int>(*form));
              return "";
            }
            std::string names;
            for (const auto& [known, form] : FormatNames()) names += (names.empty() ? "" : ", ") + known;
            return "no form '" + value + "'; the forms are text, json and binary (also as " + names + ")";
          },
          "FORM"))
      ->option_text("text|json|binary");
}

LoadOptions InputOptions::ToLoadOptions(Format stdin_format) const {
  LoadOptions options;
  options.format = from;
  options.stdin_format = stdin_format;
  options.max_bytes = max_bytes;
  return options;
}

void AddSizeLimitOption(CLI::App& command, uint64_t& max_bytes) {
  command
      .add_option_function<std::string>(
          "--max-input-size",
          [&max_bytes](const std::string& text) {
            // protobuf's parsers take at most 2 GiB.
            if (!ParseByteSize(text, &max_bytes) || max_bytes > (2ull << 30) - 1)
              throw CLI::ValidationError("--max-input-size",
                                         "expected a size below 2G such as 256M, not " + text);
          },
          "refuse inputs larger than this (default 64M; K, M and G suffixes)")
      ->option_text("SIZE");
}

void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& from_name,
                     const std::string& whose) {
  AddFormatOption(command, options.from, from_name,
                  whose + " format: text, json or binary, or an alias such as txtpb (default: by extension)");
  AddSizeLimitOption(command, options.max_bytes);
}

bool LoadOrReport(const std::string& path, const LoadOptions& options, LoadedConfig* loaded) {
  std::vector<Diagnostic> diagnostics;
  const bool ok = LoadConfig(path, options, loaded, &diagnostics);
  PrintDiagnostics(std::cerr, diagnostics);
  return ok;
}

CheckOptions RuleSelection::ToOptions() const {
  CheckOptions options;
  options.werror = werror;
  options.disabled.insert(disabled.begin(), disabled.end());
  options.only.insert(only.begin(), only.end());
  options.max_per_rule = max_per_rule;
  return options;
}

void AddRuleOptions(CLI::App& command, RuleSelection& selection) {
  auto known_rule = [](const std::string& id) {
    return FindRule(id) ? std::string() : "unknown rule '" + id + "' (see pcfg check --list)";
  };
  command.add_flag("--werror", selection.werror, "treat warnings as errors");
  command
      .add_option("--disable", selection.disabled, "rules to skip (comma-separated; see pcfg check --list)")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(known_rule);
  command.add_option("--only", selection.only, "run just these rules (comma-separated)")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->check(known_rule);
  command
      .add_option("--max-diagnostics", selection.max_per_rule,
                  "show at most N findings of each rule, then how many more there are (0: all; default 100)")
      ->check(CLI::Validator(
          [](std::string& value) -> std::string {
            // Only digits: "-1" would otherwise wrap round to "all", and a huge number overflow.
            if (!value.empty() && value.size() <= 9 &&
                value.find_first_not_of("0123456789") == std::string::npos)
              return "";
            return "expected a whole number from 0 (all) to 999999999, not '" + value + "'";
          },
          "N"))
      ->option_text("N");
}

void AddForceOption(CLI::App& command, OutputPolicy& policy) {
  command.add_flag("--force", policy.replace_read_only, "replace an output file even when it is read-only");
}

namespace {

bool Reported(const std::string& path, bool written, const std::string& error) {
  if (!written)
    std::cerr << (path == "-" ? "<stdout>" : path) << ": error: " << error
              << (error.find("cut short") == std::string::npos ? " (nothing written)" : "") << "\n";
  return written;
}

}  // namespace

bool WriteOrReport(const std::string& path, std::string_view bytes, const OutputPolicy& policy) {
  std::string error;
  return Reported(path, WriteOutput(path, bytes, policy, &error), error);
}

bool WriteConfigOrReport(const std::string& path, const Config& config, Format format,
                         const OutputPolicy& policy) {
  std::string error;
  const bool written = WriteOutput(
      path,
      [&](google::protobuf::io::ZeroCopyOutputStream* out, std::string* reason) {
        return PrintConfig(config, format, out, reason);
      },
      policy, &error);
  return Reported(path, written, error);
}

bool SettleUnknownFields(LoadedConfig& loaded, bool drop) {
  std::vector<Diagnostic> unknown = FindUnknownFields(loaded);
  if (unknown.empty()) return true;
  for (Diagnostic& d : unknown) {
    if (d.severity == Severity::kNote) continue;
    d.severity = drop ? Severity::kWarning : Severity::kError;
    d.message += drop ? " (left out: --drop-unknown)"
                      : " (neither text nor JSON can carry them back; --drop-unknown leaves them out)";
  }
  PrintDiagnostics(std::cerr, unknown);
  if (!drop) return false;
  loaded.config.DiscardUnknownFields();
  return true;
}

void AddDropUnknownOption(CLI::App& command, bool& drop) {
  command.add_flag("--drop-unknown", drop, "leave out fields the schema does not know, instead of refusing");
}

}  // namespace pcfg::cli
