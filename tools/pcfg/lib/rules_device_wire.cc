// The device-wire rule: wire patterns that the device's generated parser (protobuf 3.9.1) reads
// differently from the host runtime, found by scanning binary input field by field.
//
// The one known today: for a packed repeated scalar such as register_data, 3.9.1's parser, after
// an element in the unpacked form, goes on reading elements while the next tag is the field's
// packed tag and the list has room left, without reading a length. Newer runtimes read that tag
// as the packed field it is. A writer that mixes the two forms (pcfg and protoc always write the
// packed form) gets a configuration that the device reads out of step.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <cstring>

#include "rule_families.h"

namespace pcfg::rules {
namespace {

namespace gp = google::protobuf;
using gp::internal::WireFormatLite;

// The list growth of protobuf 3.9.1's RepeatedField: at least 4, else double.
struct DeviceList {
  int size = 0;
  int capacity = 0;
  void Add() {
    if (size == capacity) capacity = std::max(4, std::max(capacity * 2, size + 1));
    ++size;
  }
  void Reserve(int wanted) {
    if (capacity < wanted) capacity = std::max(4, std::max(capacity * 2, wanted));
  }
};

bool IsVarintScalar(const gp::FieldDescriptor* field) {
  switch (field->type()) {
    case gp::FieldDescriptor::TYPE_INT32:
    case gp::FieldDescriptor::TYPE_INT64:
    case gp::FieldDescriptor::TYPE_UINT32:
    case gp::FieldDescriptor::TYPE_UINT64:
    case gp::FieldDescriptor::TYPE_SINT32:
    case gp::FieldDescriptor::TYPE_SINT64:
    case gp::FieldDescriptor::TYPE_BOOL:
      return true;
    default:
      return false;
  }
}

// Bytes of one fixed-size element, or 0 for varint types.
int FixedSize(const gp::FieldDescriptor* field) {
  switch (WireFormatLite::WireTypeForFieldType(static_cast<WireFormatLite::FieldType>(field->type()))) {
    case WireFormatLite::WIRETYPE_FIXED32:
      return 4;
    case WireFormatLite::WIRETYPE_FIXED64:
      return 8;
    default:
      return 0;
  }
}

class WireScanner {
 public:
  WireScanner(const std::string& bytes, Findings& findings)
      : input_(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int>(bytes.size())),
        findings_(findings) {}

  void Scan(const gp::Descriptor* type) { ScanMessage(type, 0); }

 private:
  bool ReadElement(int fixed_size) {
    if (fixed_size == 4) {
      uint32_t ignored;
      return input_.ReadLittleEndian32(&ignored);
    }
    if (fixed_size == 8) {
      uint64_t ignored;
      return input_.ReadLittleEndian64(&ignored);
    }
    uint64_t ignored;
    return input_.ReadVarint64(&ignored);
  }

  // Whether the next bytes are TAG, without reading them.
  bool NextIs(uint32_t tag) {
    uint8_t encoded[5];
    const uint8_t* end = gp::io::CodedOutputStream::WriteVarint32ToArray(tag, encoded);
    const void* data;
    int available;
    if (!input_.GetDirectBufferPointer(&data, &available)) return false;
    const int length = static_cast<int>(end - encoded);
    return available >= length && std::memcmp(data, encoded, static_cast<size_t>(length)) == 0;
  }

  // The length of a packed field's body as the varint after TAG says; 0 when unreadable.
  uint32_t PeekPackedLength(uint32_t tag) {
    const void* data;
    int available;
    if (!input_.GetDirectBufferPointer(&data, &available)) return 0;
    gp::io::CodedInputStream peek(static_cast<const uint8_t*>(data), available);
    uint32_t skipped, length = 0;
    return peek.ReadVarint32(&skipped) && skipped == tag && peek.ReadVarint32(&length) ? length : 0;
  }

