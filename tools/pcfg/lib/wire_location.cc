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

WireLocator::WireLocator(const gp::Descriptor* root) : root_(root) {}

const WireLocator::Body& WireLocator::IndexOf(std::string_view wire, int start, int length,
                                              const gp::Descriptor* type) const {
  auto [found, added] = bodies_.try_emplace(start);
  if (!added) return found->second;
  Body& body = found->second;
  gp::io::CodedInputStream input(reinterpret_cast<const uint8_t*>(wire.data()) + start, length);
  while (true) {
    const int record = input.CurrentPosition();
    const uint32_t tag = input.ReadTag();
    if (tag == 0) break;
    const int number = WireFormatLite::GetTagFieldNumber(tag);
    const gp::FieldDescriptor* field = type->FindFieldByNumber(number);
    std::vector<Record>& records = body.fields[number];
    const int before = records.empty() ? 0 : records.back().elements_through;
    Record entry{start + record, 0, -1, 0, before + 1};
    const bool delimited = WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
    const bool message = field != nullptr && field->type() == gp::FieldDescriptor::TYPE_MESSAGE;
    if (field != nullptr && delimited && (message || (field->is_repeated() && field->is_packable()))) {
      uint32_t size;
      if (!input.ReadVarint32(&size)) break;
      entry.body = start + input.CurrentPosition();
      entry.body_length = static_cast<int>(size);
      if (message) {
        if (!input.Skip(static_cast<int>(size))) break;
      } else {
        entry.elements_through = before + CountPacked(input, field, size);
      }
    } else if (!WireFormatLite::SkipField(&input, tag)) {
      break;
    }
    entry.length = start + input.CurrentPosition() - entry.start;
    records.push_back(entry);
  }
  return body;
}

WireSpan WireLocator::Locate(std::string_view wire, const FieldPath& path) const {
  WireSpan best;
  const gp::Descriptor* type = root_;
  int start = 0, length = static_cast<int>(wire.size());
  for (const PathStep& step : path.steps()) {
    const gp::FieldDescriptor* field =
        type == nullptr ? nullptr : type->FindFieldByName(std::string(step.field));
    if (field == nullptr) return best;
    const Body& body = IndexOf(wire, start, length, type);
    const auto records = body.fields.find(field->number());
    if (records == body.fields.end()) return best;
    // The record that holds element WANTED: the first whose elements reach past it.
    const int wanted = std::max(step.index, 0);
    const auto record = std::upper_bound(records->second.begin(), records->second.end(), wanted,
                                         [](int n, const Record& r) { return n < r.elements_through; });
    if (record == records->second.end()) return best;
    best = {record->start, record->length};
    if (field->type() != gp::FieldDescriptor::TYPE_MESSAGE || record->body < 0) return best;
    type = field->message_type();
    start = record->body;
    length = record->body_length;
  }
  return best;
}

}  // namespace pcfg
