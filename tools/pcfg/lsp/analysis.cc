#include "analysis.h"

#include <algorithm>
#include <chrono>
#include <future>

#include "checks.h"

namespace pcfg::lsp {

Analysis::Analysis(const std::string& file, const std::string& text, uint64_t max_bytes)
    : Analysis(file, std::string(text), max_bytes) {}

Analysis::Analysis(const std::string& file, std::string&& text, uint64_t max_bytes) {
  loaded_.raw = std::move(text);
  try {
    Work(file, max_bytes);
  } catch (...) {
    text = Release();
    throw;
  }
}

void Analysis::Work(const std::string& file, uint64_t max_bytes) {
  loaded_.file = file;
  const std::string& text = loaded_.raw;
  if (text.size() > max_bytes) {
    Diagnostic too_large;
    too_large.file = file;
    too_large.line = 1;
    too_large.column = 1;
    too_large.message = "the document is " + std::to_string(text.size()) + " bytes, over the " +
                        std::to_string(max_bytes) + " that pcfg reads; it is not checked";
    diagnostics_.push_back(std::move(too_large));
    unread_ = std::move(loaded_.raw);
    loaded_.raw.clear();
    ids_ = std::make_unique<IdIndex>(tree());
    return;
  }
  // The syntax tree, and the index of ids read from it, are built on another thread from the
  // moment protobuf's parse (on both cores) leaves one free: the rules run meanwhile, and a text
  // they find nothing in is published without waiting for the tree. Whatever needs the tree
  // waits for it (and starts its work, when that has not begun).
  loaded_.OfferSyntax(tree_.get_future(), [this] { StartTree(); });
  parsed_ = ParseLoaded(Format::kText, &loaded_, &diagnostics_, [this] { StartTree(); });
  StartTree();  // a text too short to be parsed on two threads, or one they did not read
  if (parsed_) Check();
}

void Analysis::StartTree() {
  if (pending_ids_.valid() || ids_) return;
  pending_ids_ = std::async(std::launch::async | std::launch::deferred,
                            [raw = std::string_view(loaded_.raw), tree = std::move(tree_)]() mutable {
                              std::unique_ptr<syntax::SyntaxTree> built;
                              try {
                                built = std::make_unique<syntax::SyntaxTree>(raw);
                              } catch (...) {
                                tree.set_exception(std::current_exception());
                                throw;
                              }
                              // Kept by the future loaded_ holds until it takes it, and by loaded_ after.
                              const syntax::SyntaxTree& read = *built;
                              tree.set_value(std::move(built));
                              return std::make_unique<IdIndex>(read);
                            });
  // Where no thread could be had, the work is done here and now, before anything waits on it.
  if (pending_ids_.wait_for(std::chrono::seconds(0)) == std::future_status::deferred)
    ids_ = pending_ids_.get();
}

void Analysis::Settle() const {
  if (pending_ids_.valid()) ids_ = pending_ids_.get();
  loaded_.Syntax();  // taken while the text is the one it read
}

void Analysis::Check() {
  CheckOptions options;
  // Enough to show every finding a person fixes by hand; a note says how many more a rule has.
  options.max_per_rule = 1000;
  diagnostics_ = RunChecks(loaded_, options);
}

bool Analysis::Update(std::string& text, uint32_t begin, uint32_t old_end, uint32_t new_end,
                      uint64_t max_bytes) {
  if (!parsed_ || unread_ || text.size() > max_bytes) return false;
  Settle();  // the tree is changed in place below
  loaded_.raw = std::move(text);
  try {
    syntax::SyntaxTree::Replaced replaced;
    if (!loaded_.RereadEditedEntry(begin, old_end, new_end, &replaced)) {
      text = std::move(loaded_.raw);
      return false;
    }
    Check();
    ids_->Update(tree(), replaced);
  } catch (...) {
    text = std::move(loaded_.raw);
    throw;
  }
  return true;
}

std::pair<uint32_t, uint32_t> Analysis::Span(const Diagnostic& diagnostic) const {
  if (diagnostic.line <= 0) return {0, 0};
  // What a rule found is spanned already: its diagnostics need no tree to be published.
  if (diagnostic.text_offset >= 0)
    return {static_cast<uint32_t>(diagnostic.text_offset),
            static_cast<uint32_t>(diagnostic.text_offset + diagnostic.text_length)};
  const syntax::SyntaxTree& syntax = tree();
  const uint32_t begin = syntax.OffsetAtTokenizerColumn(diagnostic.line, std::max(diagnostic.column, 1));
  if (diagnostic.end_line > 0) {
    const uint32_t end = syntax.OffsetAtTokenizerColumn(diagnostic.end_line, diagnostic.end_column);
    if (end >= begin) return {begin, end};
  }
  // The token that starts there, or the rest of a blank stretch up to the line's end.
  const syntax::Tokens& tokens = syntax.tokens();
  const auto token = std::upper_bound(tokens.begin(), tokens.end(), begin,
                                      [](uint32_t at, const syntax::Token& t) { return at < t.end(); });
  if (token == tokens.end()) return {begin, begin};
  if (token->kind == syntax::TokenKind::kSpace) {
    const size_t line_end = text().find('\n', begin);
    return {begin, static_cast<uint32_t>(std::min(line_end, text().size()))};
  }
  return {begin, token->end()};
}

}  // namespace pcfg::lsp
