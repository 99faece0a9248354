#include "loader.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/stubs/common.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

#include "json_strict.h"
#include "large_allocator.h"
#include "parse_in_two.h"
#include "root_entries.h"
#include "walk.h"
#include "wire_location.h"

namespace pcfg {
namespace {

namespace gp = google::protobuf;

Diagnostic LoadError(const std::string& file, const std::string& message, int line = 0, int column = 0) {
  Diagnostic d;
  d.file = file;
  d.line = line;
  d.column = column;
  d.severity = Severity::kError;
  d.message = message;
  return d;
}

// Turns the text parser's reports into diagnostics.
class TextErrorCollector : public gp::io::ErrorCollector {
 public:
  TextErrorCollector(const std::string& file, std::vector<Diagnostic>* diagnostics)
      : file_(file), diagnostics_(diagnostics) {}

  void AddError(int line, gp::io::ColumnNumber column, const std::string& message) override {
    Add(Severity::kError, line, column, message);
  }
  void AddWarning(int line, gp::io::ColumnNumber column, const std::string& message) override {
    Add(Severity::kWarning, line, column, message);
  }

 private:
  void Add(Severity severity, int line, int column, const std::string& message) {
    Diagnostic d = LoadError(file_, message, line >= 0 ? line + 1 : 0, column >= 0 ? column + 1 : 0);
    d.severity = severity;
    diagnostics_->push_back(std::move(d));
  }
  std::string file_;
  std::vector<Diagnostic>* diagnostics_;
};

// While alive, keeps what the protobuf runtime logs about invalid UTF-8 (it names the field)
// and passes every other line on to the handler that was there before.
class RuntimeLog {
 public:
  RuntimeLog() {
    Utf8Complaints().clear();
    previous_ = gp::SetLogHandler(&RuntimeLog::Handle);
    Previous() = previous_;
  }
  ~RuntimeLog() { gp::SetLogHandler(previous_); }
  RuntimeLog(const RuntimeLog&) = delete;
  RuntimeLog& operator=(const RuntimeLog&) = delete;

  // Drops what was collected so far.
  void Forget() { Utf8Complaints().clear(); }

  // The full name of the first field that a UTF-8 complaint names, if any.
  std::string InvalidUtf8Field() const {
    for (const std::string& message : Utf8Complaints()) {
      const size_t open = message.find('\'');
      const size_t close = open == std::string::npos ? open : message.find('\'', open + 1);
      if (close != std::string::npos) return message.substr(open + 1, close - open - 1);
      return "a string field";
    }
    return "";
  }

 private:
  static std::vector<std::string>& Utf8Complaints() {
    static std::vector<std::string> messages;
    return messages;
  }
  static gp::LogHandler*& Previous() {
    static gp::LogHandler* previous = nullptr;
    return previous;
  }
  static void Handle(gp::LogLevel level, const char* file, int line, const std::string& message) {
    static std::mutex lock;  // the text parser may run on two threads
    std::lock_guard<std::mutex> hold(lock);
    if (message.find("UTF-8") != std::string::npos)
      Utf8Complaints().push_back(message);
    else if (Previous() != nullptr)
      Previous()(level, file, line, message);
  }
  gp::LogHandler* previous_;
};

bool ParseText(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics,
               const std::function<void()>& one_core_free) {
  RuntimeLog log;
  if (ParseTextInTwo(loaded->raw, &loaded->config, kSmallestInputWorthCutting, one_core_free)) return true;
  loaded->config.Clear();
  log.Forget();  // what the halves complained of, the whole will again
  TextErrorCollector collector(loaded->file, diagnostics);
  gp::TextFormat::Parser parser;
  parser.RecordErrorsTo(&collector);
  const bool ok = parser.ParseFromString(loaded->raw, &loaded->config);
  if (!ok && CountSeverity(*diagnostics, Severity::kError) == 0) {
    const std::string field = log.InvalidUtf8Field();
    diagnostics->push_back(LoadError(loaded->file, field.empty()
                                                       ? "cannot parse the text format"
                                                       : "string field '" + field + "' holds invalid UTF-8"));
  }
  return ok;
}

// Line and column (1-based) of a byte offset.
std::pair<int, int> PositionOf(const std::string& text, size_t offset) {
  int line = 1, column = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return {line, column};
}

// A syntax-only pass over JSON that keeps nothing but the first error and where it is.
class JsonSyntax : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& error) override {
    offset = position > 0 ? position - 1 : 0;
    message = error.what();
    const size_t detail = message.find("syntax error");
    if (detail != std::string::npos) message = message.substr(detail);
    return false;
  }

