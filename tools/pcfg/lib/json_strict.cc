#include "json_strict.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <unordered_map>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <unordered_map>

namespace pcfg {
namespace {

namespace gp = google::protobuf;
constexpr size_t kNowhere = std::string_view::npos;

// A message type's fields under both names the JSON mapping accepts for them.
using FieldsByName = std::unordered_map<std::string_view, const gp::FieldDescriptor*>;

const FieldsByName& FieldsOf(const gp::Descriptor* type) {
  static std::mutex lock;
  static std::unordered_map<const gp::Descriptor*, FieldsByName> tables;
  std::lock_guard<std::mutex> hold(lock);
  auto [table, added] = tables.try_emplace(type);
  if (added) {
    for (int i = 0; i < type->field_count(); ++i) {
      const gp::FieldDescriptor* field = type->field(i);
      table->second.emplace(field->name(), field);  // names live as long as the descriptor
      table->second.emplace(field->json_name(), field);
    }
  }
  return table->second;
}

bool SameName(const std::string& field, std::string_view name) {
  return field.size() == name.size() && std::memcmp(field.data(), name.data(), name.size()) == 0;
}

// Wrapper messages read as the scalar they wrap.
bool TakesObject(const gp::FieldDescriptor* field) {
  return field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE &&
         field->message_type()->file()->name() != "google/protobuf/wrappers.proto";
}

std::string Quoted(std::string_view name) { return "\"" + std::string(name) + "\""; }

// Bytes that end the plain run of a string: the quote, the backslash and the control characters.
constexpr std::array<bool, 256> kStringStops = [] {
  std::array<bool, 256> stops{};
  for (int c = 0; c < 0x20; ++c) stops[c] = true;
  stops['"'] = stops['\\'] = true;
  return stops;
}();

// The first byte of [AT, END) that ends a string's plain run, or END: sixteen bytes a step where
// the processor has SSE2, as every x86-64 does.
const char* PlainRunEnd(const char* at, const char* end) {
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\'),
                last_control = _mm_set1_epi8(0x1F);
  for (; end - at >= 16; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(bytes, last_control), bytes);
    const int stops = _mm_movemask_epi8(
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)), control));
    if (stops != 0) return at + __builtin_ctz(static_cast<unsigned>(stops));
  }
#endif
  while (at < end && !kStringStops[static_cast<unsigned char>(*at)]) ++at;
  return at;
}

// The first byte of [AT, END) that is not JSON whitespace, or END.
const char* SpaceEnd(const char* at, const char* end) {
#if defined(__SSE2__)
  const __m128i space = _mm_set1_epi8(' '), newline = _mm_set1_epi8('\n'), tab = _mm_set1_epi8('\t'),
                carriage_return = _mm_set1_epi8('\r');
  for (; end - at >= 16; at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i blank =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, space), _mm_cmpeq_epi8(bytes, newline)),
                     _mm_or_si128(_mm_cmpeq_epi8(bytes, tab), _mm_cmpeq_epi8(bytes, carriage_return)));
    const int others = ~_mm_movemask_epi8(blank) & 0xFFFF;
    if (others != 0) return at + __builtin_ctz(static_cast<unsigned>(others));
  }
#endif
  while (at < end && (*at == ' ' || *at == '\n' || *at == '\r' || *at == '\t')) ++at;
  return at;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void AppendUtf8(uint32_t code, std::string* out) {
  if (code < 0x80) {
    out->push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (code >> 6)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (code >> 12)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (code >> 18)));
    out->push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

