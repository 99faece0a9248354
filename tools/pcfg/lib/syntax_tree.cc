#include "syntax_tree.h"

#include <algorithm>

namespace pcfg::syntax {

namespace {

bool IsSymbol(char c) {
  switch (c) {
    case '{':
    case '}':
    case '<':
    case '>':
    case '[':
    case ']':  // clang-format off
    case ':': case ',': case ';': case '-': case '/': case '.':
      return true;  // clang-format on
    default:
      return false;
  }
}

Tokens Scan(std::string_view s) {
  Tokens tokens;
  tokens.reserve(s.size() / 4 + 1);
  size_t i = 0;
  const size_t n = s.size();
  while (i < n) {
    const size_t start = i;
    const char c = s[i];
    TokenKind kind;
    if (IsSpace(c)) {
      while (i < n && IsSpace(s[i])) ++i;
      kind = TokenKind::kSpace;
    } else if (c == '#') {
      const size_t end = s.find('\n', i);
      i = end == std::string_view::npos ? n : end;
      kind = TokenKind::kComment;
    } else if (IsLetter(c)) {
      while (i < n && (IsLetter(s[i]) || IsDigit(s[i]))) ++i;
      kind = TokenKind::kIdentifier;
    } else if (IsDigit(c) || (c == '.' && i + 1 < n && IsDigit(s[i + 1]))) {
      const bool hex = c == '0' && i + 1 < n && (s[i + 1] == 'x' || s[i + 1] == 'X');
      ++i;
      while (i < n) {
        const char d = s[i];
        if (IsLetter(d) || IsDigit(d) || d == '.') {
          ++i;
        } else if ((d == '+' || d == '-') && !hex && (s[i - 1] == 'e' || s[i - 1] == 'E')) {
          ++i;
        } else {
          break;
        }
      }
      kind = TokenKind::kNumber;
    } else if (c == '"' || c == '\'') {
      bool closed = false;
      i = StringEnd(s, i, &closed);
      kind = closed ? TokenKind::kString : TokenKind::kError;
    } else if (IsSymbol(c)) {
      ++i;
      kind = TokenKind::kSymbol;
    } else {
      // One character, all of its UTF-8 bytes.
      ++i;
      while (i < n && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80) ++i;
      kind = TokenKind::kError;
    }
    if (i - start <= kMaxTokenLength) {
      tokens.emplace_back(kind, static_cast<uint32_t>(start), static_cast<uint32_t>(i));
      continue;
    }
    // Longer than a token can be: blanks in several pieces, anything else as errors.
    if (kind != TokenKind::kSpace) kind = TokenKind::kError;
    for (size_t at = start; at < i; at += kMaxTokenLength)
      tokens.emplace_back(kind, static_cast<uint32_t>(at),
                          static_cast<uint32_t>(std::min(i, at + kMaxTokenLength)));
  }
  return tokens;
}

}  // namespace

// Recursive descent over the significant tokens, with a depth limit as protobuf's parser has.
class Parser {
 public:
  explicit Parser(SyntaxTree& tree) : tree_(tree) {
    // Room for every token: only the pages written cost anything.
    significant_.reserve(tree.tokens_.size());
    for (uint32_t i = 0; i < tree.tokens_.size(); ++i)
      if (!tree.tokens_[i].trivia()) significant_.push_back(i);
  }

  // Text that leaves a block open reads everything after it as inside it. Read again so that
  // a line starting a message field at its first column (as every entry of the root is written)
  // ends the blocks still open: an entry being typed then swallows none of the entries below.
  // Text with every block closed is never read so.
  void RunRecoveringAtLineStarts() {
    recovering_ = true;
    tree_.nodes_.clear();
    tree_.errors_ = 0;
    pos_ = 0;
    depth_ = 0;
    left_open_ = 0;
    Run();
  }
  bool left_open() const { return left_open_ > 0; }

  void Run() {
    // At most one node for each significant token, but for the rare missing value.
    tree_.nodes_.reserve(significant_.size() + 16);
    Node document;
    document.kind = NodeKind::kDocument;
    document.end = static_cast<uint32_t>(tree_.tokens_.size());
    tree_.nodes_.push_back(document);
    rightmost_.assign(1, {0, -1});
    Fields(0, '\0');
    // A stray closing bracket at the top ends no block: it is an error, and reading goes on.
    while (!AtEnd()) {
      AddError(0, pos_, pos_ + 1);
      ++pos_;
      Fields(0, '\0');
    }
  }

