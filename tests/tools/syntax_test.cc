// The lossless syntax tree of the text form and fmt's layout of it: tokens no token can hold,
// errors that leave the rest of the file readable, tokenizer columns, and a table of layouts. That
// the tree keeps every byte and cuts protobuf's tokens is the fmt fuzz target's to hold.
#include <gtest/gtest.h>

#include <string>

#include "formats.h"
#include "parse_in_two.h"
#include "pcfg_test_support.h"
#include "syntax_tree.h"
#include "text_formatting.h"
#include "text_layout.h"

namespace {

using pcfg::syntax::NodeKind;
using pcfg::syntax::SyntaxTree;

// A token holds at most 16 MiB: a longer run of blanks is read as several, and anything else that
// long is an error, never a token cut short.
TEST(SyntaxTree, TokensLongerThanATokenHolds) {
  const std::string blanks = "a: 1" + std::string(pcfg::syntax::kMaxTokenLength + 2, ' ') + "b: 2";
  const SyntaxTree spaced(blanks);
  EXPECT_FALSE(spaced.has_errors());
  EXPECT_EQ(spaced.Print(), blanks);
  int fields = 0;
  for (const int32_t child : spaced.ChildrenOf(spaced.root()))
    fields += spaced.node(child).kind == NodeKind::kField;
  EXPECT_EQ(fields, 2);
  const std::string text = "s: \"" + std::string(pcfg::syntax::kMaxTokenLength, 'x') + "\"";
  const SyntaxTree tree(text);
  EXPECT_TRUE(tree.has_errors());
  EXPECT_EQ(tree.Print(), text);
}

TEST(SyntaxTree, ErrorsLeaveTheRestOfTheFileReadable) {
  struct Row {
    const char* text;
    bool errors;
    std::vector<std::string> root_fields;
  };
  std::string deep;  // nested past what is read: one error up to the matching closer
  for (int i = 0; i < 150; ++i) deep += "a { ";
  deep += std::string(150, '}') + " b: 2";
  const Row rows[] = {
      {"a { b: 1 } c: 2", false, {"a", "c"}},
      {deep.c_str(), true, {"a", "b"}},
      {"a: [1 ; 2] b: 3", true, {"a", "b"}},
      {"a: [1, 2 } b: 3", true, {"a", "b"}},
      {"a { b: 1 ! } c: 2", true, {"a", "c"}},
      {"a { b: } c: 2", true, {"a", "c"}},
      {"a { b: 1 \n c: 2", true, {"a"}},  // the open block takes the rest
      // but for a message field at a line's first column: there an entry of the root begins
      {"a { b: 1\nc {\n}\nf <>", true, {"a", "c", "f"}},
      {"a { b: 1\nd: { e: 2 }", true, {"a", "d"}},
      {"a { b: \"open\nc { }\n", true, {"a", "c"}},
      {"a { b: [1,\nc { }", true, {"a", "c"}},
      {"a {\nb: 1\n", true, {"a"}},        // a scalar field: still inside
      {"a {\nb {\n}\n}\n", false, {"a"}},  // every block closed: nested as written
      {"} a: 1", true, {"a"}},
      {"a: [1, {x: 2}, 3] b: 'x\n", true, {"a", "b"}},
      {"a < b: 1 > ; c: \"s\" \"t\"", false, {"a", "c"}},
      {"[ext.name]: 1, [type.googleapis.com/x.Y] { } d: 2",
       false,
       {"[ext.name]", "[type.googleapis.com/x.Y]", "d"}},
  };
  for (const Row& row : rows) {
    const SyntaxTree tree(row.text);
    EXPECT_EQ(tree.has_errors(), row.errors) << row.text;
    std::vector<std::string> fields;
    for (int32_t child : tree.ChildrenOf(tree.root()))
      if (tree.node(child).kind == NodeKind::kField) fields.push_back(tree.Name(tree.node(child)));
    EXPECT_EQ(fields, row.root_fields) << row.text;
  }
}

TEST(SyntaxTree, TokenizerColumnsCountTabsToMultiplesOfEight) {
  // Line 2: "ab", a tab (to column 8), "cdefghi", a tab in column 15 (to 16: one column wide),
  // "d"; 0-based tokenizer columns.
  const std::string text = "x\nab\tcdefghi\td\n\te";
  const SyntaxTree tree(text);
  const uint32_t line2 = 2;
  struct Row {
    uint32_t offset;
    int column;  // 1-based, as diagnostics give it
  };
  const Row rows[] = {{line2, 1},       {line2 + 2, 3},   {line2 + 3, 9}, {line2 + 9, 15},
                      {line2 + 10, 16}, {line2 + 11, 17}, {16, 9}};
  for (const Row& row : rows) {
    EXPECT_EQ(tree.TokenizerColumn(row.offset), row.column) << row.offset;
    const int line = tree.Position(row.offset).line;
    EXPECT_EQ(tree.OffsetAtTokenizerColumn(line, row.column), row.offset) << row.offset;
  }
  // A column inside a tab's stretch falls on the byte after the tab; one past the end, on the end.
  EXPECT_EQ(tree.OffsetAtTokenizerColumn(2, 6), line2 + 3);
  EXPECT_EQ(tree.OffsetAtTokenizerColumn(2, 99), line2 + 12);
  EXPECT_EQ(tree.OffsetAtTokenizerColumn(3, 1), 15u);
}

std::string LaidOut(const std::string& text) { return pcfg::LayOutText(SyntaxTree(text)); }

TEST(Layout, Table) {
  const std::string header = pcfg::kTextHeader;
  const std::string list_of_20 = [] {
    std::string list;
    for (int i = 0; i < 20; ++i) list += std::string(i ? ", " : "") + "STREAM_RAW8_NATIVE";
    return list;
  }();
  struct Row {
    const char* what;
    std::string in, out;  // OUT without the header, which comes first
  };
  const Row rows[] = {
      {"fields in the order written, one per line", "b: 1 a { d: 2\n c: 3 }",
       "b: 1\na {\n  d: 2\n  c: 3\n}\n"},
      {"a message written on one line stays so", "a { b: 1 c { d: 2 } }\n", "a { b: 1 c { d: 2 } }\n"},
      {"an empty message", "a {\n}\nb < >", "a {}\nb {}\n"},
      {"an empty list", "c: []\nd: [ ]\n", "c: []\nd: []\n"},
      {"blanks and carriage returns at the ends of lines go", "a: 1  # note \t\r\nb: 2\r\n",
       "a: 1  # note\nb: 2\n"},
      {"':' only after scalar names", "a: { b: 1 }\nc: [1,2]\nd: [{e: 1}, {e: 2}]\n",
       "a { b: 1 }\nc: [1, 2]\nd [{ e: 1 }, { e: 2 }]\n"},
      {"names and numbers as written", "type: CAMERA_MODEL_OV6211 n: 0x1F f: -1.5e3 s: 'x' \"y\"\n",
       "type: CAMERA_MODEL_OV6211\nn: 0x1F\nf: -1.5e3\ns: 'x' \"y\"\n"},
      {"separators dropped", "a: 1; b: 2,\nc { d: 3; }", "a: 1\nb: 2\nc { d: 3 }\n"},
      {"blank lines: runs kept as one, none at the edges of a block",
       "a: 1\n\n\n\nb: 2\nc {\n\n  d: 3\n\n}\n", "a: 1\n\nb: 2\nc {\n  d: 3\n}\n"},
      {"comments: leading, trailing, at the end of a block and of the file",
       "# lead\na: 1  # trail\nb {  # open\n  c: 2\n  # end of b\n}\n# last\n",
       "# lead\na: 1  # trail\nb {  # open\n  c: 2\n  # end of b\n}\n# last\n"},
      {"a comment before a separator stays after its field", "a: 1  # one\n, b: 2 # two\n;\n",
       "a: 1  # one\nb: 2  # two\n"},
      {"a comment in a list puts one element per line", "s: [A,  # first\n B]\n",
       "s: [\n  A,  # first\n  B\n]\n"},
      {"a comment in a list of messages", "d: [{e: 1},  # one\n {e: 2}]\n",
       "d [\n  { e: 1 },  # one\n  { e: 2 }\n]\n"},
      {"a long list wraps under its first element", "x { streams: [" + list_of_20 + "] }\n",
       "x {\n  streams: [STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE,\n"
       "            STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE,\n"
       "            STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE,\n"
       "            STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE,\n"
       "            STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE, STREAM_RAW8_NATIVE]\n}\n"},
      {"a one-line message of exactly the width stays", "p { id: \"" + std::string(88, 'i') + "\" }\n",
       "p { id: \"" + std::string(88, 'i') + "\" }\n"},
      {"a list that fills exactly the width stays on its line",
       "s: [" + std::string(46, 'X') + ", " + std::string(47, 'Y') + "]\n",
       "s: [" + std::string(46, 'X') + ", " + std::string(47, 'Y') + "]\n"},
      {"one column more and it wraps", "s: [" + std::string(46, 'X') + ", " + std::string(48, 'Y') + "]\n",
       "s: [" + std::string(46, 'X') + ",\n    " + std::string(48, 'Y') + "]\n"},
      {"a one-line message over the width opens up", "p { id: \"" + std::string(90, 'i') + "\" t: 1 }\n",
       "p {\n  id: \"" + std::string(90, 'i') + "\"\n  t: 1\n}\n"},
  };
  for (const Row& row : rows) {
    const std::string once = LaidOut(row.in);
    EXPECT_EQ(once, header + row.out) << row.what;
    EXPECT_EQ(LaidOut(once), once) << row.what << ": laying out again changes nothing";
  }
  // A text that starts with the header keeps it, once.
  EXPECT_EQ(LaidOut(header + "a: 1\n"), header + "a: 1\n");
}

// fmt proves a layout by the tokens protobuf's parser reads: only separators that mean nothing
// where they stand may come or go, and nothing else may differ.
TEST(Layout, SameTextFormatTokens) {
  struct Row {
    const char* what;
    std::string a, b;
    bool same;
  };
  const Row rows[] = {
      {"blanks and comments", "a: 1 b: 2", "a:1\n# note\nb:2  # more\n", true},
      {"':' before a message", "a: { b: 1 }", "a { b: 1 }", true},
      {"':' before a list of messages", "d: [{e: 1}, <e: 2>]", "d [{e: 1}, {e: 2}]", true},
      {"'<' '>' for '{' '}'", "a < b: 1 >", "a { b: 1 }", true},
      {"a ';' or ',' after a field", "a: 1; b: 2, c { d: 3; } e: X,", "a: 1 b: 2 c { d: 3 } e: X", true},
      {"a sign apart from its number", "a: - 5", "a: -5", true},
      {"':' before a scalar", "a: 1", "a 1", false},
      {"':' before a list of scalars", "c: [1]", "c [1]", false},
      {"':' inside a list", "d [{e: 1}]", "d [: {e: 1}]", false},
      {"a list's own ','", "c: [A, B]", "c: [A B]", false},
      {"two separators", "a: 1; b: 2", "a: 1;; b: 2", false},
      {"a separator before a value", "e: X", "e: ; X", false},
      {"a separator opening a block", "c { d: 1 }", "c { ; d: 1 }", false},
      {"a separator between strings that join", "s: 'x' 'y'", "s: 'x'; 'y'", false},
      {"brackets that do not pair", "a { b: 1 }", "a < b: 1 }", false},
      {"an unclosed block", "a { b: 1 }", "a { b: 1 ", false},
      {"a token split", "a: 12", "a: 1 2", false},
      {"a suffix joined", "a: 1.5 f", "a: 1.5f", false},
      {"another value", "a: FOO", "a: foo", false},
      {"text the tokenizer rejects", "a: 1x", "a: 1x", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(pcfg::SameTextFormatTokens(row.a, row.b), row.same) << row.what;
    EXPECT_EQ(pcfg::SameTextFormatTokens(row.b, row.a), row.same) << row.what << ", the other way";
  }
}

// A large text is proven by pieces, cut where a field of the root starts a line in both texts:
// a piece laid out as written is not read again, and a piece that lost a list's ',' is found
// whichever thread reads it; a text laid out already needs no proof at all.
TEST(Layout, LargeTextsAreProvenByPieces) {
  std::string text;
  for (int i = 0; text.size() < pcfg::kSmallestInputWorthCutting * 2; ++i)
    text += "camera_sets < peripheral_id: \"s" + std::to_string(i) +
            "\" camera_peripheral_ids: [\"a\", \"b\"] >\n";
  const pcfg::TextLayoutResult layout = pcfg::LayOutAndReparse("big.txtpb", text);
  EXPECT_TRUE(layout.same_tokens);
  EXPECT_FALSE(layout.formatted_parsed) << "proven by its tokens, not parsed again";
  EXPECT_EQ(layout.formatted.find_first_of("<>"), std::string::npos);
  const pcfg::TextLayoutResult again = pcfg::LayOutAndReparse("big.txtpb", layout.formatted);
  EXPECT_TRUE(again.same_tokens);
  EXPECT_EQ(again.formatted, layout.formatted);

  // Every piece differs and the two threads share them: a list that lost its ',' is found in the
  // first piece, the last, and each piece about where the shares meet.
  const SyntaxTree tree(text);
  std::vector<size_t> root_lines;
  const std::string laid_out = pcfg::LayOutText(tree, &root_lines);
  EXPECT_TRUE(pcfg::SameTextFormatTokensByPieces(tree, text, laid_out, root_lines));
  std::vector<size_t> entries = {1, root_lines.size() - 1};
  for (size_t i = root_lines.size() / 2 - 40; i < root_lines.size() / 2 + 40; ++i) entries.push_back(i);
  for (const size_t entry : entries) {
    std::string lost = laid_out;
    const size_t comma = lost.find("\"a\", \"b\"", root_lines[entry]);
    lost[comma + 3] = ' ';  // same length: the root lines stay where they are
    EXPECT_FALSE(pcfg::SameTextFormatTokensByPieces(tree, text, lost, root_lines)) << "entry " << entry;
  }
  // Pieces with the same bytes are not read: a text laid out already, proven against itself.
  const SyntaxTree laid_out_tree(laid_out);
  std::vector<size_t> same_lines;
  ASSERT_EQ(pcfg::LayOutText(laid_out_tree, &same_lines), laid_out);
  EXPECT_TRUE(pcfg::SameTextFormatTokensByPieces(laid_out_tree, laid_out, laid_out, same_lines));
}

// fmt and the language server use a layout only when it is proven faithful; each way a layout can
// fail the proof is refused, with the line of the first comment that moved.
TEST(Layout, AFaithlessLayoutIsRefused) {
  pcfg::Config config;
  config.add_peripherals()->set_id("a");
  std::string wire;
  ASSERT_TRUE(config.SerializeToString(&wire));
  const auto proven = [&](void (*change)(pcfg::TextLayoutResult*, const std::string&)) {
    pcfg::TextLayoutResult layout;
    layout.same_tokens = true;
    layout.written_comments = layout.kept_comments = {"# one", "# two"};
    layout.written_comment_lines = {3, 7};
    change(&layout, wire);
    return layout;
  };
  const struct {
    const char* what;
    void (*change)(pcfg::TextLayoutResult*, const std::string&);
    pcfg::LayoutFault fault;
    int line;
  } rows[] = {
      {"proven by its tokens", [](pcfg::TextLayoutResult*, const std::string&) {}, pcfg::LayoutFault::kNone,
       0},
      {"parsed again to the same bytes",
       [](pcfg::TextLayoutResult* l, const std::string& w) {
         l->same_tokens = false, l->formatted_parsed = true, l->formatted_wire = w;
       },
       pcfg::LayoutFault::kNone, 0},
      {"unreadable as written", [](pcfg::TextLayoutResult* l, const std::string&) { l->tree_errors = true; },
       pcfg::LayoutFault::kUnreadable, 0},
      {"other bytes",
       [](pcfg::TextLayoutResult* l, const std::string& w) {
         l->same_tokens = false, l->formatted_parsed = true, l->formatted_wire = w + "x";
       },
       pcfg::LayoutFault::kMeaning, 0},
      {"not read at all", [](pcfg::TextLayoutResult* l, const std::string&) { l->same_tokens = false; },
       pcfg::LayoutFault::kMeaning, 0},
      {"the second comment changed",
       [](pcfg::TextLayoutResult* l, const std::string&) { l->kept_comments[1] = "# too"; },
       pcfg::LayoutFault::kComment, 7},
      {"the first comment lost",
       [](pcfg::TextLayoutResult* l, const std::string&) { l->kept_comments = {"# two"}; },
       pcfg::LayoutFault::kComment, 3},
      {"a comment added after the last",
       [](pcfg::TextLayoutResult* l, const std::string&) { l->kept_comments.push_back("# three"); },
       pcfg::LayoutFault::kComment, 0},
  };
  for (const auto& row : rows) {
    int line = -1;
    std::string why;
    EXPECT_EQ(pcfg::CheckLayoutFaithful(config, proven(row.change), &line, &why), row.fault) << row.what;
    EXPECT_EQ(line, row.line) << row.what;
    EXPECT_EQ(why.empty(), row.fault == pcfg::LayoutFault::kNone) << row.what;
  }
}

TEST(Layout, RangeTakesTheStretchesThatTouchIt) {
  const std::string header = pcfg::kTextHeader;
  // Lines 1-2 are the header; the layout changes line 3, line 6, two of the blank lines 9-11 and
  // line 12, each a piece of its own.
  const std::string in =
      header + "p {   id:   \"a\"\n}\nq {\n      id: \"b\"   # kept\n}\nr: 1\n\n\n\ns {id: \"c\"}\n";
  const std::string a = "p {\n  id: \"a\"\n}\n", b = "q {\n  id: \"b\"  # kept\n}\n";
  const std::string a_in = "p {   id:   \"a\"\n}\n", b_in = "q {\n      id: \"b\"   # kept\n}\n";
  const std::string r_in = "r: 1\n\n\n\n", s_in = "s {id: \"c\"}\n", r = "r: 1\n\n", s = "s { id: \"c\" }\n";
  struct Row {
    int first, last;
    std::string out;  // without the header, which the input has
  };
  const Row rows[] = {
      {1, 2, a_in + b_in + r_in + s_in},  // the header, as it was
      {3, 3, a + b_in + r_in + s_in},
      {4, 6, a_in + b + r_in + s_in},
      {3, 8, a + b + r_in + s_in},
      {10, 10, a_in + b_in + "r: 1\n\n\n" + s_in},  // one blank line
      {9, 11, a_in + b_in + r + s_in},
      {12, 12, a_in + b_in + r_in + s},
      {1, 99, a + b + r + s},
  };
  const SyntaxTree tree(in);
  const std::string whole = pcfg::LayOutText(tree);
  for (const Row& row : rows) {
    const auto edits = pcfg::LayoutEditsWithin(in, whole, row.first, row.last);
    EXPECT_EQ(pcfg::ApplyLineEdits(in, edits), header + row.out) << row.first << ":" << row.last;
  }
  // Without the header, it is inserted before line 1: taken by a range from line 1 only.
  const std::string bare = "a:  1\nb:  2\n";
  const std::string bare_out = pcfg::LayOutText(SyntaxTree(bare));
  EXPECT_EQ(pcfg::ApplyLineEdits(bare, pcfg::LayoutEditsWithin(bare, bare_out, 1, 1)),
            header + "a: 1\nb:  2\n");
  EXPECT_EQ(pcfg::ApplyLineEdits(bare, pcfg::LayoutEditsWithin(bare, bare_out, 2, 2)), "a:  1\nb: 2\n");
  // A last line without its line break.
  EXPECT_EQ(pcfg::ApplyLineEdits("x: 1", {{2, 0, "y: 2\n"}}), "x: 1\ny: 2\n");
  // The line diff pairs the layout's copy of a comment with a later line of the same text, so the
  // stretch before it holds other content than it replaces: it goes with what comes after, and
  // every range still reads as the whole does.
  const std::string moved = "\t# last, M\nperipherals{}\n# last, M\n,";
  const std::string moved_out = pcfg::LayOutText(SyntaxTree(moved));
  for (int first = 1; first <= 4; ++first)
    for (int last = first; last <= 4; ++last)
      EXPECT_TRUE(pcfg::SameTextFormatTokens(
          moved, pcfg::ApplyLineEdits(moved, pcfg::LayoutEditsWithin(moved, moved_out, first, last))))
          << first << ":" << last;
}

TEST(Layout, UnifiedDiff) {
  struct Row {
    std::string before, after, diff;
  };
  const Row rows[] = {
      {"a\nb\nc\nd\ne\nf\ng\nh\ni\nj\nk\n", "a\nB\nc\nd\ne\nf\ng\nh\ni\nj\nk\nl\n",
       "--- x\n+++ x (formatted)\n@@ -1,5 +1,5 @@\n a\n-b\n+B\n c\n d\n e\n@@ -9,3 +9,4 @@\n i\n j\n "
       "k\n+l\n"},
      {"a\nb\nc\n", "a\nb\nc\n", ""},
      {"", "a\n", "--- x\n+++ x (formatted)\n@@ -0,0 +1,1 @@\n+a\n"},
      {"a\n", "", "--- x\n+++ x (formatted)\n@@ -1,1 +0,0 @@\n-a\n"},
      {"a\nb\nc\n", "a\nc\n", "--- x\n+++ x (formatted)\n@@ -1,3 +1,2 @@\n a\n-b\n c\n"},
      {"a\nb", "a\nb\n",
       "--- x\n+++ x (formatted)\n@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(pcfg::UnifiedDiff("x", row.before, row.after), row.diff);
  // More edits than the bound: all of one side removed, then all of the other added.
  std::string a = "x\n", b = "x\n";
  for (int i = 0; i < 600; ++i) a += "a" + std::to_string(i) + "\n", b += "b" + std::to_string(i) + "\n";
  const std::string bounded = pcfg::UnifiedDiff("x", a, b);
  EXPECT_EQ(bounded.rfind("--- x\n+++ x (formatted)\n@@ -1,601 +1,601 @@\n x\n-a0\n", 0), 0u);
  EXPECT_EQ(bounded.find("+b0\n"), bounded.find("-a599\n") + 6);
}

}  // namespace
