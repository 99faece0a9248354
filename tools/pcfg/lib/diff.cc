#include "diff.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/unknown_field_set.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <functional>
#include <ostream>
#include <unordered_map>

namespace pcfg {
namespace {

namespace gp = google::protobuf;

// The key of each list whose entries are matched by key; every other list is positional.
const std::unordered_map<const gp::FieldDescriptor*, const gp::FieldDescriptor*>& KeyFields() {
  static const auto keys = [] {
    struct Row {
      const gp::Descriptor* owner;
      const char* list;
      const char* key;
    };
    const Row rows[] = {
        {Config::descriptor(), "peripherals", "id"},
        {Config::descriptor(), "physical_cameras", "peripheral_id"},
        {Config::descriptor(), "logical_cameras", "peripheral_id"},
        {Config::descriptor(), "camera_sets", "peripheral_id"},
        {Config::descriptor(), "camera_stream_configs", "peripheral_id"},
        {Config::descriptor(), "system_options", "type"},
        {Config::descriptor(), "adapter_options", "type"},
        {models::GeneralConfigurations::descriptor(), "hal_stream_configs", "system_type"},
        {models::CameraHalStreamConfigs::descriptor(), "pipeline_configs", "pipeline_type"},
    };
    std::unordered_map<const gp::FieldDescriptor*, const gp::FieldDescriptor*> map;
    for (const Row& row : rows) {
      const gp::FieldDescriptor* list = row.owner->FindFieldByName(row.list);
      map.emplace(list, list->message_type()->FindFieldByName(row.key));
    }
    return map;
  }();
  return keys;
}

// Ids made of these print bare inside [...]; anything else is quoted.
bool IsBareKey(const std::string& key) {
  return !key.empty() && std::all_of(key.begin(), key.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '-' || c == '.' || c == '/' || c == ':';
  });
}

bool SameDouble(double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); }

// The identity of an entry: its key string itself, or the number of its key enumeration (the
// key fields of the table above are of these two kinds).
std::string KeyOf(const gp::Message& entry, const gp::FieldDescriptor* key) {
  const gp::Reflection* reflection = entry.GetReflection();
  if (key->cpp_type() == gp::FieldDescriptor::CPPTYPE_ENUM)
    return std::to_string(reflection->GetEnumValue(entry, key));
  return reflection->GetString(entry, key);
}

// Element INDEX of a repeated field, or the field itself for -1.
bool SameScalar(const gp::Message& a, const gp::Message& b, const gp::FieldDescriptor* field, int index) {
  const gp::Reflection* r = a.GetReflection();
  auto same = [&](auto get, auto get_repeated, auto equal) {
    return index < 0 ? equal((r->*get)(a, field), (r->*get)(b, field))
                     : equal((r->*get_repeated)(a, field, index), (r->*get_repeated)(b, field, index));
  };
  const std::equal_to<> equal;
  using R = gp::Reflection;
  switch (field->cpp_type()) {
    case gp::FieldDescriptor::CPPTYPE_INT32:
      return same(&R::GetInt32, &R::GetRepeatedInt32, equal);
    case gp::FieldDescriptor::CPPTYPE_INT64:
      return same(&R::GetInt64, &R::GetRepeatedInt64, equal);
    case gp::FieldDescriptor::CPPTYPE_UINT32:
      return same(&R::GetUInt32, &R::GetRepeatedUInt32, equal);
    case gp::FieldDescriptor::CPPTYPE_UINT64:
      return same(&R::GetUInt64, &R::GetRepeatedUInt64, equal);
    case gp::FieldDescriptor::CPPTYPE_BOOL:
      return same(&R::GetBool, &R::GetRepeatedBool, equal);
    case gp::FieldDescriptor::CPPTYPE_ENUM:
      return same(&R::GetEnumValue, &R::GetRepeatedEnumValue, equal);
    case gp::FieldDescriptor::CPPTYPE_FLOAT:
      return same(&R::GetFloat, &R::GetRepeatedFloat, SameDouble);
    case gp::FieldDescriptor::CPPTYPE_DOUBLE:
      return same(&R::GetDouble, &R::GetRepeatedDouble, SameDouble);
    case gp::FieldDescriptor::CPPTYPE_STRING: {
      std::string scratch_a, scratch_b;
      return index < 0
                 ? r->GetStringReference(a, field, &scratch_a) == r->GetStringReference(b, field, &scratch_b)
                 : r->GetRepeatedStringReference(a, field, index, &scratch_a) ==
                       r->GetRepeatedStringReference(b, field, index, &scratch_b);
    }
    case gp::FieldDescriptor::CPPTYPE_MESSAGE:
      break;
  }
  return false;
}

