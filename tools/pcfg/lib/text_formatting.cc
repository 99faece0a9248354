#include "text_formatting.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <future>

#include "formats.h"
#include "loader.h"
#include "parse_in_two.h"
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
  // With FIELD_FIRST, TEXT must open with a field's name: it is the rest of a text from where a
  // field of the root starts.
  ParserTokens(std::string_view text, bool field_first)
      : input_(text.data(), static_cast<int>(text.size())),
        tokenizer_(&input_, &faults_),
        field_first_(field_first) {
    tokenizer_.set_allow_f_after_float(true);
    tokenizer_.set_comment_style(io::Tokenizer::SH_COMMENT_STYLE);
  }

  // The next token that counts; false at the end of the text, or at a fault (see ok()). *TEXT
  // holds until the next call.
  bool Next(io::Tokenizer::TokenType* type, const std::string** text) {
    for (;;) {
      while (count_ < kAhead && !exhausted_) Pull();
      if (count_ == 0) {
        unpaired_ = unpaired_ || !open_.empty();
        return false;
      }
      const Token& token = Ahead(0);
      const bool optional = Optional(token);
      if (token.type == io::Tokenizer::TYPE_SYMBOL && !Bracket(token.text)) {
        unpaired_ = true;
        return false;
      }
      // The token at hand becomes the previous one, in place.
      previous_ = head_;
      head_ = (head_ + 1) % kRing;
      --count_;
      if (optional) continue;
      if (field_first_ && token.type != io::Tokenizer::TYPE_IDENTIFIER) {
        unpaired_ = true;
        return false;
      }
      field_first_ = false;
      *type = token.type;
      static const std::string kOpen = "{", kClose = "}";
      *text = Is(token, '<') ? &kOpen : Is(token, '>') ? &kClose : &token.text;
      return true;
    }
  }

  bool ok() const { return !faults_.failed && !unpaired_; }

 private:
  struct Token {
    io::Tokenizer::TokenType type = io::Tokenizer::TYPE_START;
    std::string text;
  };
  // A ring of tokens: the previous one, the one at hand and the two after it.
  static constexpr size_t kAhead = 3, kRing = 4;

  void Pull() {
    if (!tokenizer_.Next()) {
      exhausted_ = true;
      return;
    }
    Token& slot = ring_[(head_ + count_) % kRing];
    slot.type = tokenizer_.current().type;
    slot.text = tokenizer_.current().text;
    ++count_;
  }

  // The token AHEAD places after the one at hand (0: that one), or an empty one past the end.
  const Token& Ahead(size_t ahead) const {
    static const Token kNone;
    return ahead < count_ ? ring_[(head_ + ahead) % kRing] : kNone;
  }
  const Token& Previous() const {
    static const Token kNone;
    return previous_ < kRing ? ring_[previous_] : kNone;
  }
  static bool Is(const Token& token, char symbol) {
    return token.type == io::Tokenizer::TYPE_SYMBOL && token.text.size() == 1 && token.text[0] == symbol;
  }
  static bool OpensMessage(const Token& token) { return Is(token, '{') || Is(token, '<'); }

  // Whether TOKEN, between the token before it and those after it, may be there or not with the
  // same meaning: a ':' between a field's name and a message or a list of messages, or one ';'
  // or ',' between a field's value and the next field or the end of its block.
  bool Optional(const Token& token) const {
    const Token& previous = Previous();
    const Token& next = Ahead(1);
    if (Is(token, ':'))
      return (previous.type == io::Tokenizer::TYPE_IDENTIFIER || Is(previous, ']')) &&
             (OpensMessage(next) || (Is(next, '[') && OpensMessage(Ahead(2))));
    if (!Is(token, ';') && !Is(token, ',')) return false;
    if (!open_.empty() && open_.back() == '[') return false;  // a list's own ','
    const bool value_ended =
        previous.type == io::Tokenizer::TYPE_IDENTIFIER || previous.type == io::Tokenizer::TYPE_INTEGER ||
        previous.type == io::Tokenizer::TYPE_FLOAT || previous.type == io::Tokenizer::TYPE_STRING ||
        Is(previous, '}') || Is(previous, '>') || Is(previous, ']');
    return value_ended && (next.type == io::Tokenizer::TYPE_START ||
                           next.type == io::Tokenizer::TYPE_IDENTIFIER || Is(next, '}') || Is(next, '>'));
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
  std::array<Token, kRing> ring_;
  size_t head_ = 0, count_ = 0;
  size_t previous_ = kRing;  // the last token read, whether it counts or not; none yet
  bool field_first_;
  bool exhausted_ = false, unpaired_ = false;
  std::string open_;
};

