#include "suppressions.h"

#include <algorithm>

namespace pcfg {
namespace {

using syntax::NodeKind;
using syntax::Token;
using syntax::TokenKind;

bool IsRuleCharacter(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; }

// The rules and reason of COMMENT when it is a suppression ("# pcfg: ignore a, b -- why").
bool Parse(std::string_view comment, Suppression* suppression) {
  size_t at = comment.find_first_not_of("# \t");
  if (at == std::string_view::npos || comment.compare(at, 5, "pcfg:") != 0) return false;
  at = comment.find_first_not_of(" \t", at + 5);
  if (at == std::string_view::npos || comment.compare(at, 6, "ignore") != 0) return false;
  at += 6;
  while (at < comment.size()) {
    at = comment.find_first_not_of(" \t,", at);
    if (at == std::string_view::npos || !IsRuleCharacter(comment[at]) || comment.compare(at, 2, "--") == 0)
      break;
    size_t end = at;
    while (end < comment.size() && IsRuleCharacter(comment[end])) ++end;
    suppression->rules.emplace_back(comment.substr(at, end - at));
    at = end;
  }
  if (at != std::string_view::npos && at < comment.size()) {
    std::string_view rest = comment.substr(at);
    for (const std::string_view separator : {"--", "\xe2\x80\x94", ":", "-"})
      if (rest.substr(0, separator.size()) == separator) {
        rest.remove_prefix(separator.size());
        break;
      }
    const size_t start = rest.find_first_not_of(" \t");
    if (start != std::string_view::npos) suppression->reason = std::string(rest.substr(start));
  }
  return !suppression->rules.empty();
}

}  // namespace

std::vector<Suppression> FindSuppressions(const syntax::SyntaxTree& tree) {
  const syntax::Tokens& tokens = tree.tokens();
  std::vector<int32_t> node_at;  // built for the first suppression on a line of its own
  std::vector<Suppression> found;
  for (size_t i = 0; i < tokens.size(); ++i) {
    if (tokens[i].kind != TokenKind::kComment) continue;
    Suppression suppression;
    if (!Parse(tree.Text(tokens[i]), &suppression)) continue;
    const syntax::TextPosition at = tree.Position(tokens[i].begin);
    suppression.line = at.line;
    suppression.column = at.column;
    // At the end of a line of code: that line. On a line of its own: the next entry.
    const bool own_line =
        i == 0 || (tokens[i - 1].kind == TokenKind::kSpace &&
                   (i == 1 || tree.Text(tokens[i - 1]).find('\n') != std::string_view::npos));
    if (!own_line) {
      suppression.first_line = suppression.last_line = at.line;
    } else {
      if (node_at.empty()) node_at = tree.OutermostNodeAtEachToken();
      size_t next = i + 1;
      while (next < tokens.size() && tokens[next].trivia()) ++next;
      if (next < tokens.size() && node_at[next] >= 0 && tree.node(node_at[next]).kind == NodeKind::kField) {
        const syntax::Node& entry = tree.node(node_at[next]);
        suppression.first_line = tree.Position(tokens[entry.first].begin).line;
        suppression.last_line = tree.Position(tokens[entry.end - 1].begin).line;
      }
    }
    found.push_back(std::move(suppression));
  }
  return found;
}

}  // namespace pcfg
