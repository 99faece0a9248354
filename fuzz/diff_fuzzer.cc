// pcfg diff against an oracle of its own: two configurations are the same when protobuf's
// MessageDifferencer finds them equal once the lists that pcfg matches by key are stable-sorted
// by that key (so the n-th entry with a key meets the n-th entry with that key). The diff must be
// empty exactly then, either way round, and empty for a configuration against itself.
//
// Input: a mode byte, a form byte, a two-byte length and that many bytes of configuration A.
// In split mode the rest is configuration B in a form of its own; in mutation mode B is a copy
// of A that the rest of the input edits through reflection (set, clear, swap, drop, repeat), so
// that many pairs are equal or nearly so.
#include <google/protobuf/message.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "diff.h"
#include "fuzz_support.h"

namespace {

namespace gp = google::protobuf;

void CollectMessages(gp::Message* message, std::vector<gp::Message*>* out) {
  out->push_back(message);
  const gp::Reflection* reflection = message->GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  reflection->ListFields(*message, &fields);
  for (const gp::FieldDescriptor* field : fields) {
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_repeated()) {
      for (int i = 0; i < reflection->FieldSize(*message, field); ++i)
        CollectMessages(reflection->MutableRepeatedMessage(message, field, i), out);
    } else {
      CollectMessages(reflection->MutableMessage(message, field), out);
    }
  }
}

double SomeDouble(fuzz::Bytes& input) {
  switch (input.Byte() % 6) {
    case 0:
      return 0.0;
    case 1:
      return -0.0;
    case 2:
      return std::numeric_limits<double>::quiet_NaN();
    case 3:
      return 1.5;
    case 4:
      return -std::numeric_limits<double>::infinity();
    default: {
      const uint64_t bits = static_cast<uint64_t>(input.Uint32()) << 32 | input.Uint32();
      double value;
      std::memcpy(&value, &bits, sizeof value);
      return value;
    }
  }
}

// Short strings from a small alphabet collide often, which is what keys need.
std::string SomeString(fuzz::Bytes& input) {
  const uint8_t choice = input.Byte();
  if (choice % 4 == 0) return input.Take(choice / 4 % 8);
  const char* const words[] = {"", "a", "b", "cam_left", "cam_right", "fpga", "0x1A", "é"};
  return words[choice / 4 % 8];
}

uint32_t SomeNumber(fuzz::Bytes& input) {
  const uint8_t choice = input.Byte();
  return choice < 200 ? choice % 8 : input.Uint32();
}

