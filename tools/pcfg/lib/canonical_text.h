// The canonical text form of a configuration, which pcfg fmt writes, and the comments that
// rewriting a file into it would lose.
#pragma once

#include <optional>
#include <string>

#include "config.h"

namespace pcfg {

// The proto-file / proto-message header, then the text printer's output: fields in field-number
// order, enumerations by canonical name. Formatting its own output changes nothing.
std::string CanonicalText(const Config& config);

struct TextComment {
  int line = 0;      // 1-based
  int column = 0;    // 1-based
  std::string text;  // from '#' to the end of the line
};

// The first comment of TEXT, a configuration in the text format, other than the proto-file and
// proto-message header lines at its top; a '#' inside a quoted string is no comment.
std::optional<TextComment> FindComment(const std::string& text);

}  // namespace pcfg
