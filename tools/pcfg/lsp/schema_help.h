// What the schema tells about a place in the text: hover notes on fields, enumeration values and
// ids, and what may be written at the cursor.
#pragma once

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <string>
#include <vector>

#include "analysis.h"

namespace pcfg::lsp {

// Markdown about what stands at byte OFFSET, and the bytes it is about; empty when nothing does.
struct HoverNote {
  std::string markdown;
  uint32_t begin = 0, end = 0;
};
HoverNote HoverAt(const Analysis& analysis, uint32_t offset);
// A note for a client that shows plain text: without code fences and backticks.
std::string PlainText(const std::string& markdown);

// The schema's field that the innermost field of the text holding byte OFFSET stands for (its
// name or its value), or null.
const google::protobuf::FieldDescriptor* FieldAt(const Analysis& analysis, uint32_t offset);

struct Completion {
  std::string label;
  int kind = 0;  // the protocol's CompletionItemKind
  std::string detail;
  std::string insert_text;
  bool snippet = false;
  uint32_t replace_begin = 0, replace_end = 0;  // the bytes the item replaces (what is typed so far)
};
// What may be written at byte OFFSET: field names not set yet where a field may start, the values
// of an enumeration after its field's ':', the ids of the right kind where an id is expected.
std::vector<Completion> CompleteAt(const Analysis& analysis, uint32_t offset, bool snippets);

}  // namespace pcfg::lsp
