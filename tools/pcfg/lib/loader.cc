#include "loader.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "walk.h"

namespace pcfg {
namespace {

namespace gp = google::protobuf;

// Turns the text parser's reports into diagnostics.
class TextErrorCollector : public gp::io::ErrorCollector {
 public:
  TextErrorCollector(const std::string& file, std::vector<Diagnostic>* diagnostics)
      : file_(file), diagnostics_(diagnostics) {}

  void AddError(int line, gp::io::ColumnNumber column, const std::string& message) override {
    Add(Severity::kError, line, column, message);
  }
  void AddWarning(int line, gp::io::ColumnNumber column, const std::string& message) override {
    Add(Severity::kWarning, line, column, message);
  }

 private:
  void Add(Severity severity, int line, int column, const std::string& message) {
    Diagnostic d;
    d.file = file_;
    d.line = line >= 0 ? line + 1 : 0;
    d.column = column >= 0 ? column + 1 : 0;
    d.severity = severity;
    d.message = message;
    diagnostics_->push_back(d);
  }
  std::string file_;
  std::vector<Diagnostic>* diagnostics_;
};

// Holds what the protobuf runtime logs while parsing (it names fields with invalid UTF-8).
class RuntimeLog {
 public:
  RuntimeLog() {
    Messages().clear();
    previous_ = gp::SetLogHandler(&RuntimeLog::Handle);
  }
  ~RuntimeLog() { gp::SetLogHandler(previous_); }
  RuntimeLog(const RuntimeLog&) = delete;
  RuntimeLog& operator=(const RuntimeLog&) = delete;

  // The full name of the first field that a UTF-8 complaint names, if any.
  std::string InvalidUtf8Field() const {
    for (const std::string& message : Messages()) {
      if (message.find("UTF-8") == std::string::npos) continue;
      const size_t open = message.find('\'');
      const size_t close = open == std::string::npos ? open : message.find('\'', open + 1);
      if (close != std::string::npos) return message.substr(open + 1, close - open - 1);
      return "a string field";
    }
    return "";
  }

