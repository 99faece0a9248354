#include "text_formatting.h"

#include <cstddef>

#include "formats.h"
#include "loader.h"
#include "syntax_tree.h"
#include "text_layout.h"

namespace pcfg {

TextLayoutResult LayOutAndReparse(const std::string& file, const std::string& raw, int first_line,
                                  int last_line) {
  TextLayoutResult layout;
  const syntax::SyntaxTree tree(raw);
  if (tree.has_errors()) {
    layout.tree_errors = true;
    return layout;
  }
  layout.formatted = LayOutText(tree);
  if (first_line > 0)
    layout.formatted = ApplyLineEdits(raw, LayoutEditsWithin(raw, layout.formatted, first_line, last_line));
  LoadedConfig again;
  std::vector<Diagnostic> diagnostics;
  layout.formatted_parsed = ParseConfig(file, Format::kText, layout.formatted, &again, &diagnostics) &&
                            again.config.SerializeToString(&layout.formatted_wire);
  layout.kept_comments = CommentsOf(layout.formatted);
  layout.written_comments = CommentsOf(tree);
  for (const syntax::Token& token : tree.tokens())
    if (token.kind == syntax::TokenKind::kComment)
      layout.written_comment_lines.push_back(tree.Position(token.begin).line);
  // A header the layout added is not a comment of the author's.
  const std::string_view header(kTextHeader);
  if (!TextStartsWithHeader(tree) && layout.formatted.compare(0, header.size(), header) == 0)
    layout.kept_comments.erase(
        layout.kept_comments.begin(),
        layout.kept_comments.begin() + static_cast<std::ptrdiff_t>(CommentsOf(header).size()));
  return layout;
}

LayoutFault CheckLayoutFaithful(const Config& config, const TextLayoutResult& layout, int* line,
                                std::string* why) {
  *line = 0;
  if (layout.tree_errors) {
    *why = "cannot lay this text out as written";
    return LayoutFault::kUnreadable;
  }
  std::string before;
  if (!layout.formatted_parsed || !config.SerializeToString(&before) || before != layout.formatted_wire) {
    *why = "laying it out would change what it means";
    return LayoutFault::kMeaning;
  }
  const std::vector<std::string>& kept = layout.kept_comments;
  const std::vector<std::string>& written = layout.written_comments;
  if (kept != written) {
    size_t first = 0;
    while (first < kept.size() && first < written.size() && kept[first] == written[first]) ++first;
    *line = first < layout.written_comment_lines.size() ? layout.written_comment_lines[first] : 0;
    *why = "has a comment that cannot keep its place (inside a value, or between a name and its value)";
    return LayoutFault::kComment;
  }
  return LayoutFault::kNone;
}

}  // namespace pcfg
