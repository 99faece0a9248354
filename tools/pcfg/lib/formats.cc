#include "formats.h"

#include <algorithm>
#include <cctype>

namespace pcfg {

const char kTextHeader[] =
    "# proto-file: peripheralconfig/proto/peripheral.config.proto\n"
    "# proto-message: Talvo.Peripherals.Config.Models.PeripheralConfig\n";

const char* FormatName(Format format) {
  switch (format) {
    case Format::kText:
      return "text";
    case Format::kJson:
      return "json";
    case Format::kBinary:
      return "binary";
  }
  return "binary";
}

std::optional<Format> ParseFormatName(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  if (lower == "text" || lower == "txtpb" || lower == "textproto" || lower == "pbtxt") return Format::kText;
  if (lower == "json") return Format::kJson;
  if (lower == "binary" || lower == "binpb" || lower == "pb" || lower == "wire") return Format::kBinary;
  return std::nullopt;
}

Format FormatForPath(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return Format::kBinary;
  const std::string extension = path.substr(dot + 1);
  if (extension == "txtpb" || extension == "textproto" || extension == "pbtxt") return Format::kText;
  if (extension == "json") return Format::kJson;
  return Format::kBinary;
}

}  // namespace pcfg
