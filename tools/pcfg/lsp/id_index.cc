#include "id_index.h"

#include <google/protobuf/io/tokenizer.h>

#include <algorithm>
#include <cstdint>

#include "config.h"

namespace pcfg::lsp {
namespace {

using syntax::Node;
using syntax::NodeKind;
using syntax::SyntaxTree;
using syntax::TokenKind;

// The fields that name an id: which list's entries hold them, the path to them inside an entry,
// and what they mean. One row each.
struct IdField {
  const char* list;
  const char* path;  // field names inside the entry, separated by '.'
  IdSpace space;
  bool definition;
  const char* kind;  // the registry type a reference must name; empty for any
  const char* role;
};

constexpr IdField kIdFields[] = {
    {"peripherals", "id", IdSpace::kPeripheral, true, "", "peripheral"},
    {"peripherals", "dependencies.peripheral_id", IdSpace::kPeripheral, false, "", "dependency"},
    // A physical camera with is_template set defines a template instead (see IdIndex).
    {"physical_cameras", "peripheral_id", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERA",
     "physical camera"},
    {"physical_cameras", "cameraset_peripheral_ids", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERASET",
     "camera set"},
    {"physical_cameras", "template_id", IdSpace::kTemplate, false, "", "template"},
    {"logical_cameras", "peripheral_id", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_LOGICAL_CAMERA",
     "logical camera"},
    {"logical_cameras", "camera_peripheral_ids", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERA",
     "member camera"},
    {"camera_sets", "peripheral_id", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERASET", "camera set"},
    {"camera_sets", "camera_peripheral_ids", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERA",
     "member camera"},
    {"camera_stream_configs", "peripheral_id", IdSpace::kPeripheral, false, "", "stream configuration"},
    {"camera_stream_configs", "camera_peripheral_ids", IdSpace::kPeripheral, false, "PERIPHERAL_TYPE_CAMERA",
     "member camera"},
};

// The value of an integer as protobuf's text format reads it (decimal, hex or octal), up to MAX.
bool ReadInteger(const std::string& written, uint64_t max, uint64_t* value) {
  return !written.empty() && written[0] >= '0' && written[0] <= '9' &&
         google::protobuf::io::Tokenizer::ParseInteger(written, max, value);
}

// The canonical name of a PeripheralType written as a name or a number; as written otherwise.
std::string CanonicalType(std::string_view written) {
  const auto* type = models::PeripheralType_descriptor();
  const google::protobuf::EnumValueDescriptor* value = type->FindValueByName(std::string(written));
  uint64_t number = 0;
  if (value == nullptr && ReadInteger(std::string(written), INT32_MAX, &number))
    value = type->FindValueByNumber(static_cast<int>(number));
  if (value != nullptr) value = type->FindValueByNumber(value->number());
  return value != nullptr ? value->name() : std::string(written);
}

// Whether a bool's value reads as true, spelled any way protobuf's text format takes.
bool ReadsTrue(const std::string& written) {
  uint64_t value = 0;
  return written == "true" || written == "True" || written == "t" ||
         (ReadInteger(written, 1, &value) && value == 1);
}

class Builder {
 public:
  Builder(const SyntaxTree& tree, std::vector<IdOccurrence>* out) : tree_(tree), out_(out) {}

  void Run() {
    for (const int32_t field : tree_.ChildrenOf(tree_.root())) RootField(field);
    Sort();
  }

  // The occurrences in root field node FIELD.
  void RootField(int32_t field) {
    const Node& node = tree_.node(field);
    if (node.kind != NodeKind::kField) return;
    const std::string list = tree_.Name(node);
    ForEachMessage(node, [&](int32_t entry) { Entry(list, entry); });
  }

  void Sort() {
    std::sort(out_->begin(), out_->end(),
              [](const IdOccurrence& a, const IdOccurrence& b) { return a.begin < b.begin; });
  }

 private:
  // Calls VISIT for each message a field node holds: its value, or each message of its list.
  template <typename Visit>
  void ForEachMessage(const Node& field, const Visit& visit) {
    const Node* value = tree_.ValueOf(field);
    if (value == nullptr) return;
    if (value->kind == NodeKind::kMessage) return visit(tree_.FirstChild(field));
    if (value->kind != NodeKind::kList) return;
    for (const int32_t element : tree_.ChildrenOf(*value))
      if (tree_.node(element).kind == NodeKind::kMessage) visit(element);
  }
  template <typename Visit>
  void ForEachScalar(const Node& field, const Visit& visit) {
    const Node* value = tree_.ValueOf(field);
    if (value == nullptr) return;
    if (value->kind == NodeKind::kValue) return visit(*value);
    if (value->kind != NodeKind::kList) return;
    for (const int32_t element : tree_.ChildrenOf(*value))
      if (tree_.node(element).kind == NodeKind::kValue) visit(tree_.node(element));
  }

  // The fields named NAME in message node MESSAGE.
  template <typename Visit>
  void ForEachField(int32_t message, std::string_view name, const Visit& visit) {
    for (const int32_t child : tree_.ChildrenOf(tree_.node(message))) {
      const Node& field = tree_.node(child);
      if (field.kind == NodeKind::kField && tree_.NameIs(field, name)) visit(field);
    }
  }

  // The scalar values at PATH ("a.b") below message node MESSAGE.
  template <typename Visit>
  void ForEachValueAt(int32_t message, std::string_view path, const Visit& visit) {
    const size_t dot = path.find('.');
    if (dot == std::string_view::npos) {
      ForEachField(message, path, [&](const Node& field) { ForEachScalar(field, visit); });
      return;
    }
    ForEachField(message, path.substr(0, dot), [&](const Node& field) {
      ForEachMessage(field, [&](int32_t inner) { ForEachValueAt(inner, path.substr(dot + 1), visit); });
    });
  }

  std::string ScalarText(int32_t message, std::string_view name) {
    std::string text;
    ForEachValueAt(message, name, [&](const Node& value) { text = std::string(tree_.Text(value)); });
    return text;
  }

  void Entry(const std::string& list, int32_t entry) {
    const bool is_template = list == "physical_cameras" && ReadsTrue(ScalarText(entry, "is_template"));
    const std::string type = list == "peripherals" ? CanonicalType(ScalarText(entry, "type")) : "";
    for (const IdField& row : kIdFields) {
      if (list != row.list) continue;
      ForEachValueAt(entry, row.path, [&](const Node& value) {
        IdOccurrence occurrence;
        if (!StringValue(tree_, value, &occurrence.id)) return;
        occurrence.space = row.space;
        occurrence.definition = row.definition;
        occurrence.kind = row.definition ? type : row.kind;
        occurrence.role = row.role;
        if (is_template && std::string_view(row.path) == "peripheral_id") {
          occurrence.space = IdSpace::kTemplate;
          occurrence.definition = true;
          occurrence.kind.clear();
          occurrence.role = "template";
        }
        occurrence.entry = entry;
        occurrence.key = std::string_view(row.path) == "id" || std::string_view(row.path) == "peripheral_id";
        const auto& tokens = tree_.tokens();
        occurrence.simple = value.end == value.first + 1 &&
                            tree_.Text(tokens[value.first]).find('\\') == std::string_view::npos;
        occurrence.begin = tokens[value.first].begin + (occurrence.simple ? 1 : 0);
        occurrence.end = tokens[value.end - 1].end() - (occurrence.simple ? 1 : 0);
        out_->push_back(std::move(occurrence));
      });
    }
  }

  const SyntaxTree& tree_;
  std::vector<IdOccurrence>* out_;
};

}  // namespace

bool ReferenceKindOf(std::string_view list, std::string_view path, IdSpace* space, std::string* kind) {
  for (const IdField& row : kIdFields) {
    if (row.definition || list != row.list || path != row.path) continue;
    *space = row.space;
    *kind = row.kind;
    return true;
  }
  return false;
}

bool StringValue(const SyntaxTree& tree, const Node& value, std::string* out) {
  out->clear();
  bool any = false;
  for (uint32_t i = value.first; i < value.end; ++i) {
    const syntax::Token& token = tree.tokens()[i];
    if (token.trivia()) continue;
    const std::string_view text = tree.Text(token);
    // A string left open at its line's end is an error token; the rest must be whole strings.
    if (token.kind != TokenKind::kString || text.size() < 2 || text.back() != text.front()) return false;
    google::protobuf::io::Tokenizer::ParseStringAppend(std::string(text), out);
    any = true;
  }
  return any;
}

IdIndex::IdIndex(const SyntaxTree& tree) {
  Builder(tree, &occurrences_).Run();
  IndexById();
}

void IdIndex::Update(const SyntaxTree& tree, const SyntaxTree::Replaced& replaced) {
  std::vector<IdOccurrence> fresh;
  Builder builder(tree, &fresh);
  builder.RootField(replaced.entry);
  builder.Sort();
  const auto by_begin = [](const IdOccurrence& o, uint32_t at) { return o.begin < at; };
  const auto first = std::lower_bound(occurrences_.begin(), occurrences_.end(), replaced.begin, by_begin);
  const auto last = std::lower_bound(first, occurrences_.end(), replaced.old_end, by_begin);
  for (auto moved = last; moved != occurrences_.end(); ++moved) {
    moved->begin = static_cast<uint32_t>(moved->begin + replaced.byte_delta);
    moved->end = static_cast<uint32_t>(moved->end + replaced.byte_delta);
    if (moved->entry >= replaced.old_nodes_end)
      moved->entry = static_cast<int32_t>(moved->entry + replaced.node_delta);
  }
  occurrences_.insert(occurrences_.erase(first, last), std::make_move_iterator(fresh.begin()),
                      std::make_move_iterator(fresh.end()));
  for (auto& ids : by_id_) ids.clear();
  IndexById();
}

void IdIndex::IndexById() {
  for (uint32_t i = 0; i < occurrences_.size(); ++i)
    by_id_[static_cast<int>(occurrences_[i].space)][occurrences_[i].id].push_back(i);
}

const IdOccurrence* IdIndex::At(uint32_t offset) const {
  auto it = std::upper_bound(occurrences_.begin(), occurrences_.end(), offset,
                             [](uint32_t at, const IdOccurrence& o) { return at < o.begin; });
  if (it == occurrences_.begin()) return nullptr;
  --it;
  return offset <= it->end ? &*it : nullptr;
}

const IdOccurrence* IdIndex::Definition(IdSpace space, std::string_view id) const {
  for (const IdOccurrence* o : All(space, id))
    if (o->definition) return o;
  return nullptr;
}

std::vector<const IdOccurrence*> IdIndex::All(IdSpace space, std::string_view id) const {
  std::vector<const IdOccurrence*> all;
  const auto& ids = by_id_[static_cast<int>(space)];
  const auto it = ids.find(std::string(id));
  if (it != ids.end())
    for (const uint32_t i : it->second) all.push_back(&occurrences_[i]);
  return all;
}

std::vector<const IdOccurrence*> IdIndex::Definitions(IdSpace space, std::string_view kind) const {
  std::vector<const IdOccurrence*> found;
  for (const IdOccurrence& o : occurrences_) {
    if (!o.definition || o.space != space || (!kind.empty() && o.kind != kind)) continue;
    if (Definition(space, o.id) == &o) found.push_back(&o);  // the first of a repeated id
  }
  return found;
}

}  // namespace pcfg::lsp
