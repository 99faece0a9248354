// Reads a configuration in any of its forms, with protobuf's own parsers, and keeps what is
// needed to point diagnostics at lines and columns of text input.
#pragma once

#include <google/protobuf/text_format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "field_path.h"
#include "formats.h"
#include "peripheral.config.pb.h"

namespace pcfg {

using Config = Talvo::Peripherals::Config::Models::PeripheralConfig;

struct LoadedConfig {
  std::string file;  // as named on the command line; "<stdin>" for "-"
  Format format = Format::kBinary;
  std::string raw;  // the bytes read
  Config config;
  // Where each field of text input stands; null for other formats.
  std::unique_ptr<google::protobuf::TextFormat::ParseInfoTree> locations;

  struct Location {
    int line = 0;
    int column = 0;
  };
  // The 1-based position of the deepest field on the path that text input located.
  Location Locate(const FieldPath& path) const;
};

// Reads PATH ("-" for standard input) as FORMAT, or as its extension says (standard input,
// having none, as STDIN_FORMAT). On failure returns false and adds diagnostics naming the
// file (and for text or JSON the line and column).
bool LoadConfig(const std::string& path, std::optional<Format> format, LoadedConfig* loaded,
                std::vector<Diagnostic>* diagnostics, Format stdin_format = Format::kBinary);

// Parses bytes already in memory (used by LoadConfig and by the fuzzers).
bool ParseConfig(const std::string& display_name, Format format, std::string raw, LoadedConfig* loaded,
                 std::vector<Diagnostic>* diagnostics);

// Reads a whole file, or standard input for "-".
bool ReadInput(const std::string& path, std::string* content, std::string* error);

}  // namespace pcfg
