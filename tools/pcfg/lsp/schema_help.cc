#include "schema_help.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>

#include <algorithm>
#include <set>

#include "bringup.h"
#include "config.h"
#include "dependency_graph.h"
#include "formats.h"

namespace pcfg::lsp {
namespace {

namespace gp = google::protobuf;
using syntax::Node;
using syntax::NodeKind;
using syntax::SyntaxTree;
using syntax::Token;
using syntax::TokenKind;

// The names of the fields from the root down to node INDEX (a field, or what a field holds).
std::vector<std::string> FieldNamesTo(const SyntaxTree& tree, int32_t index) {
  std::vector<std::string> names;
  for (int32_t at = index; at > 0; at = tree.node(at).parent)
    if (tree.node(at).kind == NodeKind::kField) names.push_back(tree.Name(tree.node(at)));
  std::reverse(names.begin(), names.end());
  return names;
}

// The message type that the fields NAMES lead to from the root; null where a name is unknown.
const gp::Descriptor* MessageTypeOf(const std::vector<std::string>& names) {
  const gp::Descriptor* type = Config::descriptor();
  for (const std::string& name : names) {
    const gp::FieldDescriptor* field = type->FindFieldByName(name);
    if (field == nullptr || field->message_type() == nullptr) return nullptr;
    type = field->message_type();
  }
  return type;
}

// The innermost message (or the document) whose braces hold byte OFFSET.
int32_t MessageAt(const SyntaxTree& tree, uint32_t offset) {
  const std::vector<Token>& tokens = tree.tokens();
  int32_t at = 0;
  for (bool deeper = true; deeper;) {
    deeper = false;
    for (const int32_t child : tree.ChildrenOf(tree.node(at))) {
      const Node& node = tree.node(child);
      if (node.end <= node.first) continue;
      // Inside a message means past its opening brace and, when it is closed, before its closer.
      const uint32_t begin = tokens[node.first].end;
      const uint32_t end = node.closed ? tokens[node.end - 1].begin : tokens[node.end - 1].end;
      const bool holds = node.kind == NodeKind::kMessage ? offset >= begin && offset <= end
                                                         : offset >= tokens[node.first].begin && offset <= tokens[node.end - 1].end;
      if (!holds || node.kind == NodeKind::kValue || node.kind == NodeKind::kError) continue;
      at = child;
      deeper = true;
      break;
    }
  }
  while (at > 0 && tree.node(at).kind != NodeKind::kMessage) at = tree.node(at).parent;
  return at;
}

// The significant token that ends at or holds byte OFFSET - 1 ... the one before OFFSET.
long TokenBefore(const SyntaxTree& tree, uint32_t offset) {
  const std::vector<Token>& tokens = tree.tokens();
  auto it = std::lower_bound(tokens.begin(), tokens.end(), offset,
                             [](const Token& t, uint32_t at) { return t.end < at; });
  long i = static_cast<long>(it - tokens.begin());
  if (i >= static_cast<long>(tokens.size()) || tokens[static_cast<size_t>(i)].begin >= offset) --i;
  while (i >= 0 && tokens[static_cast<size_t>(i)].trivia()) --i;
  return i;
}

std::string TypeName(const gp::FieldDescriptor* field) {
  std::string type = field->message_type() ? field->message_type()->full_name()
                     : field->enum_type()  ? field->enum_type()->full_name()
                                           : field->type_name();
  return (field->is_repeated() ? "repeated " : "") + type;
}

std::string FieldNote(const gp::FieldDescriptor* field) {
  std::string note = "```proto\n" + TypeName(field) + " " + field->name() + " = " + std::to_string(field->number()) +
                     ";\n```\nin `" + field->containing_type()->full_name() + "`";
  if (field->containing_oneof() != nullptr) note += ", one of `" + field->containing_oneof()->name() + "`";
  return note;
}

std::string EnumValueNote(const gp::EnumValueDescriptor* value) {
  const gp::EnumDescriptor* type = value->type();
  std::string note = "`" + value->name() + " = " + std::to_string(value->number()) + "` of `" + type->full_name() + "`";
  std::vector<std::string> others;
  for (int i = 0; i < type->value_count(); ++i)
    if (type->value(i)->number() == value->number() && type->value(i) != value) others.push_back(type->value(i)->name());
  if (!others.empty()) {
    note += "\n\nalso named";
    for (const std::string& other : others) note += " `" + other + "`";
    if (type->FindValueByNumber(value->number()) != value)
      note += " (`" + type->FindValueByNumber(value->number())->name() + "` is how pcfg prints it)";
  }
  const std::string alias = value->options().GetExtension(models::Alias);
  if (!alias.empty()) note += "\n\nAlias: `" + alias + "`";
  return note;
}

// The field that the name token NAME_TOKEN names, from its field node.
int32_t FieldNodeNamedBy(const SyntaxTree& tree, long name_token) {
  for (size_t i = 1; i < tree.nodes().size(); ++i) {
    const Node& node = tree.nodes()[i];
    if (node.kind == NodeKind::kField && node.name_first <= static_cast<uint32_t>(name_token) &&
        static_cast<uint32_t>(name_token) < node.name_end)
      return static_cast<int32_t>(i);
  }
  return -1;
}

std::string IdNote(const Analysis& analysis, const IdOccurrence& at) {
  const IdIndex& ids = analysis.ids();
  const IdOccurrence* definition = ids.Definition(at.space, at.id);
  size_t references = 0;
  for (const IdOccurrence* o : ids.All(at.space, at.id)) references += !o->definition;
  std::string note;
  if (at.space == IdSpace::kTemplate) {
    note = "template `" + at.id + "`";
  } else {
    note = "peripheral `" + at.id + "`";
    if (definition != nullptr && !definition->kind.empty()) note += ": `" + definition->kind + "`";
  }
  if (definition == nullptr) note += "\n\nno entry defines it";
  note += "\n\nreferred to " + std::to_string(references) + (references == 1 ? " time" : " times");
  if (at.space == IdSpace::kPeripheral && definition != nullptr && analysis.parsed()) {
    const ConfigIndex index(analysis.loaded().config);
    const DependencyGraph graph(index);
    const BringUpOrder order = TopologicalBringUp(graph);
    const int entry = index.Peripheral(at.id);
    const auto place = std::find(order.order.begin(), order.order.end(), entry);
    if (place != order.order.end())
      note += "\n\nbrought up " + std::to_string(place - order.order.begin() + 1) + " of " +
              std::to_string(order.order.size() + order.left_out.size());
    else if (entry >= 0)
      note += "\n\nnot brought up: on a dependency cycle or behind one";
  }
  if (!at.definition && !at.kind.empty()) note += "\n\nmust name a `" + at.kind + "`";
  return note;
}

}  // namespace

const gp::FieldDescriptor* FieldAt(const Analysis& analysis, uint32_t offset) {
  const SyntaxTree& tree = analysis.tree();
  const std::vector<Token>& tokens = tree.tokens();
  int32_t innermost = -1;
  for (size_t n = 1; n < tree.nodes().size(); ++n) {
    const Node& node = tree.nodes()[n];
    if (node.kind != NodeKind::kField || node.end <= node.first) continue;
    if (tokens[node.first].begin <= offset && offset <= tokens[node.end - 1].end) innermost = static_cast<int32_t>(n);
  }
  if (innermost < 0) return nullptr;
  std::vector<std::string> names = FieldNamesTo(tree, innermost);
  const std::string name = names.back();
  names.pop_back();
  const gp::Descriptor* type = MessageTypeOf(names);
  return type != nullptr ? type->FindFieldByName(name) : nullptr;
}

HoverNote HoverAt(const Analysis& analysis, uint32_t offset) {
  HoverNote hover;
  if (const IdOccurrence* id = analysis.ids().At(offset)) {
    hover.markdown = IdNote(analysis, *id);
    hover.begin = id->begin, hover.end = id->end;
    return hover;
  }
  const SyntaxTree& tree = analysis.tree();
  const std::vector<Token>& tokens = tree.tokens();
  const long i = TokenBefore(tree, offset + 1);
  if (i < 0 || tokens[static_cast<size_t>(i)].kind != TokenKind::kIdentifier || tokens[static_cast<size_t>(i)].end < offset)
    return hover;
  const Token& token = tokens[static_cast<size_t>(i)];
  hover.begin = token.begin, hover.end = token.end;
  const int32_t field_node = FieldNodeNamedBy(tree, i);
  if (field_node >= 0) {
    // A field name: the field in the type of the message that holds it.
    std::vector<std::string> names = FieldNamesTo(tree, field_node);
    const std::string name = names.back();
    names.pop_back();
    if (const gp::Descriptor* type = MessageTypeOf(names))
      if (const gp::FieldDescriptor* field = type->FindFieldByName(name)) hover.markdown = FieldNote(field);
    return hover;
  }
  // An enumeration value: the value of the field whose value holds it.
  int32_t value = -1;
  for (size_t n = 1; n < tree.nodes().size(); ++n) {
    const Node& node = tree.nodes()[n];
    if (node.kind == NodeKind::kValue && node.first <= static_cast<uint32_t>(i) && static_cast<uint32_t>(i) < node.end)
      value = static_cast<int32_t>(n);
  }
  if (value < 0) return hover;
  std::vector<std::string> names = FieldNamesTo(tree, value);
  if (names.empty()) return hover;
  const std::string name = names.back();
  names.pop_back();
  const gp::Descriptor* type = MessageTypeOf(names);
  const gp::FieldDescriptor* field = type ? type->FindFieldByName(name) : nullptr;
  if (field == nullptr || field->enum_type() == nullptr) return hover;
  if (const gp::EnumValueDescriptor* v = field->enum_type()->FindValueByName(std::string(tree.Text(token))))
    hover.markdown = EnumValueNote(v);
  return hover;
}

std::vector<Completion> CompleteAt(const Analysis& analysis, uint32_t offset, bool snippets) {
  const SyntaxTree& tree = analysis.tree();
  const std::vector<Token>& tokens = tree.tokens();
  std::vector<Completion> items;
  // What is typed so far: an identifier or a string that reaches the cursor.
  long i = TokenBefore(tree, offset);
  uint32_t replace_begin = offset, replace_end = offset;
  if (i >= 0 && tokens[static_cast<size_t>(i)].end == offset &&
      (tokens[static_cast<size_t>(i)].kind == TokenKind::kIdentifier || tokens[static_cast<size_t>(i)].kind == TokenKind::kString ||
       tokens[static_cast<size_t>(i)].kind == TokenKind::kError)) {
    replace_begin = tokens[static_cast<size_t>(i)].begin;
    --i;
    while (i >= 0 && tokens[static_cast<size_t>(i)].trivia()) --i;
  }
  const int32_t message = MessageAt(tree, offset);
  std::vector<std::string> names = FieldNamesTo(tree, message);
  const gp::Descriptor* type = MessageTypeOf(names);
  if (type == nullptr) return items;
  const auto add = [&](Completion item) {
    item.replace_begin = replace_begin, item.replace_end = replace_end;
    items.push_back(std::move(item));
  };

  // After "name:" a value of that field.
  if (i >= 1 && tree.Text(tokens[static_cast<size_t>(i)]) == ":") {
    long name = i - 1;
    while (name >= 0 && tokens[static_cast<size_t>(name)].trivia()) --name;
    if (name < 0 || tokens[static_cast<size_t>(name)].kind != TokenKind::kIdentifier) return items;
    const std::string field_name(tree.Text(tokens[static_cast<size_t>(name)]));
    const gp::FieldDescriptor* field = type->FindFieldByName(field_name);
    if (field == nullptr) return items;
    if (field->enum_type() != nullptr) {
      const gp::EnumDescriptor* enumeration = field->enum_type();
      for (int v = 0; v < enumeration->value_count(); ++v) {
        const gp::EnumValueDescriptor* value = enumeration->value(v);
        add({value->name(), 20, std::to_string(value->number()), value->name(), false, 0, 0});
      }
    } else if (field->type() == gp::FieldDescriptor::TYPE_BOOL) {
      add({"true", 12, "bool", "true", false, 0, 0});
      add({"false", 12, "bool", "false", false, 0, 0});
    } else if (field->type() == gp::FieldDescriptor::TYPE_STRING && !names.empty()) {
      std::string path;
      for (size_t k = 1; k < names.size(); ++k) path += names[k] + ".";
      path += field_name;
      IdSpace space;
      std::string kind;
      if (ReferenceKindOf(names.front(), path, &space, &kind))
        for (const IdOccurrence* d : analysis.ids().Definitions(space, kind))
          add({d->id, 18, d->kind.empty() ? (space == IdSpace::kTemplate ? "template" : "peripheral") : d->kind,
               "\"" + google::protobuf::CEscape(d->id) + "\"", false, 0, 0});
    }
    return items;
  }

  // Where a field may start: the fields of this message not set yet (any repeated one), and not
  // a second member of a oneof that has one.
  std::set<std::string> set;
  std::set<const gp::OneofDescriptor*> oneofs_set;
  for (const int32_t child : tree.ChildrenOf(tree.node(message))) {
    const Node& node = tree.node(child);
    if (node.kind != NodeKind::kField) continue;
    // The field being typed at the cursor does not count as set.
    if (tokens[node.name_first].begin == replace_begin && node.name_end == node.name_first + 1) continue;
    const std::string name = tree.Name(node);
    set.insert(name);
    if (const gp::FieldDescriptor* field = type->FindFieldByName(name))
      if (field->containing_oneof() != nullptr) oneofs_set.insert(field->containing_oneof());
  }
  for (int f = 0; f < type->field_count(); ++f) {
    const gp::FieldDescriptor* field = type->field(f);
    if (!field->is_repeated() && set.count(field->name()) != 0) continue;
    if (field->containing_oneof() != nullptr && oneofs_set.count(field->containing_oneof()) != 0) continue;
    Completion item{field->name(), 5, TypeName(field), field->name() + ": ", false, 0, 0};
    if (field->message_type() != nullptr) {
      item.insert_text = snippets ? field->name() + " {\n\t$0\n}" : field->name() + " {}";
      item.snippet = snippets;
    }
    add(std::move(item));
  }
  // The header lines, at the top of a document that has none.
  if (message == 0 && tree.source().find("# proto-message:") == std::string_view::npos)
    add({"# proto-file / proto-message header", 15, "what the file holds, for editors and tools",
         std::string(kTextHeader), false, 0, 0});
  return items;
}

}  // namespace pcfg::lsp
