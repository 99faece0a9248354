// Visits every message of a configuration tree with its field path (reflection, so it covers
// every field of the schema without naming them).
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

}  // namespace pcfg
