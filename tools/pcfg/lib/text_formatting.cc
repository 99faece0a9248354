#include "text_formatting.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "formats.h"
#include "loader.h"
#include "syntax_tree.h"
#include "text_layout.h"

namespace pcfg {
namespace {

namespace io = google::protobuf::io;

class FaultFlag : public io::ErrorCollector {
 public:
  void AddError(int, io::ColumnNumber, const std::string&) override { failed = true; }
  bool failed = false;
};

// The tokens TextFormat's parser reads from a text, tokenized as it tokenizes, without the
// separators that mean nothing where they stand, and with '<' '>' read as '{' '}'.
class ParserTokens {
 public:
  explicit ParserTokens(std::string_view text)
      : input_(text.data(), static_cast<int>(text.size())), tokenizer_(&input_, &faults_) {
    tokenizer_.set_allow_f_after_float(true);
    tokenizer_.set_comment_style(io::Tokenizer::SH_COMMENT_STYLE);
  }

  // The next token that counts; false at the end of the text, or at a fault (see ok()).
  bool Next(io::Tokenizer::TokenType* type, std::string* text) {
    for (;;) {
      while (count_ < kWindow && !exhausted_) Pull();
      if (count_ == 0) {
        unpaired_ = unpaired_ || !open_.empty();
        return false;
      }
      Token& token = window_[head_];
      const bool optional = Optional(token);
      if (token.type == io::Tokenizer::TYPE_SYMBOL && !Bracket(token.text)) {
        unpaired_ = true;
        return false;
      }
      std::swap(previous_, token);
      head_ = (head_ + 1) % kWindow;
      --count_;
      if (optional) continue;
      *type = previous_.type;
      *text = previous_.text == "<" ? "{" : previous_.text == ">" ? "}" : previous_.text;
      return true;
    }
  }

  bool ok() const { return !faults_.failed && !unpaired_; }

 private:
  struct Token {
    io::Tokenizer::TokenType type = io::Tokenizer::TYPE_START;
    std::string text;
  };
  static constexpr size_t kWindow = 3;  // the token at hand and the two after it

  void Pull() {
    if (!tokenizer_.Next()) {
      exhausted_ = true;
      return;
    }
    Token& slot = window_[(head_ + count_) % kWindow];
    slot.type = tokenizer_.current().type;
    slot.text = tokenizer_.current().text;
    ++count_;
  }

  // The token AHEAD places after the one at hand, or an empty one past the end.
  const Token& Ahead(size_t ahead) const {
    static const Token kNone;
    return ahead < count_ ? window_[(head_ + ahead) % kWindow] : kNone;
  }
  static bool Is(const Token& token, const char* symbol) {
    return token.type == io::Tokenizer::TYPE_SYMBOL && token.text == symbol;
  }
  static bool OpensMessage(const Token& token) { return Is(token, "{") || Is(token, "<"); }

  // Whether TOKEN, between the token before it and those after it, may be there or not with the
  // same meaning: a ':' between a field's name and a message or a list of messages, or one ';'
  // or ',' between a field's value and the next field or the end of its block.
  bool Optional(const Token& token) const {
    const Token& next = Ahead(1);
    if (Is(token, ":"))
      return (previous_.type == io::Tokenizer::TYPE_IDENTIFIER || Is(previous_, "]")) &&
             (OpensMessage(next) || (Is(next, "[") && OpensMessage(Ahead(2))));
    if (!Is(token, ";") && !Is(token, ",")) return false;
    if (!open_.empty() && open_.back() == '[') return false;  // a list's own ','
    const bool value_ended =
        previous_.type == io::Tokenizer::TYPE_IDENTIFIER || previous_.type == io::Tokenizer::TYPE_INTEGER ||
        previous_.type == io::Tokenizer::TYPE_FLOAT || previous_.type == io::Tokenizer::TYPE_STRING ||
        Is(previous_, "}") || Is(previous_, ">") || Is(previous_, "]");
    return value_ended && (next.type == io::Tokenizer::TYPE_START ||
                           next.type == io::Tokenizer::TYPE_IDENTIFIER || Is(next, "}") || Is(next, ">"));
  }

  // Keeps count of open brackets; false for a closer that does not match its opener.
  bool Bracket(const std::string& symbol) {
    if (symbol.size() != 1) return true;
    const char c = symbol[0];
    if (c == '{' || c == '<' || c == '[') {
      open_.push_back(c);
      return true;
    }
    const char opener = c == '}' ? '{' : c == '>' ? '<' : c == ']' ? '[' : '\0';
    if (opener == '\0') return true;
    if (open_.empty() || open_.back() != opener) return false;
    open_.pop_back();
    return true;
  }

  FaultFlag faults_;
  io::ArrayInputStream input_;
  io::Tokenizer tokenizer_;
  std::array<Token, kWindow> window_;
  size_t head_ = 0, count_ = 0;
  bool exhausted_ = false, unpaired_ = false;
  Token previous_;  // the last token read, whether it counts or not
  std::string open_;
};

}  // namespace

bool SameTextFormatTokens(std::string_view a, std::string_view b) {
  if (a.size() > INT32_MAX || b.size() > INT32_MAX) return false;
  ParserTokens left(a), right(b);
  io::Tokenizer::TokenType left_type, right_type;
  std::string left_text, right_text;
  for (;;) {
    const bool more = left.Next(&left_type, &left_text);
    if (more != right.Next(&right_type, &right_text)) return false;
    if (!more) return left.ok() && right.ok();
    if (left_type != right_type || left_text != right_text) return false;
  }
}

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
  layout.same_tokens = SameTextFormatTokens(raw, layout.formatted);
  if (!layout.same_tokens) {
    // Tokens the proof above cannot match: the plain way, the layout's own parse.
    LoadedConfig again;
    std::vector<Diagnostic> diagnostics;
    layout.formatted_parsed = ParseConfig(file, Format::kText, layout.formatted, &again, &diagnostics) &&
                              again.config.SerializeToString(&layout.formatted_wire);
  }
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
  if (!layout.same_tokens &&
      (!layout.formatted_parsed || !config.SerializeToString(&before) || before != layout.formatted_wire)) {
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