 private:
  static std::vector<std::string>& Messages() {
    static std::vector<std::string> messages;
    return messages;
  }
  static void Handle(gp::LogLevel, const char*, int, const std::string& message) {
    Messages().push_back(message);
  }
  gp::LogHandler* previous_;
};

Diagnostic LoadError(const std::string& file, const std::string& message, int line = 0, int column = 0) {
  Diagnostic d;
  d.file = file;
  d.line = line;
  d.column = column;
  d.severity = Severity::kError;
  d.message = message;
  return d;
}

bool ParseText(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics) {
  TextErrorCollector collector(loaded->file, diagnostics);
  loaded->locations.reset(new gp::TextFormat::ParseInfoTree);
  gp::TextFormat::Parser parser;
  parser.RecordErrorsTo(&collector);
  parser.WriteLocationsTo(loaded->locations.get());
  RuntimeLog log;
  const bool ok = parser.ParseFromString(loaded->raw, &loaded->config);
  if (!ok && CountSeverity(*diagnostics, Severity::kError) == 0) {
    const std::string field = log.InvalidUtf8Field();
    diagnostics->push_back(LoadError(loaded->file, field.empty()
                                                       ? "cannot parse the text format"
                                                       : "string field '" + field + "' holds invalid UTF-8"));
  }
  return ok;
}

// Line and column (1-based) of a byte offset.
std::pair<int, int> PositionOf(const std::string& text, size_t offset) {
  int line = 1, column = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return {line, column};
}

bool ParseJson(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics) {
  // protobuf's JSON parser reports no positions; a syntax check first finds the spot.
  try {
    [[maybe_unused]] const nlohmann::json syntax = nlohmann::json::parse(loaded->raw);
  } catch (const nlohmann::json::parse_error& error) {
    const auto position = PositionOf(loaded->raw, error.byte > 0 ? error.byte - 1 : 0);
    std::string message = error.what();
    const size_t detail = message.find("syntax error");
    diagnostics->push_back(
        LoadError(loaded->file, "invalid JSON: " + message.substr(detail == std::string::npos ? 0 : detail),
                  position.first, position.second));
    return false;
  }
  gp::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  RuntimeLog log;
  const auto status = gp::util::JsonStringToMessage(loaded->raw, &loaded->config, options);
  if (!status.ok()) {
    std::string message = status.ToString();
    const size_t colon = message.find(':');
    if (message.rfind("INVALID_ARGUMENT", 0) == 0 && colon != std::string::npos)
      message = message.substr(colon + 1);
    diagnostics->push_back(LoadError(loaded->file, "not a PeripheralConfig in the JSON mapping: " + message));
    return false;
  }
  return true;
}

bool ParseBinary(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics) {
  RuntimeLog log;
  if (loaded->config.ParseFromString(loaded->raw)) return true;
  std::string message =
      "cannot parse the " + std::to_string(loaded->raw.size()) + " bytes read as a binary PeripheralConfig";
  const std::string field = log.InvalidUtf8Field();
  if (!field.empty())
    message += ": string field '" + field + "' holds invalid UTF-8";
  else
    message += " (truncated or malformed wire data)";
  diagnostics->push_back(LoadError(loaded->file, message));
  return false;
}

// Whether TEXT is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF),
// as the wire format requires of every string field.
bool IsValidUtf8(const std::string& text) {
  size_t i = 0;
  while (i < text.size()) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    int length;
    unsigned min;
    unsigned code;
    if ((lead & 0xE0) == 0xC0) {
      length = 2, min = 0x80, code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, min = 0x800, code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, min = 0x10000, code = lead & 0x07;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (int k = 1; k < length; ++k) {
      const unsigned char next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = code << 6 | (next & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

// Text and JSON parsers accept strings that the wire format rejects; refuse them here, so that
// nothing compiled from them fails to parse on the device.
bool CheckStringsAreUtf8(const LoadedConfig& loaded, std::vector<Diagnostic>* diagnostics) {
  bool ok = true;
  WalkMessages(loaded.config, FieldPath(),
               [&](const gp::Message& message, const FieldPath& path,
                   const std::vector<const gp::FieldDescriptor*>& fields) {
                 const gp::Reflection* reflection = message.GetReflection();
                 for (const gp::FieldDescriptor* field : fields) {
                   if (field->type() != gp::FieldDescriptor::TYPE_STRING) continue;
                   const int count = field->is_repeated() ? reflection->FieldSize(message, field) : 1;
                   for (int i = 0; i < count; ++i) {
                     const std::string value = field->is_repeated()
                                                   ? reflection->GetRepeatedString(message, field, i)
                                                   : reflection->GetString(message, field);
                     if (IsValidUtf8(value)) continue;
                     const FieldPath where =
                         field->is_repeated() ? path.Element(field->name(), i) : path.Field(field->name());
                     const LoadedConfig::Location location = loaded.Locate(where);
                     Diagnostic d = LoadError(loaded.file,
                                              "string field '" + field->full_name() + "' holds invalid UTF-8",
                                              location.line, location.column);
                     d.path = where.ToString();
                     diagnostics->push_back(d);
                     ok = false;
                   }
                 }
               });
  return ok;
}

}  // namespace

LoadedConfig::Location LoadedConfig::Locate(const FieldPath& path) const {
  Location best;
  const gp::TextFormat::ParseInfoTree* tree = locations.get();
  const gp::Descriptor* type = Config::descriptor();
  for (const PathStep& step : path.steps()) {
    if (tree == nullptr || type == nullptr) break;
    const gp::FieldDescriptor* field = type->FindFieldByName(step.field);
    if (field == nullptr || field->is_repeated() != (step.index >= 0)) break;
    const gp::TextFormat::ParseLocation location = tree->GetLocation(field, step.index);
    if (location.line < 0) break;
    best = {location.line + 1, location.column + 1};
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) break;
    tree = tree->GetTreeForNested(field, step.index);
    type = field->message_type();
  }
  return best;
}

bool ReadInput(const std::string& path, std::string* content, std::string* error) {
  if (path == "-") {
    std::ostringstream buffer;
    buffer << std::cin.rdbuf();
    *content = buffer.str();
    return true;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  content->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (in.bad()) {
    *error = std::string("cannot read: ") + std::strerror(errno);
    return false;
  }
  return true;
}

bool ParseConfig(const std::string& display_name, Format format, std::string raw, LoadedConfig* loaded,
                 std::vector<Diagnostic>* diagnostics) {
  loaded->file = display_name;
  loaded->format = format;
  loaded->raw = std::move(raw);
  loaded->config.Clear();
  loaded->locations.reset();
  switch (format) {
    case Format::kText:
      return ParseText(loaded, diagnostics) && CheckStringsAreUtf8(*loaded, diagnostics);
    case Format::kJson:
      return ParseJson(loaded, diagnostics) && CheckStringsAreUtf8(*loaded, diagnostics);
    case Format::kBinary:
      return ParseBinary(loaded, diagnostics);
  }
  return false;
}

bool LoadConfig(const std::string& path, std::optional<Format> format, LoadedConfig* loaded,
                std::vector<Diagnostic>* diagnostics, Format stdin_format) {
  const std::string display_name = path == "-" ? "<stdin>" : path;
  std::string raw, error;
  if (!ReadInput(path, &raw, &error)) {
    diagnostics->push_back(LoadError(display_name, error));
    return false;
  }
  const Format chosen = format ? *format : (path == "-" ? stdin_format : FormatForPath(path));
  return ParseConfig(display_name, chosen, std::move(raw), loaded, diagnostics);
}

}  // namespace pcfg