  size_t offset = 0;
  std::string message;
};

bool ParseJson(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics) {
  gp::util::JsonParseOptions options;
  options.ignore_unknown_fields = false;
  // protobuf's parser takes more than JSON (bare keys, single quotes, trailing commas, a field
  // twice...), which other runtimes refuse: only what all read alike gets through, and the same
  // pass proves where the input may be cut for two threads.
  JsonProblem problem;
  RuntimeLog log;
  const JsonLoad result = CheckAndParseJsonInTwo(loaded->raw, &loaded->config, &problem);
  if (result == JsonLoad::kNotStrict) {
    const auto position = LineIndex(loaded->raw).At(problem.offset);
    diagnostics->push_back(
        LoadError(loaded->file,
                  (problem.syntax ? "invalid JSON: " : "not a PeripheralConfig in the JSON mapping: ") +
                      problem.message,
                  position.first, position.second));
    return false;
  }
  if (result == JsonLoad::kParsed) return true;
  loaded->config.Clear();
  log.Forget();  // what the halves complained of, the whole will again
  const auto status = gp::util::JsonStringToMessage(loaded->raw, &loaded->config, options);
  if (status.ok()) return true;
  // protobuf's parser says what is wrong but not where; a syntax pass finds a syntax error's spot.
  JsonSyntax syntax;
  if (!nlohmann::json::sax_parse(loaded->raw, &syntax)) {
    const auto position = PositionOf(loaded->raw, syntax.offset);
    diagnostics->push_back(
        LoadError(loaded->file, "invalid JSON: " + syntax.message, position.first, position.second));
    return false;
  }
  // The JSON parser ends with the binary parser, which refuses strings that are not UTF-8 (such as
  // those a lone surrogate escape gives) and logs the field's name.
  const std::string field = log.InvalidUtf8Field();
  diagnostics->push_back(LoadError(
      loaded->file, field.empty()
                        ? "not a PeripheralConfig in the JSON mapping: " + std::string(status.message())
                        : "string field '" + field + "' holds invalid UTF-8"));
  return false;
}

bool ParseBinary(LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics) {
  RuntimeLog log;
  if (loaded->config.ParseFromString(loaded->raw)) return true;
  std::string message =
      "cannot parse the " + std::to_string(loaded->raw.size()) + " bytes read as a binary PeripheralConfig";
  const std::string field = log.InvalidUtf8Field();
  if (!field.empty())
    message += ": string field '" + field + "' holds invalid UTF-8";
  else
    message += " (truncated or malformed wire data)";
  diagnostics->push_back(LoadError(loaded->file, message));
  return false;
}

bool IsString(const gp::FieldDescriptor* field) { return field->type() == gp::FieldDescriptor::TYPE_STRING; }
// Calls NOT_UTF8 for each string of CONFIG that the wire parser would refuse, with its path.
template <typename Visit>
void ForEachStringNotUtf8(const Config& config, Visit not_utf8) {
  static const FieldWalk strings(Config::descriptor(), IsString);
  strings.ForEachValue(config, [&](const ScalarValue& value, const FieldPath& path) {
    std::string scratch;
    const std::string& text =
        value.index < 0
            ? value.reflection->GetStringReference(value.message, value.field, &scratch)
            : value.reflection->GetRepeatedStringReference(value.message, value.field, value.index, &scratch);
    // The very check the wire parser makes, so that text accepted here parses on the device.
    if (!gp::internal::IsStructurallyValidUTF8(text.data(), static_cast<int>(text.size())))
      not_utf8(value, path);
  });
}

