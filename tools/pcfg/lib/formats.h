// The three forms a configuration takes on disk: protobuf text format, the protobuf JSON
// mapping and the binary wire format.
#pragma once

#include <optional>
#include <string>

namespace pcfg {

enum class Format { kText, kJson, kBinary };

const char* FormatName(Format format);
// "text", "json" or "binary" (also "txtpb", "pb" and the like); nullopt for anything else.
std::optional<Format> ParseFormatName(const std::string& name);
// By extension: .txtpb .textproto .pbtxt are text, .json is JSON, anything else binary.
Format FormatForPath(const std::string& path);

// The header lines that name the schema file and message of a text configuration.
extern const char kTextHeader[];

}  // namespace pcfg
