// Where a text configuration names peripheral ids and template ids, read from its syntax tree:
// the entries that define them and every field that refers to one, with byte ranges. Built from
// the tree alone, so that it holds for half-typed text as well.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "syntax_tree.h"

namespace pcfg::lsp {

enum class IdSpace : uint8_t { kPeripheral, kTemplate };

struct IdOccurrence {
  std::string id;               // the value, unescaped
  uint32_t begin = 0, end = 0;  // bytes of the id: inside the quotes when the value is one plain string
  IdSpace space = IdSpace::kPeripheral;
  bool definition = false;
  // A reference: the registry type it must name ("PERIPHERAL_TYPE_CAMERA"), empty for any. A
  // definition: the type its entry gives, as written.
  std::string kind;
  const char* role = "";  // "dependency", "member camera", ... or the entry list's name
  int32_t entry = -1;     // the tree node of the entry (message) that holds it
  bool simple = true;     // one plain string token: can be renamed in place
  bool key = false;       // the id of its own entry (id, or the entry's peripheral_id)
};

// What the field at PATH inside an entry of LIST ("peripherals", "dependencies.peripheral_id")
// refers to, when it is a reference: its id space and the registry type it must name (empty for
// any). False when the field names no id.
bool ReferenceKindOf(std::string_view list, std::string_view path, IdSpace* space, std::string* kind);

class IdIndex {
 public:
  explicit IdIndex(const syntax::SyntaxTree& tree);
  // After TREE had one root entry replaced (REPLACED): that entry's occurrences read again, the
  // others moved. The same as an index built from TREE.
  void Update(const syntax::SyntaxTree& tree, const syntax::SyntaxTree::Replaced& replaced);

  const std::vector<IdOccurrence>& occurrences() const { return occurrences_; }
  // The occurrence whose range holds byte OFFSET (its end included), or null.
  const IdOccurrence* At(uint32_t offset) const;
  // The first definition of ID in SPACE, or null.
  const IdOccurrence* Definition(IdSpace space, std::string_view id) const;
  // Every occurrence of ID in SPACE, the definitions included, in text order.
  std::vector<const IdOccurrence*> All(IdSpace space, std::string_view id) const;
  // The ids defined in SPACE, in text order, each once; with KIND not empty, only the
  // peripherals of that type.
  std::vector<const IdOccurrence*> Definitions(IdSpace space, std::string_view kind = {}) const;

 private:
  void IndexById();
  std::vector<IdOccurrence> occurrences_;                            // in text order
  std::unordered_map<std::string, std::vector<uint32_t>> by_id_[2];  // per space: occurrences, in order
};

// The value of a string field node as protobuf reads it (adjacent strings joined, escapes
// resolved); false when the value is not made of strings.
bool StringValue(const syntax::SyntaxTree& tree, const syntax::Node& value, std::string* out);

}  // namespace pcfg::lsp