// Which of a type's fields (or oneofs) an object has named: bits in place for the usual type,
// on the heap for one with very many fields.
class IndexSet {
 public:
  explicit IndexSet(int size) {
    if (size > kInPlace) spill_.resize(static_cast<size_t>(size));
  }
  bool Test(int index) const {
    return spill_.empty() ? (bits_[index / 64] >> (index % 64)) & 1 : spill_[static_cast<size_t>(index)];
  }
  // Whether INDEX was there already; it is now.
  bool TestAndSet(int index) {
    const bool was = Test(index);
    if (spill_.empty())
      bits_[index / 64] |= uint64_t{1} << (index % 64);
    else
      spill_[static_cast<size_t>(index)] = true;
    return was;
  }

 private:
  static constexpr int kInPlace = 256;
  uint64_t bits_[kInPlace / 64] = {};
  std::vector<bool> spill_;
};

// One pass over the input that either proves it strict or names the first place it is not.
// Recursion follows the schema's nesting (an object is a value only of a message field), so its
// depth is the schema's, not the input's.
class Scanner {
 public:
  Scanner(std::string_view json, JsonProblem* problem) : json_(json), problem_(problem) {}

  void RecordCut(size_t hint, JsonCut* cut, const std::function<void(const JsonCut&)>* on_cut) {
    cut_hint_ = hint;
    cut_ = cut;
    on_cut_ = on_cut;
  }
  void RecordLocations(std::deque<JsonLocations::Node>* nodes) { nodes_ = nodes; }

  bool Run(const gp::Descriptor* type) {
    SkipSpace();
    if (At() != '{') return Fail(pos_, "a configuration is a JSON object, which starts with '{'");
    if (!Object(type, /*root=*/true, NewNode())) return false;
    SkipSpace();
    if (pos_ != json_.size()) return Fail(pos_, "text after the end of the configuration's object");
    return true;
  }

 private:
  char At() const { return pos_ < json_.size() ? json_[pos_] : '\0'; }
  bool AtEnd() const { return pos_ >= json_.size(); }

  void SkipSpace() {
    // Most gaps are none or one byte: look before paying for the wide scan.
    if (pos_ < json_.size() && json_[pos_] != ' ' && json_[pos_] != '\n' && json_[pos_] != '\r' &&
        json_[pos_] != '\t')
      return;
    pos_ = static_cast<size_t>(SpaceEnd(json_.data() + pos_, json_.data() + json_.size()) - json_.data());
  }

  bool Fail(size_t at, std::string message, bool syntax = true) {
    if (problem_ != nullptr) {
      problem_->offset = at;
      problem_->message = std::move(message);
      problem_->syntax = syntax;
    }
    return false;
  }

  bool FailExpected(const char* what) {
    if (AtEnd()) return Fail(pos_, std::string("the input ends where ") + what + " should follow");
    const char c = At();
    if (c == '\'') return Fail(pos_, "strings are written in double quotes, not single ones");
    if (c == '/') return Fail(pos_, "JSON has no comments");
    return Fail(pos_, std::string("expected ") + what);
  }

  JsonLocations::Node* NewNode() {
    if (nodes_ == nullptr) return nullptr;
    nodes_->emplace_back();
    return &nodes_->back();
  }

  // A string from its opening quote; its content, unescaped, into DECODED when given.
  bool String(std::string* decoded) {
    const size_t start = pos_++;
    size_t plain_from = pos_;
    for (;;) {
      pos_ =
          static_cast<size_t>(PlainRunEnd(json_.data() + pos_, json_.data() + json_.size()) - json_.data());
      if (AtEnd()) return Fail(start, "a string that is never closed");
      if (decoded != nullptr) decoded->append(json_.substr(plain_from, pos_ - plain_from));
      const char c = json_[pos_];
      if (c == '"') {
        ++pos_;
        return true;
      }
      if (c != '\\') return Fail(pos_, "a control character in a string must be escaped");
      if (!Escape(decoded)) return false;
      plain_from = pos_;
    }
  }