// The text parser accepts strings that the wire format rejects; refuse them here, so that
// nothing compiled from them fails to parse on the device.
bool CheckStringsAreUtf8(const LoadedConfig& loaded, std::vector<Diagnostic>* diagnostics) {
  bool ok = true;
  ForEachStringNotUtf8(loaded.config, [&](const ScalarValue& value, const FieldPath& path) {
    const FieldPath where = value.PathFrom(path);
    const LoadedConfig::Location location = loaded.Locate(where);
    Diagnostic d =
        LoadError(loaded.file, "string field '" + value.field->full_name() + "' holds invalid UTF-8",
                  location.line, location.column);
    d.path = where.ToString();
    diagnostics->push_back(std::move(d));
    ok = false;
  });
  return ok;
}

}  // namespace

namespace {

// An arena's blocks from the allocator that asks for huge pages for the large ones: a large
// configuration's messages then cost few first-touch faults.
void* ArenaBlock(size_t size) { return LargeAllocator<char>().allocate(size); }
void FreeArenaBlock(void* block, size_t size) {
  LargeAllocator<char>().deallocate(static_cast<char*>(block), size);
}

google::protobuf::ArenaOptions LargeBlocks() {
  google::protobuf::ArenaOptions options;
  options.start_block_size = 64 << 10;
  options.max_block_size = 4 << 20;
  options.block_alloc = ArenaBlock;
  options.block_dealloc = FreeArenaBlock;
  return options;
}

}  // namespace

LoadedConfig::LoadedConfig()
    : arena_(std::make_unique<google::protobuf::Arena>(LargeBlocks())),
      config(*google::protobuf::Arena::CreateMessage<Config>(arena_.get())) {}

LoadedConfig::LoadedConfig(LoadedConfig&& other) noexcept
    : arena_(std::move(other.arena_)),
      file(std::move(other.file)),
      format(other.format),
      raw(std::move(other.raw)),
      config(other.config),
      json_locations_(std::move(other.json_locations_)),
      lines_(std::move(other.lines_)),
      wire_locations_(std::move(other.wire_locations_)) {}

namespace {

// Calls ADD(field, value) for the value of each field of message node MESSAGE of TREE, a list's
// elements one by one: VALUE is the field node itself, or an element of its list.
template <typename Add>
void ForEachValue(const syntax::SyntaxTree& tree, int32_t message, Add add) {
  for (const int32_t child : tree.ChildrenOf(tree.node(message))) {
    const syntax::Node& field = tree.node(child);
    const syntax::Node* value = tree.ValueOf(field);
    if (value == nullptr) continue;
    if (value->kind != syntax::NodeKind::kList) {
      add(field, child);
      continue;
    }
    for (const int32_t element : tree.ChildrenOf(*value)) add(field, element);
  }
}

// The node of the deepest field that TREE holds of PATH's steps from FROM on, which start in
// message node MESSAGE of TYPE; FOUND when it holds none. Each step is the INDEX-th value of the
// field among those of that name in the message, as VALUES_NAMED(message, name) gives them (null
// when none).
template <typename ValuesNamed>
int32_t FindFieldNode(const syntax::SyntaxTree& tree, const FieldPath& path, size_t from, int32_t message,
                      const gp::Descriptor* type, int32_t found, ValuesNamed values_named) {
  for (size_t s = from; s < path.steps().size(); ++s) {
    const PathStep& step = path.steps()[s];
    if (message < 0 || type == nullptr) break;
    const gp::FieldDescriptor* field = type->FindFieldByName(std::string(step.field));
    if (field == nullptr || field->is_repeated() != (step.index >= 0)) break;
    const std::vector<int32_t>* values = values_named(message, field->name());
    const size_t index = step.index < 0 ? 0 : static_cast<size_t>(step.index);
    if (values == nullptr || index >= values->size()) break;
    found = (*values)[index];
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) break;
    const syntax::Node& node = tree.node(found);
    const int32_t value = node.kind == syntax::NodeKind::kField ? tree.FirstChild(node) : found;
    message = value >= 0 && tree.node(value).kind == syntax::NodeKind::kMessage ? value : -1;
    type = field->message_type();
  }
  return found;
}

