// The text form as its author wrote it: a lossless syntax tree. Every byte of the input belongs
// to exactly one token, trivia (blanks, line breaks, comments) included, so that the tokens in
// order give back the input byte for byte. The tree is built for any input: where the text breaks
// off or holds what the text format does not allow, an error node takes the bytes and the rest of
// the file is read as usual. What the text means stays protobuf's TextFormat's to say; the tree
// knows layout and names, not field numbers, so that it can be read without the schema.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "large_allocator.h"

namespace pcfg::syntax {

enum class TokenKind : uint8_t {
  kSpace,       // blanks, tabs, carriage returns and line breaks
  kComment,     // '#' to the end of its line, the line break excluded
  kIdentifier,  // field names, enumeration names, true, inf
  kNumber,      // 12, 0x1f, 1.5e3, .5, 2f (a sign is a separate kSymbol)
  kString,      // "..." or '...', with its quotes
  kSymbol,      // one of { } < > [ ] : , ; - / .
  kError,       // a byte the text format has no use for, or a string left open at its line's end
};

// Eight bytes: a 6 MB text has over a million tokens. A token is at most kMaxTokenLength bytes;
// the scanner cuts a longer run of blanks into several, and anything else that long into error
// tokens (no text the tree can lay out or locate in has one).
constexpr uint32_t kMaxTokenLength = (uint32_t{1} << 24) - 1;
struct Token {
  Token() : length(0) {}
  Token(TokenKind kind, uint32_t begin, uint32_t end) : begin(begin), length(end - begin), kind(kind) {}
  uint32_t begin = 0;  // byte offset into the source
  uint32_t length : 24;
  TokenKind kind = TokenKind::kSpace;
  uint32_t end() const { return begin + length; }
  bool trivia() const { return kind == TokenKind::kSpace || kind == TokenKind::kComment; }
};
static_assert(sizeof(Token) == 8);

enum class NodeKind : uint8_t {
  kDocument,  // the fields of the root message
  kField,     // a name, an optional ':', then a value, message or list; optional ';' or ','
  kMessage,   // '{' fields '}' or '<' fields '>'
  kList,      // '[' values or messages, separated by ',' ']'
  kValue,     // a scalar: an optional '-' and a number or identifier, or adjacent strings
  kError,     // tokens that fit nowhere, or the place where something is missing
};

// A node spans the tokens [first, end) without the trivia around it. Its children (the fields of
// a document or message, the elements of a list, a field's value) are a chain of siblings, so
// that a node holds no allocation of its own. Nodes are numbered in preorder, so a node's first
// child, when it has one, is the node after it (SyntaxTree::FirstChild).
struct Node {
  NodeKind kind;
  // A field: whether a ':' follows its name. A message or list: whether its closing bracket is there.
  bool colon = false;
  bool closed = true;
  uint32_t first = 0, end = 0;
  int32_t parent = -1;
  int32_t next_sibling = -1;
  // A field: the end of its name's tokens, which start at FIRST (an '[extension]' name spans several).
  uint32_t name_end = 0;
};
// Kept small: a 6 MB configuration has nearly half a million nodes, a 38 MB one two and a half
// million.
static_assert(sizeof(Node) == 24);

// A tree's buffers grow with the input: huge pages spare them most of their first-touch faults.
using Tokens = LargeVector<Token>;
using Nodes = LargeVector<Node>;

// The children of a node, for range-based for loops: each is a node index.
class Children {
 public:
  class Iterator {
   public:
    Iterator(const Nodes* nodes, int32_t at) : nodes_(nodes), at_(at) {}
    int32_t operator*() const { return at_; }
    Iterator& operator++() {
      at_ = (*nodes_)[static_cast<size_t>(at_)].next_sibling;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return at_ != other.at_; }

   private:
    const Nodes* nodes_;
    int32_t at_;
  };
  Children(const Nodes& nodes, int32_t first_child) : nodes_(&nodes), first_(first_child) {}
  Iterator begin() const { return {nodes_, first_}; }
  Iterator end() const { return {nodes_, -1}; }

