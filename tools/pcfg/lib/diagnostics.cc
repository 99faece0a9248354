#include "diagnostics.h"

#include <algorithm>
#include <ostream>

#include "json_output.h"

namespace pcfg {

const char* SeverityName(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kWarning:
      return "warning";
    case Severity::kError:
      return "error";
  }
  return "error";
}

std::string EscapeControlCharacters(const std::string& text) {
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  if (std::none_of(text.begin(), text.end(), is_control)) return text;
  std::string escaped;
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      escaped += c;
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\r') {
      escaped += "\\r";
    } else if (c == '\t') {
      escaped += "\\t";
    } else {
      escaped += {'\\', static_cast<char>('0' + (byte >> 6)), static_cast<char>('0' + (byte >> 3 & 7)),
                  static_cast<char>('0' + (byte & 7))};
    }
  }
  return escaped;
}

std::string FormatDiagnostic(const Diagnostic& d) {
  std::string text = d.file;
  if (d.line > 0) {
    text += ":" + std::to_string(d.line);
    if (d.column > 0) text += ":" + std::to_string(d.column);
  }
  text += std::string(": ") + SeverityName(d.severity) + ": ";
  if (!d.path.empty()) text += d.path + ": ";
  text += d.message;
  if (!d.rule.empty()) text += " [" + d.rule + "]";
  const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  return std::none_of(text.begin(), text.end(), is_control) ? text : EscapeControlCharacters(text);
}

namespace {

class TextWriter : public DiagnosticWriter {
 public:
  explicit TextWriter(std::ostream& out) : out_(out) {}
  void Write(const Diagnostic& d) override {
    if (!d.suppressed) out_ << FormatDiagnostic(d) << '\n';
  }
  void Finish() override {}

 private:
  std::ostream& out_;
};

class JsonWriter : public DiagnosticWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out), array_(out, 0) {}
  void Write(const Diagnostic& d) override {
    Json entry = {{"file", d.file},
                  {"line", d.line},
                  {"column", d.column},
                  {"end_line", d.end_line},
                  {"end_column", d.end_column},
                  {"byte_offset", d.byte_offset >= 0 ? Json(d.byte_offset) : Json(nullptr)},
                  {"severity", SeverityName(d.severity)},
                  {"rule", d.rule},
                  {"path", d.path},
                  {"message", d.message}};
    if (d.suppressed) {
      entry["suppressed"] = true;
      entry["justification"] = d.justification;
    }
    array_.Add(entry);
  }
  void Finish() override {
    array_.Close();
    out_ << '\n';
  }

 private:
  std::ostream& out_;
  JsonArrayWriter array_;
};

void PrintAll(DiagnosticWriter& writer, const std::vector<Diagnostic>& diagnostics) {
  for (const Diagnostic& d : diagnostics) writer.Write(d);
  writer.Finish();
}

}  // namespace

std::unique_ptr<DiagnosticWriter> MakeTextDiagnosticWriter(std::ostream& out) {
  return std::make_unique<TextWriter>(out);
}

std::unique_ptr<DiagnosticWriter> MakeJsonDiagnosticWriter(std::ostream& out) {
  return std::make_unique<JsonWriter>(out);
}

void PrintDiagnostics(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  PrintAll(*MakeTextDiagnosticWriter(out), diagnostics);
}

void PrintDiagnosticsJson(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  PrintAll(*MakeJsonDiagnosticWriter(out), diagnostics);
}

int CountSeverity(const std::vector<Diagnostic>& diagnostics, Severity severity) {
  int count = 0;
  for (const Diagnostic& d : diagnostics) count += d.severity == severity && !d.suppressed;
  return count;
}

}  // namespace pcfg
