// pcfg fmt: the canonical text of whatever loads (the first byte picks the input's form) loads
// back equal, formatting it again changes nothing, and it holds no comment. On text input, the
// comment finder that guards fmt -i agrees with protobuf's own tokenizer; the syntax tree gives
// back every byte of any text; and for text that loads, the tree finds no error and cuts it into
// the tokenizer's tokens, one for one, and the layout that keeps comments loads equal, holds the
// same comments and is its own layout. The comment finder that needs no tree finds what the tree
// does; and text that the token proof says reads as a loading text does loads equal to it.
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "canonical_text.h"
#include "checks.h"
#include "fuzz_support.h"
#include "syntax_tree.h"
#include "text_formatting.h"
#include "text_layout.h"

namespace {

namespace gp = google::protobuf;

class Quiet : public gp::io::ErrorCollector {
 public:
  void AddError(int, gp::io::ColumnNumber, const std::string&) override {}
};

// Like fmt's own test: "# proto-file:" or "# proto-message:", after any run of '#', blanks and tabs.
bool LooksLikeHeader(const std::string& comment) {
  const size_t start = comment.find_first_not_of("# \t");
  if (start == std::string::npos) return false;
  return comment.compare(start, 11, "proto-file:") == 0 || comment.compare(start, 14, "proto-message:") == 0;
}

// Every comment line of TEXT as the text format's tokenizer sees it, without its '#', and each
// token it reads into TOKENS.
std::vector<std::string> TokenizerComments(std::string text, std::vector<std::string>* tokens = nullptr) {
  // Each comment line then ends in a newline, even an empty one at the very end ("#").
  text += '\n';
  gp::io::ArrayInputStream stream(text.data(), static_cast<int>(text.size()));
  Quiet quiet;
  gp::io::Tokenizer tokenizer(&stream, &quiet);
  tokenizer.set_comment_style(gp::io::Tokenizer::SH_COMMENT_STYLE);
  tokenizer.set_allow_f_after_float(true);
  tokenizer.set_require_space_after_number(false);
  std::vector<std::string> lines;
  auto add = [&lines](const std::string& block) {
    // Consecutive comment lines come as one block, a newline after each line.
    for (size_t start = 0, end; (end = block.find('\n', start)) != std::string::npos; start = end + 1)
      lines.push_back(block.substr(start, end - start));
  };
  bool more = true;
  while (more) {
    std::string trailing, leading;
    std::vector<std::string> detached;
    more = tokenizer.NextWithComments(&trailing, &detached, &leading);
    if (more && tokens != nullptr) tokens->push_back(tokenizer.current().text);
    add(trailing);
    for (const std::string& block : detached) add(block);
    add(leading);
  }
  return lines;
}

// TEXT's comments as FindComment finds them and as the tokenizer sees them; the tokens it reads go
// to TOKENS.
void CheckCommentFinder(const std::string& text, std::vector<std::string>* tokens = nullptr) {
  const auto found = pcfg::FindComment(text);
  int real = 0;
  for (const std::string& line : TokenizerComments(text, tokens))
    if (!LooksLikeHeader(line)) ++real;
  if (real > 0 && !found) fuzz::Fail("FindComment misses a comment that the tokenizer sees");
  if (real == 0 && found && !LooksLikeHeader(found->text))
    fuzz::Fail("FindComment reports a comment that the tokenizer does not see", found->text);
}

// TEXT, the WHAT text fmt writes for LOADED, loads into AGAIN equal to LOADED.
void CheckLoadsEqual(const pcfg::LoadedConfig& loaded, const std::string& text, const std::string& what,
                     pcfg::LoadedConfig* again) {
  if (!fuzz::Load(pcfg::Format::kText, text, again)) fuzz::Fail("the " + what + " text does not load", text);
  std::string differences;
  if (!fuzz::Equal(loaded.config, again->config, &differences))
    fuzz::Fail("the " + what + " text loads different", differences);
}

// LOADED's text with separators, brackets and blanks changed at places its bytes choose: where the
// token proof fmt relies on says the change reads the same, it must load equal.
void CheckTokenProof(const pcfg::LoadedConfig& loaded, const pcfg::syntax::SyntaxTree& tree) {
  uint64_t state = std::hash<std::string>{}(loaded.raw) | 1;
  const auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state % 16;
  };
  static const char* const kInserted[] = {";", ",", ":", " ", "{", "<"};
  std::string variant;
  for (const pcfg::syntax::Token& token : tree.tokens()) {
    std::string_view text = tree.Text(token);
    const uint64_t change = next();
    if ((text == ";" || text == "," || text == ":") && change < 4) text = "";
    if (text == "{" && change < 3) text = "<";
    if (text == "}" && change < 3) text = ">";
    variant += text;
    const uint64_t insert = next();
    if (insert < std::size(kInserted)) variant += kInserted[insert];
  }
  if (!pcfg::SameTextFormatTokens(loaded.raw, variant)) return;
  pcfg::LoadedConfig again;
  CheckLoadsEqual(loaded, variant, "token-equal", &again);
}