 private:
  static constexpr int kMaxDepth = 100;

  bool AtEnd() const { return pos_ >= significant_.size(); }
  const Token& Peek() const { return tree_.tokens_[significant_[pos_]]; }
  char PeekSymbol() const {
    if (AtEnd() || Peek().kind != TokenKind::kSymbol) return '\0';
    return tree_.source_[Peek().begin];
  }
  uint32_t TokenAt(size_t significant) const {
    return significant < significant_.size() ? significant_[significant]
                                             : static_cast<uint32_t>(tree_.tokens_.size());
  }
  // The token index just past significant token LAST - 1.
  uint32_t EndAt(size_t last) const { return last == 0 ? 0 : significant_[last - 1] + 1; }

  int32_t AddNode(NodeKind kind, int32_t parent, size_t first) {
    Node node;
    node.kind = kind;
    node.first = node.end = TokenAt(first);
    node.parent = parent;
    tree_.nodes_.push_back(node);
    const int32_t index = static_cast<int32_t>(tree_.nodes_.size() - 1);
    // Nodes come in preorder: a new node's parent is on the path from the root to the last node.
    while (rightmost_.size() > 1 && rightmost_.back().node != parent) rightmost_.pop_back();
    int32_t& last_child = rightmost_.back().last_child;
    if (last_child >= 0) tree_.nodes_[static_cast<size_t>(last_child)].next_sibling = index;
    last_child = index;
    rightmost_.push_back({index, -1});
    return index;
  }
  void AddError(int32_t parent, size_t first, size_t end) {
    const int32_t error = AddNode(NodeKind::kError, parent, first);
    tree_.nodes_[static_cast<size_t>(error)].end = end > first ? EndAt(end) : TokenAt(first);
    ++tree_.errors_;
  }

  // Whether the next tokens are a field name at the first column of its line followed by a
  // message ('{', '<', or ':' then one of them).
  bool AtEntryLineStart() const {
    if (AtEnd() || Peek().kind != TokenKind::kIdentifier) return false;
    const uint32_t begin = Peek().begin;
    if (begin != 0 && tree_.source_[begin - 1] != '\n') return false;
    const auto symbol_at = [&](size_t at) {
      if (at >= significant_.size()) return '\0';
      const Token& token = tree_.tokens_[significant_[at]];
      return token.kind == TokenKind::kSymbol ? tree_.source_[token.begin] : '\0';
    };
    size_t next = pos_ + 1;
    if (symbol_at(next) == ':') ++next;
    return symbol_at(next) == '{' || symbol_at(next) == '<';
  }

  // Fields until CLOSER (or the end), as children of PARENT.
  void Fields(int32_t parent, char closer) {
    while (!AtEnd()) {
      const char symbol = PeekSymbol();
      if (symbol == closer && closer != '\0') return;
      if (recovering_ && closer != '\0' && AtEntryLineStart()) return;
      if (symbol == '}' || symbol == '>' || symbol == ']') {
        if (closer == '\0') return;  // the caller reports it
        // A closer of another kind: the block lacks its own; let an enclosing block have it.
        return;
      }
      if (Peek().kind == TokenKind::kIdentifier || symbol == '[') {
        Field(parent);
      } else {
        AddError(parent, pos_, pos_ + 1);
        ++pos_;
      }
    }
  }

  void Field(int32_t parent) {
    const size_t first = pos_;
    const int32_t field = AddNode(NodeKind::kField, parent, first);
    if (PeekSymbol() == '[') {  // [extension.name] or [type.url/Name]
      ++pos_;
      while (!AtEnd() && PeekSymbol() != ']' &&
             (Peek().kind == TokenKind::kIdentifier || PeekSymbol() == '.' || PeekSymbol() == '/'))
        ++pos_;
      if (PeekSymbol() == ']') {
        ++pos_;
      } else {
        ++tree_.errors_;
      }
    } else {
      ++pos_;
    }
    Node& node = tree_.nodes_[static_cast<size_t>(field)];
    node.name_end = EndAt(pos_);
    if (PeekSymbol() == ':') {
      tree_.nodes_[static_cast<size_t>(field)].colon = true;
      ++pos_;
    }
    const char symbol = PeekSymbol();
    if (symbol == '{' || symbol == '<') {
      Message(field);
    } else if (symbol == '[') {
      List(field);
    } else if (StartsValue()) {
      Value(field);
    } else {
      AddError(field, pos_, pos_);  // the value is missing
    }
    if (PeekSymbol() == ';' || PeekSymbol() == ',') ++pos_;
    tree_.nodes_[static_cast<size_t>(field)].end = EndAt(pos_);
  }

