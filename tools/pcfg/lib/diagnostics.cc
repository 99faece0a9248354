#include "diagnostics.h"

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
  return EscapeControlCharacters(text);
}

void PrintDiagnostics(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  for (const Diagnostic& d : diagnostics) out << FormatDiagnostic(d) << '\n';
}

void PrintDiagnosticsJson(std::ostream& out, const std::vector<Diagnostic>& diagnostics) {
  Json array = Json::array();
  for (const Diagnostic& d : diagnostics) {
    array.push_back({{"file", d.file},
                     {"line", d.line},
                     {"column", d.column},
                     {"byte_offset", d.byte_offset >= 0 ? Json(d.byte_offset) : Json(nullptr)},
                     {"severity", SeverityName(d.severity)},
                     {"rule", d.rule},
                     {"path", d.path},
                     {"message", d.message}});
  }
  PrintJson(out, array);
}

int CountSeverity(const std::vector<Diagnostic>& diagnostics, Severity severity) {
  int count = 0;
  for (const Diagnostic& d : diagnostics) count += d.severity == severity;
  return count;
}

}  // namespace pcfg
