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
// first, added when the text does not start with it.
std::string LayOutText(const syntax::SyntaxTree& tree);

// Whether TREE's text opens with a proto-file / proto-message header line, which LayOutText
// then keeps rather than adds.
bool TextStartsWithHeader(const syntax::SyntaxTree& tree);

// The comments of TREE, or of TEXT, in order, each without trailing blanks, header lines included.
std::vector<std::string> CommentsOf(const syntax::SyntaxTree& tree);
std::vector<std::string> CommentsOf(std::string_view text);

// A unified diff (three lines of context) that turns BEFORE into AFTER, with NAME in its header;
// empty when they are equal.
std::string UnifiedDiff(const std::string& name, const std::string& before, const std::string& after);

}  // namespace pcfg