  bool StartsValue() const {
    if (AtEnd()) return false;
    const TokenKind kind = Peek().kind;
    return kind == TokenKind::kIdentifier || kind == TokenKind::kNumber || kind == TokenKind::kString ||
           PeekSymbol() == '-';
  }

  void Value(int32_t parent) {
    const int32_t value = AddNode(NodeKind::kValue, parent, pos_);
    if (PeekSymbol() == '-') ++pos_;
    if (!AtEnd() && Peek().kind == TokenKind::kString) {
      while (!AtEnd() && Peek().kind == TokenKind::kString) ++pos_;  // adjacent strings join
    } else if (!AtEnd() && (Peek().kind == TokenKind::kIdentifier || Peek().kind == TokenKind::kNumber)) {
      ++pos_;
    } else {
      ++tree_.errors_;  // a '-' and nothing to negate
    }
    tree_.nodes_[static_cast<size_t>(value)].end = EndAt(pos_);
  }

  // A bracketed group nested too deeply to read: one error node up to its matching closer.
  void SkipGroup(int32_t parent) {
    const size_t first = pos_;
    int depth = 0;
    do {
      const char symbol = PeekSymbol();
      if (symbol == '{' || symbol == '<' || symbol == '[') ++depth;
      if (symbol == '}' || symbol == '>' || symbol == ']') --depth;
      ++pos_;
    } while (!AtEnd() && depth > 0);
    AddError(parent, first, pos_);
  }

  void Message(int32_t parent) {
    if (depth_ >= kMaxDepth) return SkipGroup(parent);
    const char closer = PeekSymbol() == '{' ? '}' : '>';
    const int32_t message = AddNode(NodeKind::kMessage, parent, pos_);
    ++pos_;
    ++depth_;
    Fields(message, closer);
    --depth_;
    Close(message, closer);
  }

  void List(int32_t parent) {
    if (depth_ >= kMaxDepth) return SkipGroup(parent);
    const int32_t list = AddNode(NodeKind::kList, parent, pos_);
    ++pos_;
    ++depth_;
    while (!AtEnd() && PeekSymbol() != ']') {
      if (recovering_ && AtEntryLineStart()) break;
      const char symbol = PeekSymbol();
      if (symbol == '{' || symbol == '<') {
        Message(list);
      } else if (StartsValue()) {
        Value(list);
      } else if (symbol == '}' || symbol == '>') {
        break;  // an enclosing block's closer: the list lacks its ']'
      } else if (symbol != ',') {
        AddError(list, pos_, pos_ + 1);
        ++pos_;
        continue;
      }
      if (PeekSymbol() == ',') ++pos_;
    }
    --depth_;
    Close(list, ']');
  }

  void Close(int32_t block, char closer) {
    Node& node = tree_.nodes_[static_cast<size_t>(block)];
    if (PeekSymbol() == closer) {
      ++pos_;
    } else {
      node.closed = false;
      ++tree_.errors_;
      ++left_open_;
    }
    tree_.nodes_[static_cast<size_t>(block)].end = EndAt(pos_);
  }