 private:
  const Nodes* nodes_;
  int32_t first_;
};

// The bytes the tokenizer reads as blanks, and those that start and continue names.
inline bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}
inline bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Protobuf's tokenizer advances a tab to the next multiple of 8 columns: the 0-based column after
// a tab at 0-based COLUMN.
constexpr int ColumnAfterTab(int column) { return column + 8 - column % 8; }
// The 1-based column the tokenizer gives the byte after LINE, which starts at a line's start.
inline int TokenizerColumnAfter(std::string_view line) {
  int column = 0;
  for (const char c : line) column = c == '\t' ? ColumnAfterTab(column) : column + 1;
  return column + 1;
}

// Where the string whose opening quote is S[OPEN] ends: just past its closing quote (*CLOSED), or
// at its line's end when it has none. A backslash escapes the byte after it, but not a line break.
size_t StringEnd(std::string_view s, size_t open, bool* closed);

// Sorted byte offsets MARKS (line starts, say) after bytes [FROM, TO) of their text were
// replaced: the marks in [FROM, TO) become FRESH and the later ones move by DELTA. Returns the
// index range the replaced marks held, for a vector kept in step with MARKS.
std::pair<size_t, size_t> ReplaceMarks(std::vector<uint32_t>& marks, uint32_t from, uint32_t to,
                                       const std::vector<uint32_t>& fresh, int64_t delta);

// Calls MARK(at, byte) for every line break, tab and byte of a multi-byte UTF-8 sequence in
// SOURCE[FROM, TO), in order: what positions in lines and UTF-16 units are counted from. Eight
// bytes without one are passed over at a time.
template <typename Mark>
void ForEachMarkByte(std::string_view source, uint32_t from, uint32_t to, Mark mark) {
  constexpr uint64_t kOnes = 0x0101010101010101, kHighBits = 0x8080808080808080;
  uint32_t at = from;
  while (at < to) {
    if (to - at >= 8) {
      uint64_t word;
      std::memcpy(&word, source.data() + at, 8);
      // The high bit of each byte below 11 (line break, tab and the like) or of 128 and up, and
      // perhaps of a byte after one below 11: each flagged byte is looked at.
      uint64_t flagged = (((word - 11 * kOnes) & ~word) | word) & kHighBits;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
      for (; flagged != 0; flagged &= flagged - 1) {
        const uint32_t i = at + static_cast<uint32_t>(__builtin_ctzll(flagged)) / 8;
        const unsigned char byte = static_cast<unsigned char>(source[i]);
        if (byte == '\n' || byte == '\t' || byte >= 0x80) mark(i, byte);
      }
      at += 8;
      continue;
#else
      if (flagged == 0) {
        at += 8;
        continue;
      }
#endif
    }
    for (const uint32_t end = std::min(at + 8, to); at < end; ++at) {
      const unsigned char byte = static_cast<unsigned char>(source[at]);
      if (byte == '\n' || byte == '\t' || byte >= 0x80) mark(at, byte);
    }
  }
}

// The tokens of SOURCE alone, trivia included, without building a tree.
Tokens Tokenize(std::string_view source);

struct TextPosition {
  int line = 1;          // 1-based
  int column = 1;        // 1-based, in bytes
  int utf16_column = 1;  // 1-based, in UTF-16 code units, as editors count
};

class SyntaxTree {
 public:
  // Reads SOURCE, which must outlive the tree.
  explicit SyntaxTree(std::string_view source);

  std::string_view source() const { return source_; }
  const Tokens& tokens() const { return tokens_; }
  const Nodes& nodes() const { return nodes_; }
  const Node& root() const { return nodes_[0]; }
  const Node& node(int32_t index) const { return nodes_[static_cast<size_t>(index)]; }
  // The first child of NODE, one of this tree's nodes, or -1.
  int32_t FirstChild(const Node& node) const {
    const auto next = static_cast<size_t>(&node - nodes_.data()) + 1;
    return next < nodes_.size() && nodes_[next].parent == static_cast<int32_t>(next - 1)
               ? static_cast<int32_t>(next)
               : -1;
  }
  Children ChildrenOf(const Node& node) const { return Children(nodes_, FirstChild(node)); }
  // The value of NODE when it is a field (its first child), or null: no field, or none written.
  const Node* ValueOf(const Node& node) const {
    const int32_t value = node.kind == NodeKind::kField ? FirstChild(node) : -1;
    return value < 0 ? nullptr : &nodes_[static_cast<size_t>(value)];
  }
  bool has_errors() const { return errors_ > 0; }