  // An element in unpacked form whose tag starts at TAG_OFFSET.
  void Unpacked(const gp::FieldDescriptor* field, DeviceList& list, int element, int tag_offset) {
    const uint32_t packed_tag =
        WireFormatLite::MakeTag(field->number(), WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    if (!ReadElement(FixedSize(field))) return;
    list.Add();
    if (list.capacity - list.size == 0 || !NextIs(packed_tag)) return;
    findings_.Add(
        path_.Element(field->name(), element),
        "this element, in unpacked form at byte " + std::to_string(tag_offset) +
            " is followed directly by the field's packed tag at byte " +
            std::to_string(input_.CurrentPosition()) +
            ": the device's parser (protobuf 3.9.1) reads that tag as one more unpacked element and "
            "takes the packed body's length (" +
            std::to_string(PeekPackedLength(packed_tag)) + ") as its value, so the device reads " +
            field->name() + " differently from the host, or rejects the configuration");
  }

  // Counts the elements of a packed body, growing LIST as the device's parser would.
  int Packed(const gp::FieldDescriptor* field, DeviceList& list) {
    uint32_t length;
    if (!input_.ReadVarint32(&length)) return 0;
    const gp::io::CodedInputStream::Limit limit = input_.PushLimit(static_cast<int>(length));
    const int fixed_size = FixedSize(field);
    if (fixed_size > 0) list.Reserve(list.size + static_cast<int>(length) / fixed_size);
    int count = 0;
    while (input_.BytesUntilLimit() > 0 && ReadElement(fixed_size)) {
      list.Add();
      ++count;
    }
    input_.PopLimit(limit);
    return count;
  }

  void ScanMessage(const gp::Descriptor* type, int depth) {
    std::vector<int> elements(static_cast<size_t>(type->field_count()), 0);
    std::vector<DeviceList> lists(static_cast<size_t>(type->field_count()));
    while (true) {
      const int tag_offset = input_.CurrentPosition();
      const uint32_t tag = input_.ReadTag();
      if (tag == 0) return;
      const gp::FieldDescriptor* field =
          type->FindFieldByNumber(static_cast<int>(WireFormatLite::GetTagFieldNumber(tag)));
      const WireFormatLite::WireType wire = WireFormatLite::GetTagWireType(tag);
      if (field == nullptr) {
        if (!WireFormatLite::SkipField(&input_, tag)) return;
        continue;
      }
      int& count = elements[static_cast<size_t>(field->index())];
      if (field->type() == gp::FieldDescriptor::TYPE_MESSAGE &&
          wire == WireFormatLite::WIRETYPE_LENGTH_DELIMITED && depth < 64) {
        uint32_t length;
        if (!input_.ReadVarint32(&length)) return;
        const gp::io::CodedInputStream::Limit limit = input_.PushLimit(static_cast<int>(length));
        path_.Push(field->name(), field->is_repeated() ? count++ : -1);
        ScanMessage(field->message_type(), depth + 1);
        path_.Pop();
        input_.PopLimit(limit);
        continue;
      }
      const bool scalar_list = field->is_repeated() &&
                               field->cpp_type() != gp::FieldDescriptor::CPPTYPE_ENUM &&
                               (IsVarintScalar(field) || FixedSize(field) > 0);
      DeviceList& list = lists[static_cast<size_t>(field->index())];
      if (scalar_list && wire == WireFormatLite::WIRETYPE_LENGTH_DELIMITED) {
        count += Packed(field, list);
      } else if (scalar_list && wire == WireFormatLite::WireTypeForFieldType(
                                            static_cast<WireFormatLite::FieldType>(field->type()))) {
        Unpacked(field, list, count++, tag_offset);
      } else if (!WireFormatLite::SkipField(&input_, tag)) {
        return;
      }
    }
  }

  gp::io::CodedInputStream input_;
  Findings& findings_;
  FieldPath path_;
};

}  // namespace

void CheckDeviceWire(const CheckContext& context, Findings& findings) {
  if (context.input.format != Format::kBinary) return;
  WireScanner(context.input.raw, findings).Scan(Config::descriptor());
}

}  // namespace pcfg::rules