// Walks two messages of one type side by side. It is not protobuf's MessageDifferencer: with
// TreatAsMap that one pairs keyed entries by comparing each with each, quadratic in the length of
// a list, and names entries by position; this walk pairs them through a hash map in linear time
// and names them by key. The path is one growing buffer, cut back after each step, so that only
// differences pay for building their path.
class Differ {
 public:
  explicit Differ(std::vector<Difference>* out) : out_(out) {
    printer_.SetSingleLineMode(true);
    printer_.SetUseUtf8StringEscaping(true);
  }

  void Messages(const gp::Message& a, const gp::Message& b) {
    if (SameBytes(a, b)) return;
    const gp::Reflection* reflection = a.GetReflection();
    std::vector<const gp::FieldDescriptor*> in_a, in_b;
    reflection->ListFields(a, &in_a);
    reflection->ListFields(b, &in_b);
    // Both lists are in field-number order: merge them.
    auto by_number = [](const gp::FieldDescriptor* x, const gp::FieldDescriptor* y) {
      return x->number() < y->number();
    };
    auto ia = in_a.begin(), ib = in_b.begin();
    while (ia != in_a.end() || ib != in_b.end()) {
      const bool take_a = ib == in_b.end() || (ia != in_a.end() && !by_number(*ib, *ia));
      const bool take_b = ia == in_a.end() || (ib != in_b.end() && !by_number(*ia, *ib));
      const gp::FieldDescriptor* field = take_a ? *ia : *ib;
      const size_t mark = Append(field->name());
      Field(a, b, field, take_a, take_b);
      path_.resize(mark);
      if (take_a) ++ia;
      if (take_b) ++ib;
    }
    UnknownFields(reflection->GetUnknownFields(a), reflection->GetUnknownFields(b));
  }

