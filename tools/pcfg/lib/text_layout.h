// pcfg fmt's layout of a text configuration as its author wrote it: fields in the order written,
// every comment at its place, enumeration names and numbers as written, blank lines between
// groups (a run of them kept as one); two-space indents, ':' after scalar field names only,
// '{ }' for messages (a message written on one line stays on one line while it fits), lists of
// scalars as [a, b] on one line up to the width, then wrapped with an aligned continuation.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "syntax_tree.h"

namespace pcfg {

constexpr size_t kLayoutWidth = 100;

// TREE's text laid out; TREE must have no errors. The proto-file / proto-message header comes
// first, added when the text does not start with it. ROOT_LINES, when given, receives where the
// line of each field of the root starts in the result, in the order of the root's fields.
std::string LayOutText(const syntax::SyntaxTree& tree, std::vector<size_t>* root_lines = nullptr);

// Whether TREE's text opens with a proto-file / proto-message header line, which LayOutText
// then keeps rather than adds.
bool TextStartsWithHeader(const syntax::SyntaxTree& tree);

// The comments of TREE, or of TEXT, in order, each without trailing blanks, header lines included.
std::vector<std::string> CommentsOf(const syntax::SyntaxTree& tree);
std::vector<std::string> CommentsOf(std::string_view text);

// A replacement of whole lines of a source: lines [first_line, first_line + line_count), 1-based,
// become TEXT (complete lines). A line_count of 0 inserts TEXT before first_line.
struct LineEdit {
  int first_line = 1;
  int line_count = 0;
  std::string text;
};

// The edits that turn SOURCE into LAID_OUT (its LayOutText), keeping only those that touch lines
// FIRST to LAST (1-based, inclusive) of SOURCE: range formatting, as editors ask for it. Each edit
// is one stretch of changed lines between unchanged ones; a stretch is taken whole or not at all.
std::vector<LineEdit> LayoutEditsWithin(std::string_view source, const std::string& laid_out, int first,
                                        int last);

// SOURCE with EDITS (in order, not overlapping) made.
std::string ApplyLineEdits(std::string_view source, const std::vector<LineEdit>& edits);

// A unified diff (three lines of context) that turns BEFORE into AFTER, with NAME in its header;
// empty when they are equal.
std::string UnifiedDiff(const std::string& name, const std::string& before, const std::string& after);

}  // namespace pcfg
