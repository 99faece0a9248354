#include "canonical_text.h"

#include <algorithm>

#include "serialize.h"

namespace pcfg {
namespace {

// "# proto-file: ..." and "# proto-message: ...", which the canonical form writes itself.
bool IsHeaderComment(const std::string& comment) {
  const size_t start = comment.find_first_not_of("# \t");
  if (start == std::string::npos) return false;
  return comment.compare(start, 11, "proto-file:") == 0 || comment.compare(start, 14, "proto-message:") == 0;
}

}  // namespace

std::string CanonicalText(const Config& config) {
  std::string text, error;
  SerializeConfig(config, Format::kText, &text, &error);  // the text printer cannot fail
  return text;
}

std::optional<TextComment> FindComment(const std::string& text) {
  // The text format has no multi-line strings and no '#' outside strings and comments, so a
  // scan that follows quotes and backslash escapes within a line finds every comment. Header
  // lines count as the header only in the run of whole-line comments that opens the file.
  int line = 1;
  size_t line_start = 0;
  char quote = 0;
  bool in_header = true;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\n') {
      ++line;
      line_start = i + 1;
      quote = 0;
    } else if (quote != 0) {
      if (c == '\\' && i + 1 < text.size() && text[i + 1] != '\n')
        ++i;
      else if (c == quote)
        quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
      in_header = false;
    } else if (c == '#') {
      const size_t end = std::min(text.find('\n', i), text.size());
      std::string comment = text.substr(i, end - i);
      if (!(in_header && i == line_start && IsHeaderComment(comment)))
        return TextComment{line, static_cast<int>(i - line_start) + 1, std::move(comment)};
      i = end - 1;  // the newline comes next
    } else if (c != ' ' && c != '\t' && c != '\r') {
      in_header = false;
    }
  }
  return std::nullopt;
}

}  // namespace pcfg
