// Laying out a text configuration as written, and the proof that the layout is safe to use: the
// result must mean what the text means, byte for byte on the wire, and hold the same comments in
// the same order. pcfg fmt and the language server's formatting both go through here.
#pragma once

#include <string>
#include <vector>

#include "config.h"

namespace pcfg {

// A text laid out (whole, or only what touches some lines), with what is needed to check it: the
// layout's own parse and comments, and the comments of the text as written.
struct TextLayoutResult {
  bool tree_errors = false;  // the text could not be read as written; nothing laid out
  std::string formatted;
  bool formatted_parsed = false;
  std::string formatted_wire;
  std::vector<std::string> written_comments, kept_comments;
  std::vector<int> written_comment_lines;
};

// Lays RAW out; with FIRST_LINE > 0, only the pieces that touch lines FIRST_LINE to LAST_LINE.
// Needs no parse of RAW, so that it can run beside one.
TextLayoutResult LayOutAndReparse(const std::string& file, const std::string& raw, int first_line = 0,
                                  int last_line = 0);

enum class LayoutFault { kNone, kUnreadable, kMeaning, kComment };

// Whether LAYOUT may stand for the text that CONFIG was parsed from: kNone when it may. Otherwise
// sets *LINE (0 when no line is to blame) and *WHY.
LayoutFault CheckLayoutFaithful(const Config& config, const TextLayoutResult& layout, int* line,
                                std::string* why);

}  // namespace pcfg