// LOADED's text, its syntax TREE and the TOKENS the tokenizer reads in it.
void CheckLayout(const pcfg::LoadedConfig& loaded, const pcfg::syntax::SyntaxTree& tree,
                 const std::vector<std::string>& tokens) {
  if (tree.has_errors()) fuzz::Fail("the syntax tree finds errors in text that protobuf reads");
  std::vector<std::string> tree_tokens;
  for (const pcfg::syntax::Token& token : tree.tokens())
    if (!token.trivia()) tree_tokens.emplace_back(tree.Text(token));
  if (tree_tokens != tokens) fuzz::Fail("the syntax tree's tokens are not the tokenizer's", loaded.raw);
  CheckTokenProof(loaded, tree);
  std::vector<size_t> root_lines;
  const std::string laid_out = pcfg::LayOutText(tree, &root_lines);
  pcfg::LoadedConfig again;
  CheckLoadsEqual(loaded, laid_out, "laid-out", &again);
  // fmt proves a layout by pieces, the same bytes on both sides taken as read: the verdict must
  // be the whole proof's.
  if (pcfg::SameTextFormatTokensByPieces(tree, loaded.raw, laid_out, root_lines) !=
      pcfg::SameTextFormatTokens(loaded.raw, laid_out))
    fuzz::Fail("the proof by pieces and the whole proof disagree", laid_out);
  const pcfg::syntax::SyntaxTree laid_out_tree(laid_out);
  std::vector<std::string> kept = pcfg::CommentsOf(laid_out_tree), written = pcfg::CommentsOf(tree);
  // fmt refuses, rather than moves, a comment it cannot keep in place (inside a value, or between
  // a name and its value): the comments may be fewer, never others or in another order.
  if (!pcfg::TextStartsWithHeader(tree) && kept.size() >= 2) kept.erase(kept.begin(), kept.begin() + 2);
  for (size_t k = 0, w = 0; k < kept.size(); ++w) {
    if (w == written.size()) fuzz::Fail("the layout holds a comment the text did not", kept[k]);
    if (kept[k] == written[w]) ++k;
  }
  if (pcfg::LayOutText(laid_out_tree) != laid_out) fuzz::Fail("laying out the layout changes it", laid_out);

  // Laying out some lines only (editors' range formatting) keeps the meaning too: the pieces it
  // takes or leaves each hold the same content on both sides.
  const int lines = static_cast<int>(std::count(loaded.raw.begin(), loaded.raw.end(), '\n')) + 1;
  const int first = 1 + static_cast<int>(loaded.raw.size() % static_cast<size_t>(lines));
  const int last = first + static_cast<int>(loaded.raw.size() / 7 % 4);
  const std::string partly =
      pcfg::ApplyLineEdits(loaded.raw, pcfg::LayoutEditsWithin(loaded.raw, laid_out, first, last));
  CheckLoadsEqual(loaded, partly, "range-laid-out", &again);
  if (pcfg::ApplyLineEdits(loaded.raw, pcfg::LayoutEditsWithin(loaded.raw, laid_out, 1, lines)) != laid_out)
    fuzz::Fail("laying out every line differs from the layout", laid_out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Bytes input(data, size);
  const pcfg::Format format = fuzz::FormatFromByte(input.Byte());
  const std::string rest = input.Rest();
  std::optional<pcfg::syntax::SyntaxTree> tree;
  if (format == pcfg::Format::kText) {
    tree.emplace(rest);
    if (tree->Print() != rest) fuzz::Fail("the syntax tree loses bytes", rest);
    if (pcfg::CommentsOf(rest) != pcfg::CommentsOf(*tree)) fuzz::Fail("the comment finders disagree", rest);
  }
  pcfg::LoadedConfig loaded;
  if (!fuzz::Load(format, rest, &loaded)) return 0;
  if (format == pcfg::Format::kText) {  // loaded.raw is REST, which the tree was built from
    std::vector<std::string> tokens;
    CheckCommentFinder(loaded.raw, &tokens);
    CheckLayout(loaded, *tree, tokens);
  }

  // fmt refuses unknown fields, or with --drop-unknown leaves them out.
  const bool unknown = fuzz::HasUnknownFields(loaded.config);
  if (pcfg::FindUnknownFields(loaded).empty() == unknown)
    fuzz::Fail(unknown ? "fmt would print unknown fields unannounced" : "fmt would refuse fields it knows");
  loaded.config.DiscardUnknownFields();

  const std::string canonical = pcfg::CanonicalText(loaded.config);
  pcfg::LoadedConfig again;
  CheckLoadsEqual(loaded, canonical, "canonical", &again);
  if (pcfg::CanonicalText(again.config) != canonical) fuzz::Fail("formatting the canonical text changes it");
  if (const auto comment = pcfg::FindComment(canonical))
    fuzz::Fail("the canonical text holds a comment", comment->text);
  CheckCommentFinder(canonical);
  return 0;
}