// The bytes of node NODE of TREE, whose text starts at byte BASE of the input.
std::pair<uint32_t, uint32_t> NodeBytes(const syntax::SyntaxTree& tree, int32_t node, uint32_t base) {
  const syntax::Node& at = tree.node(node);
  return {base + tree.tokens()[at.first].begin, base + tree.tokens()[at.end - 1].end()};
}

// Bytes [BEGIN, END) of text as a location, POSITION(offset) giving line and tokenizer column.
template <typename Position>
LoadedConfig::Location TextLocation(uint32_t begin, uint32_t end, Position position) {
  LoadedConfig::Location location;
  std::tie(location.line, location.column) = position(begin);
  std::tie(location.end_line, location.end_column) = position(end);
  location.text_offset = static_cast<int>(begin);
  location.text_length = static_cast<int>(end - begin);
  return location;
}

// The field node that TREE, without errors, holds alone at its root, spanning all of its tokens,
// named NAME, with a message as its value (closed, a separator perhaps after it); -1 otherwise.
int32_t OnlyMessageField(const syntax::SyntaxTree& tree, const std::string& name) {
  if (tree.has_errors()) return -1;
  const int32_t only = tree.FirstChild(tree.root());
  if (only < 0 || tree.node(only).next_sibling >= 0) return -1;
  const syntax::Node& field = tree.node(only);
  const syntax::Node* value = tree.ValueOf(field);
  if (value == nullptr || field.first != 0 || field.end != tree.tokens().size() ||
      !tree.NameIs(field, name) || value->kind != syntax::NodeKind::kMessage || !value->closed)
    return -1;
  return only;
}

}  // namespace

LoadedConfig::Location LoadedConfig::Locate(const FieldPath& path) const {
  if (format == Format::kBinary) {
    if (!wire_locations_) wire_locations_ = std::make_unique<WireLocator>(Config::descriptor());
    const WireSpan span = wire_locations_->Locate(raw, path);
    Location location;
    location.byte_offset = span.offset;
    location.byte_length = span.length;
    return location;
  }
  if (format == Format::kJson) {
    // The first diagnostic that needs a position pays for one pass that records them all.
    if (!json_locations_) {
      json_locations_ = std::make_unique<JsonLocations>(raw, Config::descriptor());
      lines_ = std::make_unique<LineIndex>(raw);
    }
    Location location;
    const size_t offset = json_locations_->Find(path);
    if (offset != std::string::npos) std::tie(location.line, location.column) = lines_->At(offset);
    return location;
  }
  if (format != Format::kText) return {};
  if (!SyntaxAtHand())
    if (const std::optional<Location> found = LocateInRootEntry(path)) return *found;
  const syntax::SyntaxTree& tree = Syntax();
  const int32_t found =
      FindFieldNode(tree, path, 0, 0, Config::descriptor(), -1,
                    [this](int32_t message, const std::string& name) { return ValuesNamed(message, name); });
  if (found < 0) return {};
  const auto [begin, end] = NodeBytes(tree, found, 0);
  return TextLocation(begin, end, [this](uint32_t offset) { return TokenizerPosition(offset); });
}

bool LoadedConfig::SyntaxAtHand() const {
  return syntax_ || (offered_syntax_.valid() &&
                     offered_syntax_.wait_for(std::chrono::seconds(0)) == std::future_status::ready);
}