 private:
  // Messages whose wire forms are equal hold equal values, so nothing below them can differ:
  // serialising, which the generated code does fast, spares the walk by reflection over all that
  // is the same. (The converse does not hold, -0.0 against 0.0 for one, and is left to the walk.)
  bool SameBytes(const gp::Message& a, const gp::Message& b) {
    const size_t size = a.ByteSizeLong();
    if (size != b.ByteSizeLong()) return false;
    bytes_a_.resize(size);
    bytes_b_.resize(size);
    a.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(bytes_a_.data()));
    b.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(bytes_b_.data()));
    return bytes_a_ == bytes_b_;
  }

  void Field(const gp::Message& a, const gp::Message& b, const gp::FieldDescriptor* field, bool set_in_a,
             bool set_in_b) {
    const gp::Reflection* reflection = a.GetReflection();
    if (field->is_repeated()) {
      auto key = KeyFields().find(field);
      if (key != KeyFields().end())
        Keyed(a, b, field, key->second);
      else
        Positional(a, b, field);
    } else if (set_in_a && set_in_b) {
      if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE)
        Messages(reflection->GetMessage(a, field), reflection->GetMessage(b, field));
      else if (!SameScalar(a, b, field, -1))
        Add(Difference::kChanged, Value(a, field, -1), Value(b, field, -1));
    } else if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE && !field->containing_oneof()) {
      // Without presence, the side that does not list the field holds its default value.
      Add(Difference::kChanged, Value(a, field, -1), Value(b, field, -1));
    } else if (set_in_a) {
      Add(Difference::kRemoved, Value(a, field, -1), "");
    } else {
      Add(Difference::kAdded, "", Value(b, field, -1));
    }
  }

  void Positional(const gp::Message& a, const gp::Message& b, const gp::FieldDescriptor* field) {
    const gp::Reflection* reflection = a.GetReflection();
    const int size_a = reflection->FieldSize(a, field), size_b = reflection->FieldSize(b, field);
    const bool messages = field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE;
    for (int i = 0; i < std::max(size_a, size_b); ++i) {
      const size_t mark = path_.size();
      path_ += "[" + std::to_string(i) + "]";
      if (i >= size_b) {
        Add(Difference::kRemoved, Value(a, field, i), "");
      } else if (i >= size_a) {
        Add(Difference::kAdded, "", Value(b, field, i));
      } else if (messages) {
        Messages(reflection->GetRepeatedMessage(a, field, i), reflection->GetRepeatedMessage(b, field, i));
      } else if (!SameScalar(a, b, field, i)) {
        Add(Difference::kChanged, Value(a, field, i), Value(b, field, i));
      }
      path_.resize(mark);
    }
  }

  // Pairs the n-th entry with a key in A with the n-th entry with that key in B, through a hash
  // map, so that large lists cost linear time whatever their order.
  void Keyed(const gp::Message& a, const gp::Message& b, const gp::FieldDescriptor* field,
             const gp::FieldDescriptor* key) {
    const gp::Reflection* reflection = a.GetReflection();
    const int size_a = reflection->FieldSize(a, field), size_b = reflection->FieldSize(b, field);
    struct Slot {
      int next_in_b = -1;  // the first entry of B with this key that is not yet paired
      int seen_in_a = 0;
      int seen_in_b = 0;
    };
    std::unordered_map<std::string, Slot> slots;
    slots.reserve(static_cast<size_t>(std::max(size_a, size_b)));
    // B's entries with one key, chained in order of appearance.
    std::vector<int> next_same_key(static_cast<size_t>(size_b), -1);
    std::vector<std::string> keys_b(static_cast<size_t>(size_b));
    for (int i = size_b - 1; i >= 0; --i) {
      keys_b[i] = KeyOf(reflection->GetRepeatedMessage(b, field, i), key);
      Slot& slot = slots[keys_b[i]];
      next_same_key[i] = slot.next_in_b;
      slot.next_in_b = i;
    }
    std::vector<bool> paired(static_cast<size_t>(size_b), false);
    for (int i = 0; i < size_a; ++i) {
      const gp::Message& entry = reflection->GetRepeatedMessage(a, field, i);
      Slot& slot = slots[KeyOf(entry, key)];
      const size_t mark = AppendKey(entry, key, ++slot.seen_in_a);
      if (slot.next_in_b < 0) {
        Add(Difference::kRemoved, "", "");
      } else {
        const int j = slot.next_in_b;
        slot.next_in_b = next_same_key[j];
        paired[j] = true;
        Messages(entry, reflection->GetRepeatedMessage(b, field, j));
      }
      path_.resize(mark);
    }
    for (int j = 0; j < size_b; ++j) {
      const int occurrence = ++slots[keys_b[j]].seen_in_b;
      if (paired[j]) continue;
      const size_t mark = AppendKey(reflection->GetRepeatedMessage(b, field, j), key, occurrence);
      Add(Difference::kAdded, "", "");
      path_.resize(mark);
    }
  }

  // Appends [KEY] (enumerations by name, odd strings quoted, #N for the N-th repeat of a key).
  size_t AppendKey(const gp::Message& entry, const gp::FieldDescriptor* key, int occurrence) {
    const size_t mark = path_.size();
    std::string shown;
    if (key->cpp_type() == gp::FieldDescriptor::CPPTYPE_STRING) {
      shown = entry.GetReflection()->GetString(entry, key);
      if (!IsBareKey(shown)) shown = Value(entry, key, -1);
    } else {
      shown = Value(entry, key, -1);
    }
    path_ += "[" + shown;
    if (occurrence > 1) path_ += "#" + std::to_string(occurrence);
    path_ += "]";
    return mark;
  }

  // A scalar as the text format writes it; nothing for a message.
  std::string Value(const gp::Message& message, const gp::FieldDescriptor* field, int index) const {
    if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE) return "";
    std::string text;
    printer_.PrintFieldValueToString(message, field, index, &text);
    return text;
  }

  // Fields the schema does not know compare as protobuf's MessageDifferencer compares them: in
  // order of number and wire type (the order in which a writer put different fields is no
  // difference), values exactly (bytes, not their printed form, which reads a length-delimited
  // field as a message where it can and so hides how its varints were written).
  static std::vector<const gp::UnknownField*> InWireOrder(const gp::UnknownFieldSet& set) {
    std::vector<const gp::UnknownField*> fields;
    for (int i = 0; i < set.field_count(); ++i) fields.push_back(&set.field(i));
    std::stable_sort(fields.begin(), fields.end(), [](const gp::UnknownField* x, const gp::UnknownField* y) {
      return std::make_pair(x->number(), x->type()) < std::make_pair(y->number(), y->type());
    });
    return fields;
  }
  static bool SameUnknown(const gp::UnknownFieldSet& a, const gp::UnknownFieldSet& b) {
    if (a.field_count() != b.field_count()) return false;
    const auto in_a = InWireOrder(a), in_b = InWireOrder(b);
    for (size_t i = 0; i < in_a.size(); ++i) {
      const gp::UnknownField& x = *in_a[i];
      const gp::UnknownField& y = *in_b[i];
      if (x.number() != y.number() || x.type() != y.type()) return false;
      switch (x.type()) {
        case gp::UnknownField::TYPE_VARINT:
          if (x.varint() != y.varint()) return false;
          break;
        case gp::UnknownField::TYPE_FIXED32:
          if (x.fixed32() != y.fixed32()) return false;
          break;
        case gp::UnknownField::TYPE_FIXED64:
          if (x.fixed64() != y.fixed64()) return false;
          break;
        case gp::UnknownField::TYPE_LENGTH_DELIMITED:
          if (x.length_delimited() != y.length_delimited()) return false;
          break;
        case gp::UnknownField::TYPE_GROUP:
          if (!SameUnknown(x.group(), y.group())) return false;
          break;
      }
    }
    return true;
  }

  void UnknownFields(const gp::UnknownFieldSet& a, const gp::UnknownFieldSet& b) {
    if (a.empty() && b.empty()) return;
    if (SameUnknown(a, b)) return;
    std::string text_a, text_b;
    printer_.PrintUnknownFieldsToString(a, &text_a);
    printer_.PrintUnknownFieldsToString(b, &text_b);
    if (text_a == text_b) {  // equal in print: show the wire bytes in hexadecimal
      auto hex = [](const gp::UnknownFieldSet& set) {
        std::string wire, text = "bytes";
        set.SerializeToString(&wire);
        for (unsigned char c : wire) text += {' ', "0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
        return text;
      };
      text_a = hex(a), text_b = hex(b);
    }
    auto shown = [](std::string text) {
      while (!text.empty() && text.back() == ' ') text.pop_back();
      if (text.empty()) return std::string("(none)");
      const size_t kLimit = 60;
      if (text.size() > kLimit) text = text.substr(0, kLimit) + "...";
      return "{ " + text + " }";
    };
    const size_t mark = Append("(unknown fields)");
    Add(Difference::kChanged, shown(text_a), shown(text_b));
    path_.resize(mark);
  }

  size_t Append(const std::string& name) {
    const size_t mark = path_.size();
    if (!path_.empty()) path_ += '.';
    path_ += name;
    return mark;
  }

  void Add(Difference::Kind kind, std::string old_value, std::string new_value) {
    out_->push_back({path_, kind, std::move(old_value), std::move(new_value)});
  }

  std::vector<Difference>* out_;
  gp::TextFormat::Printer printer_;
  std::string path_;
  std::string bytes_a_, bytes_b_;  // reused by SameBytes
};

}  // namespace

std::vector<Difference> DiffConfigs(const Config& a, const Config& b) {
  std::vector<Difference> differences;
  Differ(&differences).Messages(a, b);
  return differences;
}

std::string FormatDifference(const Difference& d) {
  switch (d.kind) {
    case Difference::kChanged:
      return d.path + ": " + d.old_value + " -> " + d.new_value;
    case Difference::kAdded:
      return "+ " + d.path + ": " + (d.new_value.empty() ? "added" : d.new_value);
    case Difference::kRemoved:
      return "- " + d.path + ": " + (d.old_value.empty() ? "removed" : d.old_value);
  }
  return d.path;
}

void PrintDifferences(std::ostream& out, const std::vector<Difference>& differences) {
  for (const Difference& d : differences) out << FormatDifference(d) << '\n';
}

}  // namespace pcfg