  bool Escape(std::string* decoded) {
    const size_t start = pos_++;
    const char c = At();
    static constexpr std::string_view kSimple = "\"\\/bfnrt", kMeans = "\"\\/\b\f\n\r\t";
    const size_t simple = AtEnd() ? kNowhere : kSimple.find(c);
    if (simple != kNowhere) {
      escaped_ = true;
      if (decoded != nullptr) decoded->push_back(kMeans[simple]);
      ++pos_;
      return true;
    }
    escaped_ = true;
    if (c != 'u') return Fail(start, "an unknown escape sequence in a string");
    uint32_t code = 0;
    if (!Hex4(pos_ + 1, &code)) return Fail(start, "\\u takes four hexadecimal digits");
    pos_ += 5;
    // A string is Unicode text: a surrogate only in a pair, high then low, which the wire (UTF-8)
    // can carry; alone, protobuf would find the field's bytes invalid after the fact.
    if (code >= 0xDC00 && code <= 0xDFFF) return Fail(start, "a low surrogate without a high one before it");
    if (code >= 0xD800 && code <= 0xDBFF) {
      uint32_t low = 0;
      if (json_.substr(pos_, 2) != "\\u" || !Hex4(pos_ + 2, &low) || low < 0xDC00 || low > 0xDFFF)
        return Fail(start, "a high surrogate without a low one after it");
      pos_ += 6;
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    if (decoded != nullptr) AppendUtf8(code, decoded);
    return true;
  }

  bool Hex4(size_t at, uint32_t* code) const {
    for (size_t i = at; i < at + 4; ++i) {
      const int digit = i < json_.size() ? HexValue(json_[i]) : -1;
      if (digit < 0) return false;
      *code = *code * 16 + static_cast<uint32_t>(digit);
    }
    return true;
  }

  bool Number() {
    const size_t start = pos_;
    if (At() == '-') ++pos_;
    if (At() == '0') {
      ++pos_;
      if (std::isdigit(static_cast<unsigned char>(At())))
        return Fail(start, "a number may not start with a 0");
    } else if (!Digits()) {
      return Fail(start, "not a number");
    }
    if (At() == '.' && (++pos_, !Digits())) return Fail(start, "a decimal point needs digits after it");
    if (At() == 'e' || At() == 'E') {
      ++pos_;
      if (At() == '+' || At() == '-') ++pos_;
      if (!Digits()) return Fail(start, "an exponent needs digits");
    }
    return true;
  }

  bool Digits() {
    const size_t start = pos_;
    while (std::isdigit(static_cast<unsigned char>(At()))) ++pos_;
    return pos_ > start;
  }

  bool Word(std::string_view word) {
    if (json_.substr(pos_, word.size()) != word) return FailExpected("a value");
    pos_ += word.size();
    return true;
  }

  bool NullFollows() const { return json_.substr(pos_, 4) == "null"; }

  // One value of FIELD: the whole value of a singular field, or one element of a repeated one.
  bool Single(const gp::FieldDescriptor* field, bool element, const JsonLocations::Node** child) {
    switch (At()) {
      case '{':
        if (!TakesObject(field))
          return Fail(pos_,
                      "field " + Quoted(field->name()) + " is of type " + ValueKind(field) +
                          ": an object is not its value",
                      false);
        {
          JsonLocations::Node* node = NewNode();
          if (child != nullptr) *child = node;
          return Object(field->message_type(), false, node);
        }
      case '[':
        return Fail(pos_,
                    element
                        ? "a list of field " + Quoted(field->name()) + " holds an array: lists do not nest"
                        : "field " + Quoted(field->name()) + " is not repeated: its value is not an array",
                    false);
      case '"':
        return String(nullptr);
      case 't':
        return Word("true");
      case 'f':
        return Word("false");
      case 'n':
        return Word("null");
      default:
        if (At() == '-' || std::isdigit(static_cast<unsigned char>(At()))) return Number();
        return FailExpected("a value");
    }
  }

  static std::string ValueKind(const gp::FieldDescriptor* field) {
    return field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE ? field->message_type()->full_name()
                                                                     : field->cpp_type_name();
  }

  bool Array(const gp::FieldDescriptor* field, bool cut_here, JsonLocations::Node::Entry* entry) {
    ++pos_;  // '['
    SkipSpace();
    if (At() == ']') {
      ++pos_;
      return true;
    }
    for (;;) {
      const JsonLocations::Node* child = nullptr;
      if (entry != nullptr) entry->elements.push_back(pos_);
      if (!Single(field, true, &child)) return false;
      if (entry != nullptr) entry->children.push_back(child);
      SkipSpace();
      if (At() == ']') {
        ++pos_;
        return true;
      }
      if (At() != ',') return FailExpected("',' or ']' after an element of a list");
      const size_t comma = pos_++;
      SkipSpace();
      if (At() == ']') return Fail(comma, "a comma after the last element of a list");
      if (cut_here && cut_ != nullptr && cut_->comma == kNowhere && comma >= cut_hint_) {
        cut_->comma = comma;
        cut_->key = root_key_;
        if (on_cut_ != nullptr && *on_cut_) (*on_cut_)(*cut_);
      }
    }
  }

  bool Object(const gp::Descriptor* type, bool root, JsonLocations::Node* node) {
    ++pos_;  // '{'
    IndexSet seen(type->field_count()), oneofs_set(type->oneof_decl_count());
    int next_field = 0;
    SkipSpace();
    if (At() == '}') {
      ++pos_;
      return true;
    }
    std::string decoded;
    for (;;) {
      if (At() != '"') return FailExpected("a member name in double quotes");
      const size_t key_at = pos_;
      escaped_ = false;
      if (!String(nullptr)) return false;
      const std::string_view written = json_.substr(key_at + 1, pos_ - key_at - 2);
      std::string_view name = written;
      if (escaped_) {  // rare: unescape a copy to look the name up
        const size_t end = pos_;
        pos_ = key_at;
        decoded.clear();
        String(&decoded);
        pos_ = end;
        name = decoded;
      }
      // Members mostly come in the schema's order (protobuf's printer writes them so): try the
      // next few fields before the table.
      const gp::FieldDescriptor* field = nullptr;
      for (int i = next_field, end = std::min(type->field_count(), next_field + 4); i < end && !field; ++i)
        if (SameName(type->field(i)->json_name(), name) || SameName(type->field(i)->name(), name))
          field = type->field(i);
      if (field == nullptr) {
        const FieldsByName& fields = FieldsOf(type);
        const auto found = fields.find(name);
        if (found == fields.end())
          return Fail(key_at, type->full_name() + " has no field " + Quoted(name), false);
        field = found->second;
      }
      next_field = field->index() + 1;
      SkipSpace();
      if (At() != ':') return FailExpected("':' after a member name");
      ++pos_;
      SkipSpace();
      if (seen.TestAndSet(field->index()))
        return Fail(key_at, "field " + Quoted(field->name()) + " is given twice", false);
      // A member of a oneof set to null leaves the oneof free, as the other runtimes read it.
      if (field->containing_oneof() != nullptr && !NullFollows()) {
        const gp::OneofDescriptor* oneof = field->containing_oneof();
        if (oneofs_set.TestAndSet(oneof->index())) {
          const gp::FieldDescriptor* other = nullptr;
          for (int i = 0; i < oneof->field_count() && other == nullptr; ++i)
            if (oneof->field(i) != field && seen.Test(oneof->field(i)->index())) other = oneof->field(i);
          return Fail(key_at,
                      "fields " + Quoted(other != nullptr ? other->name() : "?") + " and " +
                          Quoted(field->name()) + " are both set, but only one member of oneof " +
                          Quoted(oneof->name()) + " may be",
                      false);
        }
      }
      JsonLocations::Node::Entry* entry = nullptr;
      if (node != nullptr) {
        node->entries.emplace_back();
        entry = &node->entries.back();
        entry->field = field;
        entry->key = key_at;
      }
      bool ok;
      if (!field->is_repeated()) {
        const JsonLocations::Node* child = nullptr;
        ok = Single(field, false, &child);
        if (entry != nullptr && child != nullptr) entry->children.push_back(child);
      } else if (At() == '[') {
        if (root) root_key_ = json_.substr(key_at, written.size() + 2);
        ok = Array(field, root, entry);
      } else if (At() == 'n') {
        ok = Word("null");
      } else if (std::string_view("{\"-0123456789tf").find(At()) == kNowhere || AtEnd()) {
        return FailExpected("a value");
      } else {
        return Fail(pos_, "field " + Quoted(field->name()) + " is repeated: its value is an array", false);
      }
      if (!ok) return false;
      SkipSpace();
      if (At() == '}') {
        ++pos_;
        return true;
      }
      if (At() != ',') return FailExpected("',' or '}' after a member");
      const size_t comma = pos_++;
      SkipSpace();
      if (At() == '}') return Fail(comma, "a comma after the last member of an object");
    }
  }

  std::string_view json_;
  JsonProblem* problem_;
  size_t pos_ = 0;
  size_t cut_hint_ = kNowhere;
  JsonCut* cut_ = nullptr;
  const std::function<void(const JsonCut&)>* on_cut_ = nullptr;
  bool escaped_ = false;       // whether the last string read had an escape
  std::string_view root_key_;  // the root member whose list is being read, as written
  std::deque<JsonLocations::Node>* nodes_ = nullptr;
};

}  // namespace