std::optional<LoadedConfig::Location> LoadedConfig::LocateInRootEntry(const FieldPath& path) const {
  if (path.steps().empty()) return std::nullopt;
  const PathStep& step = path.steps()[0];
  const gp::FieldDescriptor* field = Config::descriptor()->FindFieldByName(std::string(step.field));
  if (field == nullptr || field->is_repeated() != (step.index >= 0) ||
      field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE)
    return std::nullopt;
  if (!root_entries_) root_entries_ = std::make_unique<RootEntries>(raw);
  const RootEntries::Entry* entry = root_entries_->Find(field->name(), step.index < 0 ? 0 : step.index);
  // Past a whole text's worth of entries read, the whole text's tree costs less; and an entry of
  // more than a quarter of the text, read beside the whole tree, would cost near its time and
  // memory again.
  const uint64_t size = entry == nullptr ? 0 : entry->end - entry->begin;
  if (entry == nullptr || size > raw.size() / 4 || bytes_read_in_entries_ + size > raw.size())
    return std::nullopt;
  bytes_read_in_entries_ += size;
  const std::string_view text = std::string_view(raw).substr(entry->begin, size);
  const syntax::SyntaxTree tree(text);
  const int32_t only = OnlyMessageField(tree, field->name());
  if (only < 0) return std::nullopt;
  std::vector<int32_t> values;
  const int32_t found =
      FindFieldNode(tree, path, 1, tree.FirstChild(tree.node(only)), field->message_type(), only,
                    [&tree, &values](int32_t message, const std::string& name) {
                      values.clear();
                      ForEachValue(tree, message, [&](const syntax::Node& named, int32_t value) {
                        if (tree.NameIs(named, name)) values.push_back(value);
                      });
                      return &values;
                    });
  const auto [begin, end] = NodeBytes(tree, found, entry->begin);
  return TextLocation(begin, end, [this, entry](uint32_t offset) {
    const std::string_view before = std::string_view(raw).substr(0, offset);
    const size_t line_start = before.rfind('\n') + 1;  // 0 when there is none
    bytes_read_in_entries_ += offset - line_start;
    return std::make_pair(static_cast<int>(entry->line + CountLineBreaks(raw, entry->begin, offset)),
                          syntax::TokenizerColumnAfter(before.substr(line_start)));
  });
}

const std::vector<int32_t>* LoadedConfig::ValuesNamed(int32_t message, const std::string& name) const {
  auto [by_name, fresh] = values_by_name_.try_emplace(message);
  if (fresh) {
    const syntax::SyntaxTree& tree = *syntax_;
    auto& values = by_name->second;  // a structured binding, which a lambda may not capture
    ForEachValue(tree, message, [&tree, &values](const syntax::Node& named, int32_t value) {
      values[tree.Name(named)].push_back(value);
    });
  }
  const auto values = by_name->second.find(name);
  return values == by_name->second.end() ? nullptr : &values->second;
}

void LoadedConfig::OfferSyntax(std::future<std::unique_ptr<syntax::SyntaxTree>> tree,
                               std::function<void()> start) const {
  offered_syntax_ = std::move(tree);
  start_offered_syntax_ = std::move(start);
}

void LoadedConfig::TakeOfferedSyntax() const {
  if (!offered_syntax_.valid()) return;
  // Asked for before its work began (a finding located while the text is parsed): it begins now.
  if (const std::function<void()> start = std::exchange(start_offered_syntax_, nullptr)) start();
  std::unique_ptr<syntax::SyntaxTree> tree = offered_syntax_.get();
  if (!syntax_ && tree && tree->source().data() == raw.data() && tree->source().size() == raw.size())
    syntax_ = std::move(tree);
}

