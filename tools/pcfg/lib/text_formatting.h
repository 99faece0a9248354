// Laying out a text configuration as written, and the proof that the layout is safe to use: the
// result must mean what the text means, and hold the same comments in the same order. pcfg fmt
// and the language server's formatting both go through here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config.h"
#include "syntax_tree.h"

namespace pcfg {

// A text laid out (whole, or only what touches some lines), with what is needed to check it.
struct TextLayoutResult {
  bool tree_errors = false;  // the text could not be read as written; nothing laid out
  std::string formatted;
  // Protobuf's tokenizer reads the same tokens in both texts, but for separators that mean
  // nothing where they stand: the two parse to the same message, whatever it is. Stretches of
  // the same bytes are taken to read alike untokenized: this holds for text protobuf's parser
  // takes, the only text whose layout is used.
  bool same_tokens = false;
  // Otherwise the layout was parsed on its own, and its wire bytes are here to compare.
  bool formatted_parsed = false;
  std::string formatted_wire;
  std::vector<std::string> written_comments, kept_comments;
  std::vector<int> written_comment_lines;
};

// Lays RAW out; with FIRST_LINE > 0, only the pieces that touch lines FIRST_LINE to LAST_LINE.
// Needs no parse of RAW, so that it can run beside one.
TextLayoutResult LayOutAndReparse(const std::string& file, const std::string& raw, int first_line = 0,
                                  int last_line = 0);

// Whether TextFormat's parser, which reads nothing but the tokens protobuf's tokenizer gives,
// reads A and B alike: the same tokens, but that '<' '>' may stand for '{' '}', a ':' may stand
// before a message or a list of messages or not, and one ';' or ',' may end a field or not.
// False also when either text does not tokenize cleanly or its brackets do not pair up.
bool SameTextFormatTokens(std::string_view a, std::string_view b);

// SameTextFormatTokens(RAW, FORMATTED) worked out by pieces, cut where the same field of the
// root starts a line in both: ROOT_LINES are where FORMATTED's lines of the root's fields start
// (LayOutText's), TREE is RAW's. Pieces with the same bytes are not tokenized, so RAW must be
// text protobuf's parser takes; the rest are matched on two threads when there is enough.
bool SameTextFormatTokensByPieces(const syntax::SyntaxTree& tree, std::string_view raw,
                                  std::string_view formatted, const std::vector<size_t>& root_lines);

enum class LayoutFault { kNone, kUnreadable, kMeaning, kComment };

// Whether LAYOUT may stand for the text that CONFIG was parsed from: kNone when it may. Otherwise
// sets *LINE (0 when no line is to blame) and *WHY.
LayoutFault CheckLayoutFaithful(const Config& config, const TextLayoutResult& layout, int* line,
                                std::string* why);

}  // namespace pcfg
