// pcfg check's findings as SARIF 2.1.0, which code-review systems show on the lines they name:
// one run whose driver lists every rule, one result per finding, with a physical location (the
// file relative to the working folder, line and column) and, where it has one, the field path
// as a logical location, which is all binary input can point at.
#pragma once

#include <iosfwd>
#include <memory>
#include <vector>

#include "diagnostics.h"

namespace pcfg {

// A SARIF 2.1.0 log of one run, written as the diagnostics come.
std::unique_ptr<DiagnosticWriter> MakeSarifDiagnosticWriter(std::ostream& out);

void PrintDiagnosticsSarif(std::ostream& out, const std::vector<Diagnostic>& diagnostics);

}  // namespace pcfg
