// Visits a configuration tree by reflection, so that a rule covers every field of the schema
// without naming them: every message with its field path, or every value of every set scalar
// field (singular, or each element of a repeated one).
#pragma once

#include <google/protobuf/message.h>

#include <functional>
#include <vector>

#include "field_path.h"

namespace pcfg {

// Receives each message with its path and the fields that are set in it (listed once per
// message by the walk, which is most of a walk's cost).
using MessageVisitor =
    std::function<void(const google::protobuf::Message&, const FieldPath&,
                       const std::vector<const google::protobuf::FieldDescriptor*>& set_fields)>;

// Calls VISIT for MESSAGE and then for every sub-message that is set, depth first.
void WalkMessages(const google::protobuf::Message& message, const FieldPath& path,
                  const MessageVisitor& visit);

// One value of a set scalar field: INDEX is the element of a repeated field, or -1.
struct ScalarValue {
  const google::protobuf::Message& message;
  const google::protobuf::FieldDescriptor* field;
  int index;
  // The path of the value itself: the message's path extended by the field (and element).
  FieldPath PathFrom(const FieldPath& message_path) const;
};

// Calls VISIT for each value of each set scalar field of MESSAGE and its sub-messages, with the
// path of the message that holds it, depth first, in field-number order.
void ForEachSetScalar(const google::protobuf::Message& message,
                      const std::function<void(const ScalarValue&, const FieldPath&)>& visit);

}  // namespace pcfg
