#include "schema_help.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/tokenizer.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "bringup.h"
#include "config.h"
#include "dependency_graph.h"
#include "formats.h"

namespace pcfg::lsp {

// The schema's descriptor set with its source information, embedded at build time.
extern const unsigned char kSchemaSourceInfo[];
extern const size_t kSchemaSourceInfo_size;

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
  const syntax::Tokens& tokens = tree.tokens();
  int32_t at = 0;
  for (bool deeper = true; deeper;) {
    deeper = false;
    for (const int32_t child : tree.ChildrenOf(tree.node(at))) {
      const Node& node = tree.node(child);
      if (node.end <= node.first) continue;
      // Inside a message means past its opening brace and, when it is closed, before its closer.
      const uint32_t begin = tokens[node.first].end();
      const uint32_t end = node.closed ? tokens[node.end - 1].begin : tokens[node.end - 1].end();
      const bool holds = node.kind == NodeKind::kMessage
                             ? offset >= begin && offset <= end
                             : offset >= tokens[node.first].begin && offset <= tokens[node.end - 1].end();
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
  const syntax::Tokens& tokens = tree.tokens();
  auto it = std::lower_bound(tokens.begin(), tokens.end(), offset,
                             [](const Token& t, uint32_t at) { return t.end() < at; });
  long i = static_cast<long>(it - tokens.begin());
  if (i >= static_cast<long>(tokens.size()) || tokens[static_cast<size_t>(i)].begin >= offset) --i;
  while (i >= 0 && tokens[static_cast<size_t>(i)].trivia()) --i;
  return i;
}

// The comment the schema writes above (or after) a message, field, enumeration or value, by full
// name; read once from the embedded descriptor set.
const std::string& SchemaComment(const std::string& full_name) {
  static const std::map<std::string, std::string> comments = [] {
    std::map<std::string, std::string> found;
    gp::FileDescriptorSet set;
    if (!set.ParseFromArray(kSchemaSourceInfo, static_cast<int>(kSchemaSourceInfo_size))) return found;
    for (const gp::FileDescriptorProto& file : set.file()) {
      std::map<std::vector<int>, std::string> by_path;
      for (const auto& location : file.source_code_info().location()) {
        std::string text =
            location.leading_comments().empty() ? location.trailing_comments() : location.leading_comments();
        while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
        while (!text.empty() && text.front() == ' ') text.erase(0, 1);
        if (!text.empty()) by_path[{location.path().begin(), location.path().end()}] = text;
      }
      const std::string package = file.package().empty() ? "" : file.package() + ".";
      const auto note = [&](const std::vector<int>& path, const std::string& name) {
        const auto it = by_path.find(path);
        if (it != by_path.end()) found[name] = it->second;
      };
      const auto enumeration = [&](const gp::EnumDescriptorProto& type, std::vector<int> path,
                                   const std::string& scope) {
        note(path, scope + type.name());
        for (int v = 0; v < type.value_size(); ++v) {
          path.insert(path.end(), {2, v});
          note(path, scope + type.value(v).name());  // values are named in the enumeration's scope
          path.resize(path.size() - 2);
        }
      };
      std::function<void(const gp::DescriptorProto&, std::vector<int>, const std::string&)> message =
          [&](const gp::DescriptorProto& type, std::vector<int> path, const std::string& scope) {
            const std::string name = scope + type.name();
            note(path, name);
            for (int f = 0; f < type.field_size(); ++f) {
              path.insert(path.end(), {2, f});
              note(path, name + "." + type.field(f).name());
              path.resize(path.size() - 2);
            }
            for (int n = 0; n < type.nested_type_size(); ++n) {
              path.insert(path.end(), {3, n});
              message(type.nested_type(n), path, name + ".");
              path.resize(path.size() - 2);
            }
            for (int e = 0; e < type.enum_type_size(); ++e) {
              path.insert(path.end(), {4, e});
              enumeration(type.enum_type(e), path, name + ".");
              path.resize(path.size() - 2);
            }
          };
      for (int m = 0; m < file.message_type_size(); ++m) message(file.message_type(m), {4, m}, package);
      for (int e = 0; e < file.enum_type_size(); ++e) enumeration(file.enum_type(e), {5, e}, package);
    }
    return found;
  }();
  static const std::string none;
  const auto it = comments.find(full_name);
  return it == comments.end() ? none : it->second;
}

std::string TypeName(const gp::FieldDescriptor* field) {
  std::string type = field->message_type() ? field->message_type()->full_name()
                     : field->enum_type()  ? field->enum_type()->full_name()
                                           : field->type_name();
  return (field->is_repeated() ? "repeated " : "") + type;
}

std::string FieldNote(const gp::FieldDescriptor* field) {
  std::string note = "```proto\n" + TypeName(field) + " " + field->name() + " = " +
                     std::to_string(field->number()) + ";\n```\nin `" +
                     field->containing_type()->full_name() + "`";
  if (field->containing_oneof() != nullptr) note += ", one of `" + field->containing_oneof()->name() + "`";
  if (const std::string& comment = SchemaComment(field->full_name()); !comment.empty()) {
    note += "\n\n" + comment;
  } else if (field->message_type() != nullptr && !SchemaComment(field->message_type()->full_name()).empty()) {
    note +=
        "\n\n`" + field->message_type()->name() + "`: " + SchemaComment(field->message_type()->full_name());
  } else if (field->enum_type() != nullptr && !SchemaComment(field->enum_type()->full_name()).empty()) {
    note += "\n\n`" + field->enum_type()->name() + "`: " + SchemaComment(field->enum_type()->full_name());
  }
  return note;
}

}  // namespace

std::string PlainText(const std::string& markdown) {
  std::string plain;
  plain.reserve(markdown.size());
  for (size_t at = 0; at < markdown.size();) {
    size_t end = markdown.find('\n', at);
    end = end == std::string::npos ? markdown.size() : end + 1;
    const std::string_view line = std::string_view(markdown).substr(at, end - at);
    at = end;
    if (line.rfind("```", 0) == 0) continue;  // a fence, with its line break
    for (const char c : line)
      if (c != '`') plain += c;
  }
  return plain;
}

namespace {

std::string EnumValueNote(const gp::EnumValueDescriptor* value) {
  const gp::EnumDescriptor* type = value->type();
  std::string note =
      "`" + value->name() + " = " + std::to_string(value->number()) + "` of `" + type->full_name() + "`";
  std::vector<std::string> others;
  for (int i = 0; i < type->value_count(); ++i)
    if (type->value(i)->number() == value->number() && type->value(i) != value)
      others.push_back(type->value(i)->name());
  if (!others.empty()) {
    note += "\n\nalso named";
    for (const std::string& other : others) note += " `" + other + "`";
    if (type->FindValueByNumber(value->number()) != value)
      note += " (`" + type->FindValueByNumber(value->number())->name() + "` is how pcfg prints it)";
  }
  // A value's full name is in its enumeration's scope, as protobuf names it.
  if (const std::string& comment = SchemaComment(value->full_name()); !comment.empty())
    note += "\n\n" + comment;
  const std::string alias = value->options().GetExtension(models::Alias);
  if (!alias.empty()) note += "\n\nAlias: `" + alias + "`";
  return note;
}

// The field that the name token NAME_TOKEN names, from its field node.
int32_t FieldNodeNamedBy(const SyntaxTree& tree, long name_token) {
  for (size_t i = 1; i < tree.nodes().size(); ++i) {
    const Node& node = tree.nodes()[i];
    if (node.kind == NodeKind::kField && node.first <= static_cast<uint32_t>(name_token) &&
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
  const syntax::Tokens& tokens = tree.tokens();
  int32_t innermost = -1;
  for (size_t n = 1; n < tree.nodes().size(); ++n) {
    const Node& node = tree.nodes()[n];
    if (node.kind != NodeKind::kField || node.end <= node.first) continue;
    if (tokens[node.first].begin <= offset && offset <= tokens[node.end - 1].end())
      innermost = static_cast<int32_t>(n);
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
  const syntax::Tokens& tokens = tree.tokens();
  const long i = TokenBefore(tree, offset + 1);
  if (i < 0 || tokens[static_cast<size_t>(i)].kind != TokenKind::kIdentifier ||
      tokens[static_cast<size_t>(i)].end() < offset)
    return hover;
  const Token& token = tokens[static_cast<size_t>(i)];
  hover.begin = token.begin, hover.end = token.end();
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
    if (node.kind == NodeKind::kValue && node.first <= static_cast<uint32_t>(i) &&
        static_cast<uint32_t>(i) < node.end)
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
  const syntax::Tokens& tokens = tree.tokens();
  std::vector<Completion> items;
  // What is typed so far: an identifier or a string that reaches the cursor, or a string the
  // cursor is in (even one left open); either is replaced whole. A string that starts at the
  // cursor is replaced too, so that choosing an id does not put one string before another.
  long i = TokenBefore(tree, offset);
  uint32_t replace_begin = offset, replace_end = offset;
  const auto is_string = [&](const Token& t) {
    return t.kind == TokenKind::kString ||
           (t.kind == TokenKind::kError && (tree.source()[t.begin] == '"' || tree.source()[t.begin] == '\''));
  };
  if (i >= 0) {
    const Token& t = tokens[static_cast<size_t>(i)];
    const bool in_string = is_string(t) && t.begin < offset && offset <= t.end();
    const bool word_ends_here =
        t.end() == offset && (t.kind == TokenKind::kIdentifier || t.kind == TokenKind::kError);
    if (in_string || word_ends_here) {
      replace_begin = t.begin;
      replace_end = in_string ? t.end() : offset;
      --i;
      while (i >= 0 && tokens[static_cast<size_t>(i)].trivia()) --i;
    }
  }
  if (replace_begin == offset) {
    const auto next = std::lower_bound(tokens.begin(), tokens.end(), offset,
                                       [](const Token& t, uint32_t at) { return t.begin < at; });
    if (next != tokens.end() && next->begin == offset && is_string(*next)) replace_end = next->end();
  }
  const int32_t message = MessageAt(tree, offset);
  std::vector<std::string> names = FieldNamesTo(tree, message);
  const gp::Descriptor* type = MessageTypeOf(names);
  if (type == nullptr) return items;
  const auto add = [&](Completion item) {
    item.replace_begin = replace_begin, item.replace_end = replace_end;
    items.push_back(std::move(item));
  };

  // After "name:", or inside "name: [a, " a value of that field.
  const auto symbol = [&](long at) {
    const Token& t = tokens[static_cast<size_t>(at)];
    return t.kind == TokenKind::kSymbol ? tree.source()[t.begin] : '\0';
  };
  long name = -1;
  if (i >= 0 && (symbol(i) == ',' || symbol(i) == '[')) {
    // The '[' that opens the list the cursor is in, then the field's name before it.
    long at = i;
    for (int depth = 0; at >= 0; --at) {
      const char c = symbol(at);
      if (c == ']') ++depth;
      if (c == '{' || c == '}' || c == '<' || c == '>') at = 0;
      if (c == '[' && depth-- == 0) break;
    }
    if (at > 0) {
      name = at - 1;
      while (name >= 0 && tokens[static_cast<size_t>(name)].trivia()) --name;
      if (name >= 0 && symbol(name) == ':') --name;
      while (name >= 0 && tokens[static_cast<size_t>(name)].trivia()) --name;
    }
  } else if (i >= 1 && symbol(i) == ':') {
    name = i - 1;
    while (name >= 0 && tokens[static_cast<size_t>(name)].trivia()) --name;
  }
  if (name >= 0) {
    if (tokens[static_cast<size_t>(name)].kind != TokenKind::kIdentifier) return items;
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
          add({d->id, 18,
               d->kind.empty() ? (space == IdSpace::kTemplate ? "template" : "peripheral") : d->kind,
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
    if (tokens[node.first].begin == replace_begin && node.name_end == node.first + 1) continue;
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
