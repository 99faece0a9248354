// The forms a configuration takes on disk (protobuf text format, the protobuf JSON mapping and
// the binary wire format) and the forms pcfg draws a topology in. One table each says how a
// form is named, which aliases name it too and which file extensions mean it; everything that
// turns a name or a path into a form asks these tables.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace pcfg {

enum class Format { kText, kJson, kBinary };

const char* FormatName(Format format);
// A name or alias ("text", "txtpb", "JSON", "wire", ...), without case; nullopt otherwise.
std::optional<Format> ParseFormatName(const std::string& name);
// Every name and alias with its form, lower case: what command-line options accept.
const std::map<std::string, Format>& FormatNames();
// By extension, without case: .txtpb .textproto .pbtxt .txtproto are text, .json is JSON, and
// anything else (.binpb, .pb, none) binary.
Format FormatForPath(const std::string& path);
// Whether PATH's extension is one of a form's (FormatForPath reads any other as binary).
bool ExtensionNamesAForm(const std::string& path);
// PATH with its extension replaced by the one a form is written with (.binpb, .txtpb, .json).
std::string PathWithFormat(const std::string& path, Format format);

// What pcfg graph writes: Graphviz's own language, or an image that dot(1) renders.
enum class Drawing { kDot, kSvg, kPng };
const char* DrawingName(Drawing drawing);
// By extension, without case: .svg and .png are images; anything else is DOT.
Drawing DrawingForPath(const std::string& path);

// The header lines that name the schema file and message of a text configuration.
extern const char kTextHeader[];

}  // namespace pcfg
