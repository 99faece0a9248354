// Findings an author has seen and accepted, said next to the entry in a comment:
//
//   # pcfg: ignore RULE[, RULE...] -- reason
//
// at the end of a line silences those rules' findings on that line; on a line of its own, their
// findings in the entry that follows (the next field, with everything inside it). The reason
// after '--' (or an em dash, or ':') is carried into SARIF as the suppression's justification.
#pragma once

#include <string>
#include <vector>

#include "syntax_tree.h"

namespace pcfg {

struct Suppression {
  int line = 0, column = 0;           // of the comment
  int first_line = 0, last_line = 0;  // the lines it covers; 0 when it covers nothing
  std::vector<std::string> rules;
  std::string reason;
  bool used = false;
};

// The suppressions in the comments of TREE, in order.
std::vector<Suppression> FindSuppressions(const syntax::SyntaxTree& tree);

}  // namespace pcfg