  SyntaxTree& tree_;
  LargeVector<uint32_t> significant_;
  // The path from the root to the last node added, each with the last child it has so far.
  struct OnPath {
    int32_t node, last_child;
  };
  std::vector<OnPath> rightmost_;
  size_t pos_ = 0;
  int depth_ = 0;
  bool recovering_ = false;
  int left_open_ = 0;  // blocks without their closer
};

size_t StringEnd(std::string_view s, size_t open, bool* closed) {
  const char quote = s[open];
  size_t i = open + 1;
  *closed = false;
  while (i < s.size() && s[i] != '\n') {
    if (s[i] == '\\' && i + 1 < s.size() && s[i + 1] != '\n') {
      i += 2;
    } else if (s[i++] == quote) {
      *closed = true;
      break;
    }
  }
  return i;
}

Tokens Tokenize(std::string_view source) { return Scan(source); }

void SyntaxTree::IndexBytes(std::string_view source, uint32_t from, uint32_t to, ByteIndex* index) {
  uint32_t line_start = from;
  int tab_extra = 0;  // the columns tabs on this line added beyond their one byte
  ForEachMarkByte(source, from, to, [&](uint32_t at, unsigned char byte) {
    if (byte == '\n') {
      index->line_starts.push_back(at + 1);
      line_start = at + 1;
      tab_extra = 0;
    } else if (byte == '\t') {
      const int column = static_cast<int>(at - line_start) + tab_extra;  // the tokenizer's, 0-based
      const int after = ColumnAfterTab(column);
      tab_extra += after - column - 1;
      index->tabs.push_back(at);
      index->tab_columns.push_back(after);
    } else {
      if ((byte & 0xC0) == 0x80) index->continuations.push_back(at);
      if (byte >= 0xF0) index->four_byte_leads.push_back(at);
    }
  });
}

SyntaxTree::SyntaxTree(std::string_view source) : source_(source), tokens_(Scan(source)) {
  bytes_.line_starts.push_back(0);
  IndexBytes(source, 0, static_cast<uint32_t>(source.size()), &bytes_);
  Parser parser(*this);
  parser.Run();
  if (parser.left_open()) parser.RunRecoveringAtLineStarts();
  for (const Token& token : tokens_) errors_ += token.kind == TokenKind::kError;
}

namespace {

// Replaces V[FROM, TO) with [FIRST, LAST), moving the tail once.
template <typename Vector, typename Iterator>
void ReplaceRange(Vector& v, size_t from, size_t to, Iterator first, Iterator last) {
  const size_t count = static_cast<size_t>(last - first), old = to - from;
  if (count > old) {
    v.insert(v.begin() + static_cast<std::ptrdiff_t>(to), first + static_cast<std::ptrdiff_t>(old), last);
  } else if (count < old) {
    v.erase(v.begin() + static_cast<std::ptrdiff_t>(from + count),
            v.begin() + static_cast<std::ptrdiff_t>(to));
  }
  std::copy(first, first + static_cast<std::ptrdiff_t>(std::min(count, old)),
            v.begin() + static_cast<std::ptrdiff_t>(from));
}

}  // namespace

std::pair<size_t, size_t> ReplaceMarks(std::vector<uint32_t>& marks, uint32_t from, uint32_t to,
                                       const std::vector<uint32_t>& fresh, int64_t delta) {
  const size_t lo = static_cast<size_t>(std::lower_bound(marks.begin(), marks.end(), from) - marks.begin());
  const size_t hi = static_cast<size_t>(std::lower_bound(marks.begin(), marks.end(), to) - marks.begin());
  ReplaceRange(marks, lo, hi, fresh.begin(), fresh.end());
  for (size_t i = lo + fresh.size(); i < marks.size(); ++i)
    marks[i] = static_cast<uint32_t>(marks[i] + delta);
  return {lo, hi};
}

SyntaxTree::Replaced SyntaxTree::ReplaceRootEntry(std::string_view source, int32_t entry,
                                                  const SyntaxTree& entry_tree) {
  const Node old = nodes_[static_cast<size_t>(entry)];
  const uint32_t begin = tokens_[old.first].begin;
  const uint32_t old_end = tokens_[old.end - 1].end();
  const int64_t delta = static_cast<int64_t>(entry_tree.source().size()) - (old_end - begin);

  // The line of ENTRY's first byte to the end of the line of its last are indexed anew: the
  // columns of tabs after it on that line may have moved.
  const uint32_t line_start =
      *(std::upper_bound(bytes_.line_starts.begin(), bytes_.line_starts.end(), begin) - 1);
  const auto next_line = std::upper_bound(bytes_.line_starts.begin(), bytes_.line_starts.end(), old_end);
  const uint32_t old_lines_end =
      next_line == bytes_.line_starts.end() ? static_cast<uint32_t>(source_.size()) : *next_line;
  const uint32_t new_lines_end = static_cast<uint32_t>(old_lines_end + delta);
  ByteIndex fresh;
  IndexBytes(source, line_start, new_lines_end, &fresh);
  // Line starts are the bytes after line breaks: those in (LINE_START, OLD_LINES_END] are ENTRY's.
  ReplaceMarks(bytes_.line_starts, line_start + 1, old_lines_end + 1, fresh.line_starts, delta);
  ReplaceMarks(bytes_.continuations, line_start, old_lines_end, fresh.continuations, delta);
  ReplaceMarks(bytes_.four_byte_leads, line_start, old_lines_end, fresh.four_byte_leads, delta);
  const auto [tab, tab_end] = ReplaceMarks(bytes_.tabs, line_start, old_lines_end, fresh.tabs, delta);
  ReplaceRange(bytes_.tab_columns, tab, tab_end, fresh.tab_columns.begin(), fresh.tab_columns.end());

  // Tokens: ENTRY's are ENTRY_TREE's, moved to BEGIN; those after move by DELTA.
  const int64_t token_delta = static_cast<int64_t>(entry_tree.tokens_.size()) - (old.end - old.first);
  for (uint32_t i = old.first; i < old.end; ++i) errors_ -= tokens_[i].kind == TokenKind::kError;
  errors_ += entry_tree.errors_;
  ReplaceRange(tokens_, old.first, old.end, entry_tree.tokens_.begin(), entry_tree.tokens_.end());
  for (size_t i = old.first; i < old.first + entry_tree.tokens_.size(); ++i) tokens_[i].begin += begin;
  for (size_t i = old.first + entry_tree.tokens_.size(); i < tokens_.size(); ++i)
    tokens_[i].begin = static_cast<uint32_t>(tokens_[i].begin + delta);

  // Nodes are numbered in preorder: ENTRY's subtree runs from ENTRY to its next sibling, or to the
  // end for the last field of the root.
  const auto subtree_end = old.next_sibling >= 0 ? static_cast<size_t>(old.next_sibling) : nodes_.size();
  const int64_t node_delta = static_cast<int64_t>(entry_tree.nodes_.size() - 1) - (subtree_end - entry);
  const auto moved_node = [&](int32_t n) {
    return n >= static_cast<int64_t>(subtree_end) ? static_cast<int32_t>(n + node_delta) : n;
  };
  const auto moved_token = [&](uint32_t t) {
    return t >= old.end ? static_cast<uint32_t>(t + token_delta) : t;
  };
  Nodes replacement(entry_tree.nodes_.begin() + 1, entry_tree.nodes_.end());
  const auto placed = [&](int32_t n) { return n < 0 ? n : n - 1 + entry; };
  for (Node& node : replacement) {
    node.first += old.first;
    node.end += old.first;
    if (node.kind == NodeKind::kField) node.name_end += old.first;
    node.parent = node.parent == 0 ? old.parent : placed(node.parent);
    node.next_sibling = placed(node.next_sibling);
  }
  replacement[0].next_sibling = moved_node(old.next_sibling);
  ReplaceRange(nodes_, static_cast<size_t>(entry), subtree_end, replacement.begin(), replacement.end());
  const size_t replaced_end = static_cast<size_t>(entry) + replacement.size();
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (i == static_cast<size_t>(entry)) i = replaced_end;
    if (i >= nodes_.size()) break;
    Node& node = nodes_[i];
    node.first = moved_token(node.first);
    node.end = moved_token(node.end);
    if (node.kind == NodeKind::kField) node.name_end = moved_token(node.name_end);
    node.parent = moved_node(node.parent);
    node.next_sibling = moved_node(node.next_sibling);
  }
  source_ = source;
  return {entry, begin, old_end, delta, static_cast<int32_t>(subtree_end), node_delta};
}

