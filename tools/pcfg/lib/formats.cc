#include "formats.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <initializer_list>

namespace pcfg {

const char kTextHeader[] =
    "# proto-file: peripheralconfig/proto/peripheral.config.proto\n"
    "# proto-message: Talvo.Peripherals.Config.Models.PeripheralConfig\n";

namespace {

struct FormatRow {
  Format format;
  const char* name;
  std::initializer_list<const char*> aliases;
  std::initializer_list<const char*> extensions;  // the first is the one written
};

const FormatRow kFormats[] = {
    {Format::kText,
     "text",
     {"txtpb", "textproto", "pbtxt", "txtproto"},
     {".txtpb", ".textproto", ".pbtxt", ".txtproto"}},
    {Format::kJson, "json", {}, {".json"}},
    {Format::kBinary, "binary", {"binpb", "pb", "wire"}, {".binpb", ".pb"}},
};

struct DrawingRow {
  Drawing drawing;
  const char* name;
  const char* extension;
};

const DrawingRow kDrawings[] = {
    {Drawing::kDot, "dot", ".dot"},
    {Drawing::kSvg, "svg", ".svg"},
    {Drawing::kPng, "png", ".png"},
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

std::string ExtensionOf(const std::string& path) {
  return Lower(std::filesystem::path(path).extension().string());
}

const FormatRow& RowOf(Format format) {
  for (const FormatRow& row : kFormats)
    if (row.format == format) return row;
  return kFormats[2];
}

}  // namespace

const char* FormatName(Format format) { return RowOf(format).name; }

const std::map<std::string, Format>& FormatNames() {
  static const std::map<std::string, Format> names = [] {
    std::map<std::string, Format> map;
    for (const FormatRow& row : kFormats) {
      map.emplace(row.name, row.format);
      for (const char* alias : row.aliases) map.emplace(alias, row.format);
    }
    return map;
  }();
  return names;
}

std::optional<Format> ParseFormatName(const std::string& name) {
  auto found = FormatNames().find(Lower(name));
  if (found == FormatNames().end()) return std::nullopt;
  return found->second;
}

Format FormatForPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  for (const FormatRow& row : kFormats)
    for (const char* known : row.extensions)
      if (extension == known) return row.format;
  return Format::kBinary;
}

bool ExtensionNamesAForm(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  for (const FormatRow& row : kFormats)
    for (const char* known : row.extensions)
      if (extension == known) return true;
  return false;
}

std::string PathWithFormat(const std::string& path, Format format) {
  return std::filesystem::path(path).replace_extension(*RowOf(format).extensions.begin()).string();
}

const char* DrawingName(Drawing drawing) {
  for (const DrawingRow& row : kDrawings)
    if (row.drawing == drawing) return row.name;
  return "dot";
}

Drawing DrawingForPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  for (const DrawingRow& row : kDrawings)
    if (extension == row.extension) return row.drawing;
  return Drawing::kDot;
}

}  // namespace pcfg
