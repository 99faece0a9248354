// What the server offers to fix: the nearest id or enumeration name for one that names nothing,
// the header lines, the system_options entry a system type lacks, and a suppression comment.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "analysis.h"

namespace pcfg::lsp {

struct TextFix {
  std::string title;
  uint32_t begin = 0, end = 0;  // the bytes replaced
  std::string text;
  bool preferred = false;
};

// The fixes for a finding CODE (a rule, or empty for the parser's) with MESSAGE on bytes
// [BEGIN, END).
std::vector<TextFix> FixesFor(const Analysis& analysis, uint32_t begin, uint32_t end, const std::string& code,
                              const std::string& message);

// Fixes for the document as a whole: its header, when it has none.
std::vector<TextFix> DocumentFixes(const Analysis& analysis);

// Levenshtein distance of A and B, or LIMIT + 1 as soon as it exceeds LIMIT.
size_t EditDistance(std::string_view a, std::string_view b, size_t limit);

}  // namespace pcfg::lsp