std::string_view SyntaxTree::Text(uint32_t first, uint32_t end) const {
  if (first >= end || first >= tokens_.size()) return {};
  const uint32_t begin = tokens_[first].begin;
  return source_.substr(begin, tokens_[std::min<size_t>(end, tokens_.size()) - 1].end() - begin);
}

std::string SyntaxTree::Name(const Node& field, std::string_view source) const {
  std::string name;
  for (uint32_t i = field.first; i < field.name_end; ++i)
    if (!tokens_[i].trivia()) name += source.substr(tokens_[i].begin, tokens_[i].length);
  return name;
}

std::string SyntaxTree::Print() const {
  std::string text;
  text.reserve(source_.size());
  for (const Token& token : tokens_) text += Text(token);
  return text;
}

std::vector<int32_t> SyntaxTree::OutermostNodeAtEachToken() const {
  std::vector<int32_t> at(tokens_.size(), -1);
  // Parents come before their children: the first node to claim a token is the outermost.
  for (size_t n = 1; n < nodes_.size(); ++n)
    if (nodes_[n].first < nodes_[n].end && at[nodes_[n].first] < 0)
      at[nodes_[n].first] = static_cast<int32_t>(n);
  return at;
}

namespace {

// How many of the sorted POSITIONS lie in [from, to).
size_t CountIn(const std::vector<uint32_t>& positions, uint32_t from, uint32_t to) {
  return static_cast<size_t>(std::lower_bound(positions.begin(), positions.end(), to) -
                             std::lower_bound(positions.begin(), positions.end(), from));
}

}  // namespace

