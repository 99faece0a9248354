// pcfg check's findings as SARIF 2.1.0, which code-review systems show on the lines they name:
// one run whose driver lists every rule, one result per finding, with a physical location (the
// file relative to the working folder, line and column) and, where it has one, the field path
// as a logical location, which is all binary input can point at.
#pragma once

#include <iosfwd>
#include <vector>

#include "diagnostics.h"

namespace pcfg {

void PrintDiagnosticsSarif(std::ostream& out, const std::vector<Diagnostic>& diagnostics);

}  // namespace pcfg