// Sets FIELD of MESSAGE (element INDEX of a list, or a new element for -1) to a value from INPUT.
void SetValue(gp::Message* message, const gp::FieldDescriptor* field, int index, fuzz::Bytes& input) {
  const gp::Reflection* r = message->GetReflection();
  const bool add = field->is_repeated() && index < 0;
  switch (field->cpp_type()) {
    case gp::FieldDescriptor::CPPTYPE_INT32: {
      const int32_t v = static_cast<int32_t>(SomeNumber(input));
      add         ? r->AddInt32(message, field, v)
      : index < 0 ? r->SetInt32(message, field, v)
                  : r->SetRepeatedInt32(message, field, index, v);
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_UINT32: {
      const uint32_t v = SomeNumber(input);
      add         ? r->AddUInt32(message, field, v)
      : index < 0 ? r->SetUInt32(message, field, v)
                  : r->SetRepeatedUInt32(message, field, index, v);
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_ENUM: {
      const int v = static_cast<int>(SomeNumber(input));
      add         ? r->AddEnumValue(message, field, v)
      : index < 0 ? r->SetEnumValue(message, field, v)
                  : r->SetRepeatedEnumValue(message, field, index, v);
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_BOOL: {
      const bool v = input.Byte() & 1;
      add         ? r->AddBool(message, field, v)
      : index < 0 ? r->SetBool(message, field, v)
                  : r->SetRepeatedBool(message, field, index, v);
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_DOUBLE: {
      const double v = SomeDouble(input);
      add         ? r->AddDouble(message, field, v)
      : index < 0 ? r->SetDouble(message, field, v)
                  : r->SetRepeatedDouble(message, field, index, v);
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_STRING: {
      std::string v = SomeString(input);
      add         ? r->AddString(message, field, std::move(v))
      : index < 0 ? r->SetString(message, field, std::move(v))
                  : r->SetRepeatedString(message, field, index, std::move(v));
      break;
    }
    case gp::FieldDescriptor::CPPTYPE_MESSAGE:
      if (add)
        r->AddMessage(message, field);
      else if (index < 0)
        r->MutableMessage(message, field);
      break;
    default:  // the schema has no 64-bit integers or floats
      break;
  }
}

// One edit of CONFIG, chosen by INPUT.
void Edit(pcfg::Config* config, fuzz::Bytes& input) {
  std::vector<gp::Message*> messages;
  CollectMessages(config, &messages);
  const uint32_t pick = input.Byte() << 8 | input.Byte();
  gp::Message* message = messages[pick % messages.size()];
  const gp::Descriptor* type = message->GetDescriptor();
  if (type->field_count() == 0) return;  // the options messages that hold nothing
  const gp::FieldDescriptor* field = type->field(input.Byte() % type->field_count());
  const gp::Reflection* r = message->GetReflection();
  const int size = field->is_repeated() ? r->FieldSize(*message, field) : 0;
  const uint8_t op = input.Byte();
  switch (op % 5) {
    case 0:  // set, or append to a list
      SetValue(message, field, -1, input);
      break;
    case 1:
      r->ClearField(message, field);
      break;
    case 2:  // swap two entries
      if (size > 1) r->SwapElements(message, field, input.Byte() % size, input.Byte() % size);
      break;
    case 3:  // drop the last entry
      if (size > 0) r->RemoveLast(message, field);
      break;
    case 4:  // change an entry, or append a copy of one
      if (size == 0) break;
      if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE) {
        const gp::Message& original = r->GetRepeatedMessage(*message, field, input.Byte() % size);
        std::unique_ptr<gp::Message> copy(original.New());
        copy->CopyFrom(original);
        r->AddAllocatedMessage(message, field, copy.release());
      } else {
        SetValue(message, field, input.Byte() % size, input);
      }
      break;
  }
}

void CheckSelf(const pcfg::Config& config, const char* which) {
  const auto differences = pcfg::DiffConfigs(config, config);
  if (!differences.empty())
    fuzz::Fail(std::string("diff of ") + which + " with itself", pcfg::FormatDifference(differences[0]));
  pcfg::Config sorted(config);
  fuzz::SortKeyedLists(&sorted);
  const auto reordered = pcfg::DiffConfigs(config, sorted);
  if (!reordered.empty())
    fuzz::Fail(std::string("sorting the keyed lists of ") + which + " makes a difference",
               pcfg::FormatDifference(reordered[0]));
}

std::string Listing(const std::vector<pcfg::Difference>& differences) {
  std::string text;
  for (const pcfg::Difference& d : differences) text += pcfg::FormatDifference(d) + "\n";
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Bytes input(data, size);
  const bool mutate = input.Byte() & 1;
  const uint8_t forms = input.Byte();
  const size_t length = static_cast<size_t>(input.Byte()) << 8 | input.Byte();
  pcfg::LoadedConfig a;
  if (!fuzz::Load(fuzz::FormatFromByte(forms), input.Take(length), &a)) return 0;
  pcfg::LoadedConfig b;
  if (mutate) {
    b.config = a.config;
    for (int edits = 0; edits < 8 && !input.empty(); ++edits) Edit(&b.config, input);
  } else if (!fuzz::Load(fuzz::FormatFromByte(forms / 3), input.Rest(), &b)) {
    return 0;
  }

  CheckSelf(a.config, "A");
  CheckSelf(b.config, "B");
  pcfg::Config sorted_a(a.config), sorted_b(b.config);
  fuzz::SortKeyedLists(&sorted_a);
  fuzz::SortKeyedLists(&sorted_b);
  std::string how;
  const bool equal = fuzz::Equal(sorted_a, sorted_b, &how);
  const auto forward = pcfg::DiffConfigs(a.config, b.config);
  if (forward.empty() != equal)
    fuzz::Fail(equal ? "diff finds differences between equal configurations"
                     : "diff finds no difference between different configurations",
               "diff:\n" + Listing(forward) + "MessageDifferencer:\n" + how);
  if (pcfg::DiffConfigs(b.config, a.config).empty() != equal)
    fuzz::Fail("diff B A disagrees with diff A B", Listing(forward));
  return 0;
}