TextPosition SyntaxTree::Position(uint32_t offset) const {
  offset = std::min<uint32_t>(offset, static_cast<uint32_t>(source_.size()));
  const auto after = std::upper_bound(bytes_.line_starts.begin(), bytes_.line_starts.end(), offset);
  const uint32_t start = *(after - 1);
  TextPosition position;
  position.line = static_cast<int>(after - bytes_.line_starts.begin());
  position.column = static_cast<int>(offset - start) + 1;
  // A UTF-16 unit per character, two for one of four bytes (a surrogate pair).
  position.utf16_column = static_cast<int>(offset - start - CountIn(bytes_.continuations, start, offset) +
                                           CountIn(bytes_.four_byte_leads, start, offset)) +
                          1;
  return position;
}

int SyntaxTree::TokenizerColumn(uint32_t offset) const {
  offset = std::min<uint32_t>(offset, static_cast<uint32_t>(source_.size()));
  const uint32_t start =
      *(std::upper_bound(bytes_.line_starts.begin(), bytes_.line_starts.end(), offset) - 1);
  const auto tab = std::lower_bound(bytes_.tabs.begin(), bytes_.tabs.end(), offset);  // the first at or after
  if (tab == bytes_.tabs.begin() || *(tab - 1) < start) return static_cast<int>(offset - start) + 1;
  const size_t last = static_cast<size_t>(tab - bytes_.tabs.begin()) - 1;
  return bytes_.tab_columns[last] + static_cast<int>(offset - bytes_.tabs[last] - 1) + 1;
}

uint32_t SyntaxTree::OffsetAtTokenizerColumn(int line, int column) const {
  const uint32_t start = LineStart(line);
  const uint32_t next = LineStart(line + 1);
  const uint32_t end = next > start && next <= source_.size() && source_[next - 1] == '\n' ? next - 1 : next;
  const int target = std::max(column, 1) - 1;
  const size_t lo = static_cast<size_t>(std::lower_bound(bytes_.tabs.begin(), bytes_.tabs.end(), start) -
                                        bytes_.tabs.begin());
  const size_t hi = static_cast<size_t>(std::lower_bound(bytes_.tabs.begin(), bytes_.tabs.end(), end) -
                                        bytes_.tabs.begin());
  // The last tab of the line whose column after it is at most TARGET, and the one after it.
  const size_t k = static_cast<size_t>(
      std::upper_bound(bytes_.tab_columns.begin() + static_cast<std::ptrdiff_t>(lo),
                       bytes_.tab_columns.begin() + static_cast<std::ptrdiff_t>(hi), target) -
      bytes_.tab_columns.begin());
  uint64_t offset =
      k == lo ? uint64_t{start} + static_cast<uint64_t>(target)
              : uint64_t{bytes_.tabs[k - 1]} + 1 + static_cast<uint64_t>(target - bytes_.tab_columns[k - 1]);
  if (k < hi) offset = std::min<uint64_t>(offset, bytes_.tabs[k] + 1);  // TARGET falls inside that tab
  return static_cast<uint32_t>(std::min<uint64_t>(offset, end));
}

}  // namespace pcfg::syntax
