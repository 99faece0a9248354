// Visits every message of a configuration tree with its field path (reflection, so it covers
// every field of the schema without naming them).
#pragma once

#include <google/protobuf/message.h>

#include <functional>

#include "field_path.h"

namespace pcfg {

using MessageVisitor = std::function<void(const google::protobuf::Message&, const FieldPath&)>;

// Calls VISIT for MESSAGE and then for every sub-message that is set, depth first.
void WalkMessages(const google::protobuf::Message& message, const FieldPath& path,
                  const MessageVisitor& visit);

}  // namespace pcfg