bool LoadedConfig::RereadEditedEntry(uint32_t begin, uint32_t old_end, uint32_t new_end,
                                     syntax::SyntaxTree::Replaced* replaced) {
  TakeOfferedSyntax();
  if (format != Format::kText || !syntax_ || syntax_->has_errors() || begin > old_end || begin > new_end)
    return false;
  if (arena_after_first_edit_ != 0 &&
      arena_->SpaceAllocated() > arena_after_first_edit_ + arena_after_first_edit_ / 8)
    return false;
  syntax::SyntaxTree& tree = *syntax_;
  const syntax::Tokens& tokens = tree.tokens();
  const int64_t delta = static_cast<int64_t>(new_end) - old_end;
  if (static_cast<int64_t>(tree.source().size()) + delta != static_cast<int64_t>(raw.size())) return false;

  // The root field holding the edit, its first and last byte untouched.
  int32_t entry = -1;
  for (const int32_t child : tree.ChildrenOf(tree.root())) {
    const syntax::Node& node = tree.node(child);
    if (tokens[node.first].begin >= begin) break;
    if (tokens[node.end - 1].end() > old_end) {
      entry = child;
      break;
    }
  }
  if (entry < 0) return false;
  const syntax::Node& old = tree.node(entry);
  // Written alone as a message, with no separator after it: its last byte closes the message.
  const syntax::Node* old_value = tree.ValueOf(old);
  if (old_value == nullptr || old_value->kind != syntax::NodeKind::kMessage || !old_value->closed ||
      old_value->end != old.end)
    return false;
  // What comes before it ends where a token must end whatever follows: trivia or a symbol.
  if (old.first > 0 && !tokens[old.first - 1].trivia() &&
      tokens[old.first - 1].kind != syntax::TokenKind::kSymbol)
    return false;
  // The tree still describes the text before the edit, which is gone: what it says is read from
  // RAW where the two agree, before BEGIN. The entry's name must lie there.
  if (tokens[old.name_end - 1].end() > begin) return false;
  const std::string name = tree.Name(old, raw);
  const gp::FieldDescriptor* field = Config::descriptor()->FindFieldByName(name);
  if (field == nullptr || field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) return false;
  // Its place in the list: the values of that name before it, a list's elements one by one. A
  // message of the root that is no list's (general_configs, say) must be written once: the
  // parser merges a field written twice.
  int index = 0, written = 0;
  for (const int32_t child : tree.ChildrenOf(tree.root())) {
    const syntax::Node& before = tree.node(child);
    const syntax::Node* value = tree.ValueOf(before);
    if (value == nullptr || !tree.NameIs(before, name, raw)) continue;
    ++written;
    if (child >= entry) {
      if (field->is_repeated()) break;
      continue;
    }
    if (value->kind != syntax::NodeKind::kList) {
      ++index;
      continue;
    }
    for (const int32_t element : tree.ChildrenOf(*value)) index += element >= 0;
  }
  const gp::Reflection* reflection = config.GetReflection();
  if (field->is_repeated() ? index >= reflection->FieldSize(config, field)
                           : written != 1 || !reflection->HasField(config, field))
    return false;

  // Its new text must read as one field of the same name, as a message, spanning all of it.
  const uint32_t entry_begin = tokens[old.first].begin;
  const int64_t entry_end = static_cast<int64_t>(tokens[old.end - 1].end()) + delta;
  if (entry_end <= entry_begin || entry_end > static_cast<int64_t>(raw.size())) return false;
  const std::string_view text =
      std::string_view(raw).substr(entry_begin, static_cast<size_t>(entry_end - entry_begin));
  const syntax::SyntaxTree entry_tree(text);
  const int32_t only = OnlyMessageField(entry_tree, name);
  if (only < 0 || entry_tree.ValueOf(entry_tree.node(only))->end != entry_tree.node(only).end) return false;

  // The entry must load as the whole text would: a string that is not UTF-8 is refused there.
  Config* read = gp::Arena::CreateMessage<Config>(arena_.get());
  if (!ParseTextQuietly(text, read)) return false;
  bool all_utf8 = true;
  ForEachStringNotUtf8(*read, [&](const ScalarValue&, const FieldPath&) { all_utf8 = false; });
  if (!all_utf8) return false;
  std::vector<const gp::FieldDescriptor*> set;
  reflection->ListFields(*read, &set);
  if (set.size() != 1 || set[0] != field ||
      (field->is_repeated() && reflection->FieldSize(*read, field) != 1))
    return false;

  // The entry in a configuration: element INDEX of a list, or the message itself.
  const auto entry_in = [&](Config* in, int at) {
    return field->is_repeated() ? reflection->MutableRepeatedMessage(in, field, at)
                                : reflection->MutableMessage(in, field);
  };
  gp::Message* target = entry_in(&config, index);
  target->GetReflection()->Swap(target, entry_in(read, 0));
  const syntax::SyntaxTree::Replaced moved = tree.ReplaceRootEntry(raw, entry, entry_tree);
  if (replaced != nullptr) *replaced = moved;
  values_by_name_.clear();
  root_entries_.reset();
  if (arena_after_first_edit_ == 0) arena_after_first_edit_ = arena_->SpaceAllocated();
  return true;
}

