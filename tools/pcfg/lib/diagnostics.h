// Diagnostics of loading and checking: what, where (file, line, column, field path), how bad,
// and under which rule; printed as compiler-style lines or as JSON.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace pcfg {

// A note informs (a rule skipped, diagnostics left out) and never fails a run.
enum class Severity { kNote, kWarning, kError };

const char* SeverityName(Severity severity);

struct Diagnostic {
  std::string file;
  int line = 0;          // 1-based; 0 when unknown
  int column = 0;        // 1-based; 0 when unknown
  int end_line = 0;      // text: where what the finding is about ends; 0 when unknown
  int end_column = 0;    // 1-based, just past the end
  int byte_offset = -1;  // binary input: where the field's record starts; -1 when unknown
  int byte_length = 0;
  int text_offset = -1;  // text input: the bytes what the finding is about spans; -1 when unknown
  int text_length = 0;
  Severity severity = Severity::kError;
  std::string rule;  // empty for load errors
  std::string path;  // field path, may be empty
  std::string message;
  // Silenced by a '# pcfg: ignore' comment: not printed as a line, not counted, and reported in
  // SARIF as a suppression with the comment's reason.
  bool suppressed = false;
  std::string justification;
};

// FILE:LINE:COL: error: PATH: MESSAGE [RULE], on one line: control characters in ids and names
// are written as the text format escapes them.
std::string FormatDiagnostic(const Diagnostic& diagnostic);

// TEXT with its control characters escaped as the text format writes them (\n, \t, \r, \033),
// so that printing it for people cannot break lines or drive the terminal.
std::string EscapeControlCharacters(const std::string& text);

// Diagnostics written one at a time as they come, so that a run with millions of findings never
// holds them all; Finish closes what the form needs closed (a JSON array, a SARIF log).
class DiagnosticWriter {
 public:
  virtual ~DiagnosticWriter() = default;
  virtual void Write(const Diagnostic& diagnostic) = 0;
  virtual void Finish() = 0;
};

// One compiler-style line each.
std::unique_ptr<DiagnosticWriter> MakeTextDiagnosticWriter(std::ostream& out);
// A JSON array of objects with file, line, column, byte_offset, severity, rule, path and message.
std::unique_ptr<DiagnosticWriter> MakeJsonDiagnosticWriter(std::ostream& out);

void PrintDiagnostics(std::ostream& out, const std::vector<Diagnostic>& diagnostics);
void PrintDiagnosticsJson(std::ostream& out, const std::vector<Diagnostic>& diagnostics);

int CountSeverity(const std::vector<Diagnostic>& diagnostics, Severity severity);

}  // namespace pcfg
