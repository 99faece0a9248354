#include "text_layout.h"

#include <algorithm>

#include "formats.h"

namespace pcfg {
namespace {

using syntax::Node;
using syntax::NodeKind;
using syntax::SyntaxTree;
using syntax::Token;
using syntax::TokenKind;

// Columns a piece of UTF-8 text takes: one per character.
size_t Columns(std::string_view text) {
  size_t columns = 0;
  for (const char c : text) columns += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return columns;
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

bool IsHeaderLine(std::string_view comment) {
  const size_t start = comment.find_first_not_of("# \t");
  if (start == std::string_view::npos) return false;
  comment.remove_prefix(start);
  return comment.substr(0, 11) == "proto-file:" || comment.substr(0, 14) == "proto-message:";
}

// The comments and line breaks between two places of the text.
struct Gap {
  struct Comment {
    std::string_view text;
    int newlines_before = 0;
  };
  std::vector<Comment> comments;
  int newlines_after = 0;  // after the last comment, or in the whole gap when it has none
};

class Layout {
 public:
  Layout(const SyntaxTree& tree, std::vector<size_t>* root_lines)
      : tree_(tree), tokens_(tree.tokens()), root_lines_(root_lines) {}

  std::string Run() {
    const Node& root = tree_.root();
    // Room for the layout's usual growth (indents): no copying as it grows. Pages not written
    // cost nothing.
    out_.reserve(tree_.source().size() + tree_.source().size() / 2 + 4096);
    if (!TextStartsWithHeader(tree_)) out_ += kTextHeader;
    Block(root, 0, static_cast<uint32_t>(tokens_.size()));
    Break();
    return std::move(out_);
  }

 private:
  Gap GapBetween(uint32_t from, uint32_t to) const {
    Gap gap;
    int newlines = 0;
    for (uint32_t i = from; i < to && i < tokens_.size(); ++i) {
      const Token& token = tokens_[i];
      if (token.kind == TokenKind::kSpace) {
        const std::string_view text = tree_.Text(token);
        newlines += static_cast<int>(std::count(text.begin(), text.end(), '\n'));
      } else if (token.kind == TokenKind::kComment) {
        gap.comments.push_back({TrimRight(tree_.Text(token)), newlines});
        newlines = 0;
      }
    }
    gap.newlines_after = newlines;
    return gap;
  }

  // ---- lines ----
  void Break() {
    if (line_open_) out_ += '\n';
    line_open_ = false;
  }
  void StartLine() {
    Break();
    out_.append(static_cast<size_t>(indent_), ' ');
    line_open_ = true;
    column_ = static_cast<size_t>(indent_);
  }
  void BlankLine() {
    Break();
    if (!block_start_ && !out_.empty() && out_.back() == '\n' &&
        !(out_.size() >= 2 && out_[out_.size() - 2] == '\n'))
      out_ += '\n';
  }
  void Put(std::string_view text) {
    out_ += text;
    column_ += Columns(text);
  }

  // Comments of GAP: one on the line of what came before stays there; the others get lines of
  // their own, a blank line kept before one that had one.
  void Comments(const Gap& gap) {
    for (const Gap::Comment& comment : gap.comments) {
      if (comment.newlines_before == 0 && line_open_) {
        Put("  ");
        Put(comment.text);
        Break();
      } else {
        if (comment.newlines_before >= 2) BlankLine();
        StartLine();
        Put(comment.text);
        Break();
      }
      block_start_ = false;
    }
  }

  // The fields of a document or message, between tokens OPEN_END and CLOSE.
  void Block(const Node& block, uint32_t open_end, uint32_t close) {
    uint32_t cursor = open_end;
    block_start_ = true;
    for (const int32_t child : tree_.ChildrenOf(block)) {
      const Node& field = tree_.node(child);
      const Gap gap = GapBetween(cursor, field.first);
      Comments(gap);
      if (gap.newlines_after >= 2) BlankLine();
      StartLine();
      if (root_lines_ != nullptr && &block == &tree_.root()) root_lines_->push_back(out_.size());
      Field(field);
      // Comments between the value and a ';' or ',' after it, which the layout drops.
      if (const Node* value = tree_.ValueOf(field)) Comments(GapBetween(value->end, field.end));
      block_start_ = false;
      cursor = field.end;
    }
    Comments(GapBetween(cursor, close));
  }

  void Field(const Node& field) {
    const Node& value = *tree_.ValueOf(field);
    Put(tree_.Name(field));
    switch (value.kind) {
      case NodeKind::kValue:
        Put(": ");
        Put(ValueText(value));
        break;
      case NodeKind::kMessage:
        Put(" ");
        Message(value);
        break;
      case NodeKind::kList:
        Put(HasMessages(value) ? " " : ": ");
        List(value);
        break;
      default:
        break;
    }
  }

  std::string ValueText(const Node& value) const {
    std::string text;
    const Token* previous = nullptr;
    for (uint32_t i = value.first; i < value.end; ++i) {
      const Token& token = tokens_[i];
      if (token.trivia()) continue;
      if (previous != nullptr && previous->kind == TokenKind::kString) text += ' ';
      text += tree_.Text(token);
      previous = &token;
    }
    return text;
  }

  bool HasMessages(const Node& list) const {
    for (const int32_t child : tree_.ChildrenOf(list))
      if (tree_.node(child).kind == NodeKind::kMessage) return true;
    return false;
  }

  bool HasComments(const Node& node) const {
    for (uint32_t i = node.first; i < node.end; ++i)
      if (tokens_[i].kind == TokenKind::kComment) return true;
    return false;
  }

  bool OnOneLine(const Node& node) const { return tree_.Text(node).find('\n') == std::string_view::npos; }

  // NODE (a field, value, message or list) on one line, as it is laid out when it fits.
  std::string OneLine(const Node& node) const {
    switch (node.kind) {
      case NodeKind::kValue:
        return ValueText(node);
      case NodeKind::kField: {
        const Node& value = *tree_.ValueOf(node);
        const bool scalar =
            value.kind == NodeKind::kValue || (value.kind == NodeKind::kList && !HasMessages(value));
        return tree_.Name(node) + (scalar ? ": " : " ") + OneLine(value);
      }
      case NodeKind::kMessage: {
        if (tree_.FirstChild(node) < 0) return "{}";
        std::string text = "{";
        for (const int32_t child : tree_.ChildrenOf(node)) text += " " + OneLine(tree_.node(child));
        return text + " }";
      }
      case NodeKind::kList: {
        std::string text = "[";
        for (const int32_t child : tree_.ChildrenOf(node))
          text += (child != tree_.FirstChild(node) ? ", " : "") + OneLine(tree_.node(child));
        return text + "]";
      }
      default:
        return std::string(tree_.Text(node));
    }
  }

  uint32_t CloserOf(const Node& block) const { return block.end - 1; }

  void Message(const Node& message) {
    if (!HasComments(message)) {
      if (tree_.FirstChild(message) < 0) return Put("{}");
      if (OnOneLine(message)) {
        const std::string line = OneLine(message);
        if (column_ + Columns(line) <= kLayoutWidth) return Put(line);
      }
    }
    Put("{");
    indent_ += 2;
    Block(message, message.first + 1, CloserOf(message));
    indent_ -= 2;
    StartLine();
    Put("}");
  }

  void List(const Node& list) {
    const bool comments = HasComments(list);
    if (!comments && !HasMessages(list)) return ScalarList(list);
    if (!comments && OnOneLine(list)) {
      const std::string line = OneLine(list);
      if (column_ + Columns(line) <= kLayoutWidth) return Put(line);
    }
    // One element per line, comments kept where they were.
    Put("[");
    indent_ += 2;
    uint32_t cursor = list.first + 1;
    block_start_ = true;
    for (const int32_t child : tree_.ChildrenOf(list)) {
      const Node& element = tree_.node(child);
      Comments(GapBetween(cursor, element.first));
      StartLine();
      if (element.kind == NodeKind::kMessage) {
        Message(element);
      } else {
        Put(ValueText(element));
      }
      if (element.next_sibling >= 0) Put(",");
      block_start_ = false;
      cursor = element.end;
    }
    Comments(GapBetween(cursor, CloserOf(list)));
    indent_ -= 2;
    StartLine();
    Put("]");
  }

  // [a, b, c] on this line while it fits, then on lines that start under the first element.
  void ScalarList(const Node& list) {
    Put("[");
    const size_t start = column_;
    for (const int32_t child : tree_.ChildrenOf(list)) {
      const Node& element = tree_.node(child);
      const std::string text = ValueText(element);
      const bool last = element.next_sibling < 0;
      const size_t needs = Columns(text) + 1;  // and its ',' or ']'
      if (child != tree_.FirstChild(list)) {
        if (column_ + 1 + needs <= kLayoutWidth) {
          Put(" ");
        } else {
          Break();
          out_.append(start, ' ');
          line_open_ = true;
          column_ = start;
        }
      }
      Put(text);
      Put(last ? "]" : ",");
    }
    if (tree_.FirstChild(list) < 0) Put("]");
  }

  const SyntaxTree& tree_;
  const syntax::Tokens& tokens_;
  std::vector<size_t>* root_lines_;
  std::string out_;
  int indent_ = 0;
  size_t column_ = 0;
  bool line_open_ = false;
  bool block_start_ = true;  // nothing written in the current block yet: no blank line
};

}  // namespace

std::string LayOutText(const SyntaxTree& tree, std::vector<size_t>* root_lines) {
  if (root_lines != nullptr) root_lines->clear();
  return Layout(tree, root_lines).Run();
}

bool TextStartsWithHeader(const SyntaxTree& tree) {
  for (const Token& token : tree.tokens()) {
    if (token.kind == TokenKind::kSpace) continue;
    return token.kind == TokenKind::kComment && IsHeaderLine(tree.Text(token));
  }
  return false;
}

namespace {

std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  const std::string_view view(text);
  for (size_t start = 0; start < view.size();) {
    const size_t end = view.find('\n', start);
    const size_t stop = end == std::string_view::npos ? view.size() : end + 1;
    lines.push_back(view.substr(start, stop - start));
    start = stop;
  }
  return lines;
}

// The edit script from A to B: for each line of the diff, ' ', '-' or '+' and the line. Myers'
// algorithm on what lies between the common start and end; past a bound on the number of edits,
// the middle is given as all of A's lines removed and all of B's added, which is still a correct
// diff and keeps the cost linear.
std::vector<std::pair<char, std::string_view>> EditScript(const std::vector<std::string_view>& a,
                                                          const std::vector<std::string_view>& b) {
  size_t prefix = 0;
  while (prefix < a.size() && prefix < b.size() && a[prefix] == b[prefix]) ++prefix;
  size_t suffix = 0;
  while (suffix < a.size() - prefix && suffix < b.size() - prefix &&
         a[a.size() - 1 - suffix] == b[b.size() - 1 - suffix])
    ++suffix;
  const long n = static_cast<long>(a.size() - prefix - suffix),
             m = static_cast<long>(b.size() - prefix - suffix);
  const auto A = [&](long i) { return a[prefix + static_cast<size_t>(i)]; };
  const auto B = [&](long j) { return b[prefix + static_cast<size_t>(j)]; };

  std::vector<std::pair<char, std::string_view>> middle;
  constexpr long kMaxEdits = 1000;
  const long max = std::min(n + m, kMaxEdits);
  std::vector<std::vector<long>> trace;  // V of each step d, for k in [-d, d]
  std::vector<long> v(static_cast<size_t>(2 * max + 3), 0);
  const long offset = max + 1;
  long found = -1;
  for (long d = 0; d <= max && found < 0; ++d) {
    for (long k = -d; k <= d; k += 2) {
      long x = (k == -d || (k != d && v[offset + k - 1] < v[offset + k + 1])) ? v[offset + k + 1]
                                                                              : v[offset + k - 1] + 1;
      long y = x - k;
      while (x < n && y < m && A(x) == B(y)) ++x, ++y;
      v[offset + k] = x;
      if (x >= n && y >= m) {
        found = d;
        break;
      }
    }
    trace.emplace_back(v.begin() + (offset - d), v.begin() + (offset + d + 1));
  }
  if (found < 0) {
    for (long i = 0; i < n; ++i) middle.push_back({'-', A(i)});
    for (long j = 0; j < m; ++j) middle.push_back({'+', B(j)});
  } else {
    long x = n, y = m;
    for (long d = found; d > 0; --d) {
      const std::vector<long>& previous = trace[static_cast<size_t>(d - 1)];
      const auto at = [&](long k) { return previous[static_cast<size_t>(k + d - 1)]; };
      const long k = x - y;
      const bool down = k == -d || (k != d && at(k - 1) < at(k + 1));
      const long previous_k = down ? k + 1 : k - 1;
      const long previous_x = at(previous_k), previous_y = previous_x - previous_k;
      while (x > previous_x + (down ? 0 : 1) && y > previous_y + (down ? 1 : 0))
        middle.push_back({' ', A(--x)}), --y;
      if (down) {
        middle.push_back({'+', B(--y)});
      } else {
        middle.push_back({'-', A(--x)});
      }
    }
    while (x > 0 && y > 0) middle.push_back({' ', A(--x)}), --y;
    std::reverse(middle.begin(), middle.end());
  }
  std::vector<std::pair<char, std::string_view>> script;
  for (size_t i = 0; i < prefix; ++i) script.push_back({' ', a[i]});
  script.insert(script.end(), middle.begin(), middle.end());
  for (size_t i = a.size() - suffix; i < a.size(); ++i) script.push_back({' ', a[i]});
  return script;
}

}  // namespace

std::string UnifiedDiff(const std::string& name, const std::string& before, const std::string& after) {
  if (before == after) return "";
  const std::vector<std::string_view> a = Lines(before), b = Lines(after);
  const auto script = EditScript(a, b);
  constexpr size_t kContext = 3;
  std::string diff = "--- " + name + "\n+++ " + name + " (formatted)\n";
  size_t i = 0, counted = 0, line_a = 1, line_b = 1;
  while (i < script.size()) {
    if (script[i].first == ' ') {
      ++i;
      continue;
    }
    // A hunk: from the context before this change to the context after the last change that
    // lies within twice the context of the one before it.
    size_t start = i >= kContext ? i - kContext : 0, end = i;
    while (end < script.size()) {
      size_t next = end;
      while (next < script.size() && script[next].first == ' ') ++next;
      if (next == script.size() || next - end > 2 * kContext) break;
      end = next + 1;
    }
    end = std::min(script.size(), end + kContext);
    // The lines of A and B before the hunk, counted on from where the last hunk began.
    for (; counted < start; ++counted) {
      line_a += script[counted].first != '+';
      line_b += script[counted].first != '-';
    }
    size_t count_a = 0, count_b = 0;
    for (size_t j = start; j < end; ++j) {
      count_a += script[j].first != '+';
      count_b += script[j].first != '-';
    }
    diff += "@@ -" + std::to_string(count_a ? line_a : line_a - 1) + "," + std::to_string(count_a) + " +" +
            std::to_string(count_b ? line_b : line_b - 1) + "," + std::to_string(count_b) + " @@\n";
    for (size_t j = start; j < end; ++j) {
      diff += script[j].first;
      diff += script[j].second;
      if (script[j].second.empty() || script[j].second.back() != '\n')
        diff += "\n\\ No newline at end of file\n";
    }
    i = end;
  }
  return diff;
}

namespace {

// What a line holds that the layout cannot change: everything but blanks and the separators
// and colons it may drop.
size_t ContentLength(std::string_view line) {
  size_t length = 0;
  for (const char c : line) length += std::string_view(" \t\r\n,;:").find(c) == std::string_view::npos;
  return length;
}

void AppendContent(std::string_view line, std::string* content) {
  for (const char c : line)
    if (std::string_view(" \t\r\n,;:").find(c) == std::string_view::npos) *content += c;
}

std::string Content(const std::vector<std::string_view>& lines) {
  std::string content;
  for (const std::string_view line : lines) AppendContent(line, &content);
  return content;
}

// A stretch of changed lines, REMOVED (from the source, the first at line FIRST) replaced by
// ADDED, cut where both sides have given the same content so far: each piece can be taken or left
// on its own. A header put before everything is a piece of its own.
void CutStretch(int first, const std::vector<std::string_view>& removed,
                const std::vector<std::string_view>& added, std::vector<LineEdit>* pieces) {
  const auto piece = [&](int at, size_t i0, size_t i1, size_t j0, size_t j1) {
    LineEdit edit;
    edit.first_line = at;
    edit.line_count = static_cast<int>(i1 - i0);
    for (size_t j = j0; j < j1; ++j) edit.text += added[j];
    pieces->push_back(std::move(edit));
  };
  const std::string from = Content(removed), to = Content(added);
  size_t j = 0;
  if (from != to) {
    // Only added lines in front of the same content can be set apart.
    size_t extra = 0;
    while (j < added.size() && to.size() - extra > from.size()) extra += ContentLength(added[j++]);
    if (to.size() - extra != from.size() || to.compare(extra, std::string::npos, from) != 0)
      return piece(first, 0, removed.size(), 0, added.size());
    if (j > 0) piece(first, 0, 0, 0, j);
  }
  size_t i = 0, i0 = 0, j0 = j, from_length = 0, to_length = 0;
  while (i < removed.size() || j < added.size()) {
    if (j >= added.size() || (i < removed.size() && from_length <= to_length)) {
      from_length += ContentLength(removed[i++]);
    } else {
      to_length += ContentLength(added[j++]);
    }
    if (from_length == to_length) {
      piece(first + static_cast<int>(i0), i0, i, j0, j);
      i0 = i, j0 = j;
    }
  }
  if (i0 < i || j0 < j) piece(first + static_cast<int>(i0), i0, i, j0, j);
}

}  // namespace

std::vector<LineEdit> LayoutEditsWithin(std::string_view source, const std::string& laid_out, int first,
                                        int last) {
  const std::vector<std::string_view> a = Lines(source), b = Lines(laid_out);
  const auto script = EditScript(a, b);
  std::vector<LineEdit> edits, pieces;
  // The header the layout puts before everything, when the source has none: content that a
  // stretch at the first line may add on its own.
  const std::vector<std::string_view> header = Lines(kTextHeader);
  const bool adds_header =
      b.size() >= header.size() && std::equal(header.begin(), header.end(), b.begin()) &&
      !(a.size() >= header.size() && std::equal(header.begin(), header.end(), a.begin()));
  int line = 1;  // of SOURCE, at script[i]
  for (size_t i = 0; i < script.size();) {
    if (script[i].first == ' ') {
      ++line, ++i;
      continue;
    }
    // A stretch of changed lines can be taken or left on its own only when it holds the content
    // it replaces. The line diff may pair a moved line (a comment, say) with its copy elsewhere:
    // then the stretch, the lines after it and the next stretches go together, until the
    // content on both sides agrees again (or to the end). Content is matched as it comes, so
    // that this stays linear.
    std::vector<std::string_view> removed, added;
    std::string from, to;
    size_t skip = 0, matched = 0;
    bool diverged = false;
    const bool at_start = line == 1 && adds_header;
    const auto take = [&](char side, std::string_view text) {
      if (side != '+') {
        removed.push_back(text);
        AppendContent(text, &from);
      }
      if (side != '-') {
        added.push_back(text);
        if (at_start && added.size() <= header.size() && text == header[added.size() - 1])
          skip += ContentLength(text);
        AppendContent(text, &to);
      }
      while (!diverged && matched < from.size() && skip + matched < to.size()) {
        diverged = from[matched] != to[skip + matched];
        matched += !diverged;
      }
    };
    for (;;) {
      for (; i < script.size() && script[i].first != ' '; ++i) take(script[i].first, script[i].second);
      if (i == script.size() || (!diverged && from.size() == matched && to.size() == skip + matched)) break;
      for (; i < script.size() && script[i].first == ' '; ++i) take(' ', script[i].second);
    }
    pieces.clear();
    CutStretch(line, removed, added, &pieces);
    line += static_cast<int>(removed.size());
    for (LineEdit& edit : pieces) {
      // A piece that removes lines touches the range when one of them is in it; one that only
      // inserts, when it goes in before a line of the range or right after the last.
      const bool touches = edit.line_count > 0
                               ? edit.first_line <= last && edit.first_line + edit.line_count - 1 >= first
                               : edit.first_line >= first && edit.first_line <= last + 1;
      if (touches && (edit.line_count > 0 || !edit.text.empty())) edits.push_back(std::move(edit));
    }
  }
  return edits;
}

std::string ApplyLineEdits(std::string_view source, const std::vector<LineEdit>& edits) {
  std::string out;
  out.reserve(source.size());
  int line = 1;
  size_t at = 0;  // where LINE starts
  const auto skip_to = [&](int target, bool keep) {
    for (; line < target && at < source.size(); ++line) {
      size_t end = source.find('\n', at);
      end = end == std::string_view::npos ? source.size() : end + 1;
      if (keep) out.append(source.substr(at, end - at));
      at = end;
    }
  };
  for (const LineEdit& edit : edits) {
    skip_to(edit.first_line, true);
    // A last line without its line break gets one before what follows it.
    if (!out.empty() && out.back() != '\n' && at == source.size() && !edit.text.empty()) out += '\n';
    out += edit.text;
    skip_to(edit.first_line + edit.line_count, false);
  }
  out.append(source.substr(at));
  return out;
}

std::vector<std::string> CommentsOf(const SyntaxTree& tree) {
  std::vector<std::string> comments;
  for (const Token& token : tree.tokens())
    if (token.kind == TokenKind::kComment) comments.emplace_back(TrimRight(tree.Text(token)));
  return comments;
}

std::vector<std::string> CommentsOf(std::string_view text) {
  // As the syntax tree reads them, without its tokens: no other token holds a '#' or a quote, so
  // only strings (which end at their quote or their line) need reading through.
  std::vector<std::string> comments;
  const size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    const size_t at = text.find_first_of("#\"'", i);
    if (at == std::string_view::npos) break;
    if (text[at] == '#') {
      const size_t end = std::min(text.find('\n', at), n);
      comments.emplace_back(TrimRight(text.substr(at, end - at)));
      i = end;
      continue;
    }
    bool closed = false;
    i = syntax::StringEnd(text, at, &closed);
  }
  return comments;
}

}  // namespace pcfg