// Whether A and B read alike; with FIELD_FIRST both must open with a field's name.
bool SameTokens(std::string_view a, std::string_view b, bool field_first) {
  if (a.size() > INT32_MAX || b.size() > INT32_MAX) return false;
  ParserTokens left(a, field_first), right(b, field_first);
  io::Tokenizer::TokenType left_type, right_type;
  const std::string *left_text, *right_text;
  for (;;) {
    const bool more = left.Next(&left_type, &left_text);
    if (more != right.Next(&right_type, &right_text)) return false;
    if (!more) return left.ok() && right.ok();
    if (left_type != right_type || *left_text != *right_text) return false;
  }
}

}  // namespace

bool SameTextFormatTokens(std::string_view a, std::string_view b) { return SameTokens(a, b, false); }

// In text that tokenizes cleanly every line start is a token boundary; and as every piece but the
// first must open with a field's name, whatever ends the piece before is read as it is read
// whole. Same bytes read alike.
bool SameTextFormatTokensByPieces(const syntax::SyntaxTree& tree, std::string_view raw,
                                  std::string_view formatted, const std::vector<size_t>& root_lines) {
  // The pairs of pieces whose bytes differ, and how many bytes they hold.
  struct Pair {
    std::string_view raw, formatted;
  };
  std::vector<Pair> differing;
  size_t bytes = 0, index = 0, raw_cut = 0, formatted_cut = 0;
  const auto end_piece = [&](size_t raw_at, size_t formatted_at) {
    const Pair piece{raw.substr(raw_cut, raw_at - raw_cut),
                     formatted.substr(formatted_cut, formatted_at - formatted_cut)};
    if (piece.raw != piece.formatted) {
      differing.push_back(piece);
      bytes += piece.raw.size();
    }
    raw_cut = raw_at, formatted_cut = formatted_at;
  };
  for (const int32_t child : tree.ChildrenOf(tree.root())) {
    if (index++ >= root_lines.size()) break;
    const uint32_t begin = tree.tokens()[tree.node(child).first].begin;
    const size_t line_start = raw.rfind('\n', begin) + 1;  // npos + 1 is 0: the first line
    if (raw.find_first_not_of(" \t\r\v\f", line_start) == begin && line_start > raw_cut)
      end_piece(line_start, root_lines[index - 1]);
  }
  end_piece(raw.size(), formatted.size());
  // Every piece but the first opens with a field's name.
  const auto match = [&](size_t from, size_t to) {
    for (size_t i = from; i < to; ++i)
      if (!SameTokens(differing[i].raw, differing[i].formatted, differing[i].raw.data() != raw.data()))
        return false;
    return true;
  };
  if (bytes < kSmallestInputWorthCutting) return match(0, differing.size());
  // Two shares of about the same size.
  size_t half = 0;
  for (size_t share = 0; half < differing.size() && share < bytes / 2; ++half)
    share += differing[half].raw.size();
  std::future<bool> second =
      std::async(std::launch::async | std::launch::deferred, [&] { return match(half, differing.size()); });
  const bool first = match(0, half);
  return second.get() && first;
}

TextLayoutResult LayOutAndReparse(const std::string& file, const std::string& raw, int first_line,
                                  int last_line) {
  TextLayoutResult layout;
  const syntax::SyntaxTree tree(raw);
  if (tree.has_errors()) {
    layout.tree_errors = true;
    return layout;
  }
  std::vector<size_t> root_lines;
  layout.formatted = LayOutText(tree, &root_lines);
  if (first_line > 0) {
    layout.formatted = ApplyLineEdits(raw, LayoutEditsWithin(raw, layout.formatted, first_line, last_line));
    root_lines.clear();  // they were lines of the whole layout
  }
  layout.written_comments = CommentsOf(tree);
  if (layout.formatted == raw) {
    // Formatted already: the same bytes mean the same, with the same comments.
    layout.same_tokens = true;
    layout.kept_comments = layout.written_comments;
    return layout;
  }
  // The layout's comments are found meanwhile.
  std::future<std::vector<std::string>> kept = std::async(std::launch::async | std::launch::deferred,
                                                          [&layout] { return CommentsOf(layout.formatted); });
  layout.same_tokens = SameTextFormatTokensByPieces(tree, raw, layout.formatted, root_lines);
  layout.kept_comments = kept.get();
  if (!layout.same_tokens) {
    // Tokens the proof above cannot match: the plain way, the layout's own parse.
    LoadedConfig again;
    std::vector<Diagnostic> diagnostics;
    layout.formatted_parsed = ParseConfig(file, Format::kText, layout.formatted, &again, &diagnostics) &&
                              again.config.SerializeToString(&layout.formatted_wire);
  }
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