const syntax::SyntaxTree& LoadedConfig::Syntax() const {
  TakeOfferedSyntax();
  if (!syntax_) syntax_ = std::make_unique<syntax::SyntaxTree>(raw);
  return *syntax_;
}

std::pair<int, int> LoadedConfig::TokenizerPosition(uint32_t offset) const {
  return {syntax_->Position(offset).line, syntax_->TokenizerColumn(offset)};
}

std::string DisplayName(const std::string& path) { return path == "-" ? "<stdin>" : path; }

bool ParseConfig(const std::string& display_name, Format format, std::string raw, LoadedConfig* loaded,
                 std::vector<Diagnostic>* diagnostics) {
  loaded->file = display_name;
  loaded->raw = std::move(raw);
  return ParseLoaded(format, loaded, diagnostics);
}

bool ParseLoaded(Format format, LoadedConfig* loaded, std::vector<Diagnostic>* diagnostics,
                 const std::function<void()>& one_core_free) {
  loaded->format = format;
  loaded->config.Clear();
  switch (format) {
    case Format::kText:
      return ParseText(loaded, diagnostics, one_core_free) && CheckStringsAreUtf8(*loaded, diagnostics);
    case Format::kJson:
      return ParseJson(loaded, diagnostics);
    case Format::kBinary:
      return ParseBinary(loaded, diagnostics);
  }
  return false;
}

bool LoadConfig(const std::string& path, const LoadOptions& options, LoadedConfig* loaded,
                std::vector<Diagnostic>* diagnostics) {
  const std::string display_name = DisplayName(path);
  loaded->file = display_name;
  std::string raw, error;
  if (!ReadInput(path, options.max_bytes, &raw, &error)) {
    diagnostics->push_back(LoadError(display_name, error));
    return false;
  }
  const Format chosen =
      options.format ? *options.format : (path == "-" ? options.stdin_format : FormatForPath(path));
  loaded->raw = std::move(raw);
  if (options.on_read) options.on_read(loaded->raw, chosen);
  const size_t reported = diagnostics->size();
  if (ParseLoaded(chosen, loaded, diagnostics)) return true;
  // A form taken by default may not be the one meant: say which it was and how to choose.
  if (!options.format && diagnostics->size() > reported) {
    const std::string why = path == "-"                 ? "standard input has no extension"
                            : ExtensionNamesAForm(path) ? ""
                                                        : "its extension names no form";
    if (!why.empty())
      (*diagnostics)[reported].message += " (read as " + std::string(FormatName(chosen)) + " because " + why +
                                          "; choose with --from text, json or binary)";
  }
  return false;
}

}  // namespace pcfg
