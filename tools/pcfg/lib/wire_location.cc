#include "wire_location.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>

namespace pcfg {

namespace gp = google::protobuf;
using gp::internal::WireFormatLite;

namespace {

// The elements in a packed record's body of LENGTH bytes, read from INPUT.
int CountPacked(gp::io::CodedInputStream& input, const gp::FieldDescriptor* field, uint32_t length) {
  const auto wire =
      WireFormatLite::WireTypeForFieldType(static_cast<WireFormatLite::FieldType>(field->type()));
  if (wire == WireFormatLite::WIRETYPE_FIXED32) return input.Skip(static_cast<int>(length)) ? length / 4 : 0;
  if (wire == WireFormatLite::WIRETYPE_FIXED64) return input.Skip(static_cast<int>(length)) ? length / 8 : 0;
  const gp::io::CodedInputStream::Limit limit = input.PushLimit(static_cast<int>(length));
  int count = 0;
  uint64_t ignored;
  while (input.BytesUntilLimit() > 0 && input.ReadVarint64(&ignored)) ++count;
  input.PopLimit(limit);
  return count;
}

}  // namespace

WireSpan LocateInWire(std::string_view wire, const gp::Descriptor* root, const FieldPath& path) {
  gp::io::CodedInputStream input(reinterpret_cast<const uint8_t*>(wire.data()),
                                 static_cast<int>(wire.size()));
  WireSpan best;
  const gp::Descriptor* type = root;
  for (const PathStep& step : path.steps()) {
    const gp::FieldDescriptor* field =
        type == nullptr ? nullptr : type->FindFieldByName(std::string(step.field));
    if (field == nullptr) return best;
    const int wanted = std::max(step.index, 0);
    int seen = 0;  // elements of the field before this record
    while (true) {
      const int start = input.CurrentPosition();
      const uint32_t tag = input.ReadTag();
      if (tag == 0) return best;
      if (WireFormatLite::GetTagFieldNumber(tag) != field->number()) {
        if (!WireFormatLite::SkipField(&input, tag)) return best;
        continue;
      }
      const bool delimited = WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
      const bool message = field->type() == gp::FieldDescriptor::TYPE_MESSAGE;
      if (delimited && (message || (field->is_repeated() && field->is_packable()))) {
        uint32_t length;
        if (!input.ReadVarint32(&length)) return best;
        const int end = input.CurrentPosition() + static_cast<int>(length);
        if (message && seen++ == wanted) {
          best = {start, end - start};
          input.PushLimit(static_cast<int>(length));  // the rest of the walk stays inside it
          type = field->message_type();
          break;
        }
        if (message) {
          if (!input.Skip(static_cast<int>(length))) return best;
          continue;
        }
        seen += CountPacked(input, field, length);
        if (wanted < seen) return {start, end - start};
        continue;
      }
      if (!WireFormatLite::SkipField(&input, tag)) return best;
      if (seen++ == wanted) return {start, input.CurrentPosition() - start};
    }
  }
  return best;
}

}  // namespace pcfg