  std::string_view Text(const Token& token) const { return source_.substr(token.begin, token.length); }
  // The bytes of tokens [first, end).
  std::string_view Text(uint32_t first, uint32_t end) const;
  // A node's bytes, from its first token to its last.
  std::string_view Text(const Node& node) const { return Text(node.first, node.end); }
  // The name a field node gives, as written ("camx", "[ext.name]").
  std::string Name(const Node& field) const { return Name(field, source_); }
  // The same name read from SOURCE, another text holding the same bytes there.
  std::string Name(const Node& field, std::string_view source) const;
  // Whether field node FIELD gives NAME, without building the name (read from SOURCE if given).
  bool NameIs(const Node& field, std::string_view name, std::string_view source = {}) const {
    if (source.data() == nullptr) source = source_;
    if (field.name_end == field.first + 1)
      return source.substr(tokens_[field.first].begin, tokens_[field.first].length) == name;
    return Name(field, source) == name;
  }

  // The tokens in order, trivia included: the source again, byte for byte.
  std::string Print() const;

  // Makes this the tree of SOURCE, a text that differs from this tree's only inside root field
  // ENTRY: ENTRY_TREE is the tree of ENTRY's new bytes alone, which start where ENTRY started.
  // The caller vouches that both trees are free of errors, that ENTRY_TREE holds one root field
  // spanning all of its bytes, and that the bytes at the seams of ENTRY (its first and last) are
  // unchanged and border on trivia or a symbol: tokenizing and parsing SOURCE then reaches ENTRY
  // and leaves it as here, and the tree that results equals SyntaxTree(SOURCE), node for node.
  // Costs a pass over the tokens and nodes after ENTRY, not a parse of the rest.
  struct Replaced {
    int32_t entry = -1;               // the root field replaced, the same node before and after
    uint32_t begin = 0, old_end = 0;  // its bytes before
    int64_t byte_delta = 0;           // how far the bytes after it moved
    int32_t old_nodes_end = 0;        // the node after its subtree, before
    int64_t node_delta = 0;           // how far the nodes after it moved
  };
  Replaced ReplaceRootEntry(std::string_view source, int32_t entry, const SyntaxTree& entry_tree);

  // For each token, the outermost node that starts at it, or -1: where a position protobuf
  // reports, or the token after a comment, leads in the tree.
  std::vector<int32_t> OutermostNodeAtEachToken() const;

  // Line and columns of byte OFFSET, in O(log n) whatever the line's length.
  TextPosition Position(uint32_t offset) const;
  // Protobuf's tokenizer counts columns in bytes, a tab advancing to the next multiple of 8: the
  // 1-based column it gives byte OFFSET, and the byte where 1-based COLUMN of LINE falls (the
  // first whose column reaches it, at most the line's end).
  int TokenizerColumn(uint32_t offset) const;
  uint32_t OffsetAtTokenizerColumn(int line, int column) const;
  // The byte where 1-based LINE starts, or the source's size past the last line.
  uint32_t LineStart(int line) const {
    if (line < 1) return 0;
    return static_cast<size_t>(line) <= bytes_.line_starts.size()
               ? bytes_.line_starts[static_cast<size_t>(line) - 1]
               : static_cast<uint32_t>(source_.size());
  }

 private:
  std::string_view source_;
  Tokens tokens_;
  Nodes nodes_;
  // Where lines start, and where columns stop being bytes: continuation bytes of UTF-8 (no
  // UTF-16 unit of their own), four-byte leads (two units), and tabs with the tokenizer's
  // column after each.
  struct ByteIndex {
    std::vector<uint32_t> line_starts, continuations, four_byte_leads, tabs;
    std::vector<int> tab_columns;
  };
  ByteIndex bytes_;
  int errors_ = 0;

  // Adds the marks of SOURCE's bytes [FROM, TO) to INDEX; FROM must start a line.
  static void IndexBytes(std::string_view source, uint32_t from, uint32_t to, ByteIndex* index);

  friend class Parser;
};

}  // namespace pcfg::syntax