bool CheckStrictJson(std::string_view json, const gp::Descriptor* type, JsonProblem* problem, size_t cut_hint,
                     JsonCut* cut, const std::function<void(const JsonCut&)>& on_cut) {
  Scanner scanner(json, problem);
  if (cut != nullptr) {
    *cut = JsonCut();
    scanner.RecordCut(cut_hint, cut, &on_cut);
  }
  const bool ok = scanner.Run(type);
  if (!ok && cut != nullptr) *cut = JsonCut();
  return ok;
}

JsonLocations::JsonLocations(std::string_view json, const gp::Descriptor* type) {
  Scanner scanner(json, nullptr);
  scanner.RecordLocations(&nodes_);
  if (!scanner.Run(type)) nodes_.clear();
}

size_t JsonLocations::Find(const FieldPath& path) const {
  if (nodes_.empty()) return kNowhere;
  size_t best = kNowhere;
  const Node* node = &nodes_.front();
  for (const PathStep& step : path.steps()) {
    if (node == nullptr) break;
    // A field named twice is refused, so the first entry of the field is its only one.
    const auto entry = std::find_if(node->entries.begin(), node->entries.end(),
                                    [&](const Node::Entry& e) { return e.field->name() == step.field; });
    if (entry == node->entries.end()) break;
    if (step.index < 0) {
      best = entry->key;
      node = entry->children.empty() ? nullptr : entry->children.front();
    } else {
      if (static_cast<size_t>(step.index) >= entry->elements.size()) {
        best = entry->key;
        break;
      }
      best = entry->elements[static_cast<size_t>(step.index)];
      node = entry->children[static_cast<size_t>(step.index)];
    }
  }
  return best;
}

LineIndex::LineIndex(std::string_view text) {
  starts_.push_back(0);
  for (size_t at = text.find('\n'); at != kNowhere; at = text.find('\n', at + 1)) starts_.push_back(at + 1);
}

std::pair<int, int> LineIndex::At(size_t offset) const {
  const auto after = std::upper_bound(starts_.begin(), starts_.end(), offset);
  const size_t line = static_cast<size_t>(after - starts_.begin());  // 1-based: starts_[0] is line 1
  return {static_cast<int>(line), static_cast<int>(offset - starts_[line - 1] + 1)};
}

}  // namespace pcfg
