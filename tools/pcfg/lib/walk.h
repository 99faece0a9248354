// Walks over a configuration tree by reflection, so that a rule covers every field of the schema
// without naming them. What a walk visits is worked out once per message type: the scalar fields
// a filter admits, and the message fields that can lead to them. A walk then costs a presence
// test per such field and message, rather than a listing of every field of every message.
#pragma once

#include <google/protobuf/message.h>

#include <functional>
#include <unordered_map>
#include <vector>

#include "field_path.h"

namespace pcfg {

// One value of a set scalar field: INDEX is the element of a repeated field, or -1.
struct ScalarValue {
  const google::protobuf::Message& message;
  const google::protobuf::Reflection* reflection;
  const google::protobuf::FieldDescriptor* field;
  int index;
  // The path of the value itself: the message's path extended by the field (and element).
  FieldPath PathFrom(const FieldPath& message_path) const;
};

class FieldWalk {
 public:
  using Filter = bool (*)(const google::protobuf::FieldDescriptor* field);
  // Plans walks from messages of type ROOT (and of every type below it) that visit the scalar
  // fields WANTED admits. Plans for the whole schema are made here, so a walk shares nothing
  // mutable and may run on several threads.
  FieldWalk(const google::protobuf::Descriptor* root, Filter wanted);

  using ValueVisitor = std::function<void(const ScalarValue& value, const FieldPath& message_path)>;
  // Calls VISIT for each value of each set scalar field that the filter admits, in ROOT and its
  // set sub-messages, depth first.
  void ForEachValue(const google::protobuf::Message& root, const ValueVisitor& visit) const;

  using MessageVisitor =
      std::function<void(const google::protobuf::Message& message,
                         const google::protobuf::Reflection* reflection, const FieldPath& path)>;
  // Calls VISIT for ROOT and each set sub-message that can hold admitted fields, depth first;
  // with a filter that admits nothing but FieldWalk::kEveryMessage, for every set sub-message.
  void ForEachMessage(const google::protobuf::Message& root, const MessageVisitor& visit) const;

  // Admits no scalar but makes ForEachMessage visit every message.
  static bool kEveryMessage(const google::protobuf::FieldDescriptor*) { return false; }

 private:
  struct Plan {
    const google::protobuf::Reflection* reflection = nullptr;
    std::vector<const google::protobuf::FieldDescriptor*> scalars;
    std::vector<std::pair<const google::protobuf::FieldDescriptor*, int>> messages;  // field, its plan
  };
  int PlanFor(const google::protobuf::Descriptor* type, Filter wanted,
              std::unordered_map<const google::protobuf::Descriptor*, int>& planned);
  void KeepMessagesThatLead(bool every_message);
  template <typename Visit>
  void Walk(const google::protobuf::Message& message, int plan, FieldPath& path, const Visit& visit) const;

  std::vector<Plan> plans_;  // the root's first
};

}  // namespace pcfg
