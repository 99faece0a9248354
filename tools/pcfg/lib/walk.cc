#include "walk.h"

namespace pcfg {

namespace gp = google::protobuf;

namespace {

// One path grows and shrinks with the walk: copying it per message would dominate the cost.
void Walk(const gp::Message& message, FieldPath& path, const MessageVisitor& visit) {
  const gp::Reflection* reflection = message.GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  reflection->ListFields(message, &fields);
  visit(message, path, fields);
  for (const gp::FieldDescriptor* field : fields) {
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_repeated()) {
      const int size = reflection->FieldSize(message, field);
      for (int i = 0; i < size; ++i) {
        path.Push(field->name(), i);
        Walk(reflection->GetRepeatedMessage(message, field, i), path, visit);
        path.Pop();
      }
    } else {
      path.Push(field->name());
      Walk(reflection->GetMessage(message, field), path, visit);
      path.Pop();
    }
  }
}

}  // namespace

void WalkMessages(const gp::Message& message, const FieldPath& path, const MessageVisitor& visit) {
  FieldPath working = path;
  Walk(message, working, visit);
}

FieldPath ScalarValue::PathFrom(const FieldPath& message_path) const {
  return index >= 0 ? message_path.Element(field->name(), index) : message_path.Field(field->name());
}

void ForEachSetScalar(const gp::Message& root,
                      const std::function<void(const ScalarValue&, const FieldPath&)>& visit) {
  WalkMessages(root, FieldPath(),
               [&](const gp::Message& message, const FieldPath& path,
                   const std::vector<const gp::FieldDescriptor*>& fields) {
                 const gp::Reflection* reflection = message.GetReflection();
                 for (const gp::FieldDescriptor* field : fields) {
                   if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
                   if (!field->is_repeated()) {
                     visit(ScalarValue{message, field, -1}, path);
                     continue;
                   }
                   const int size = reflection->FieldSize(message, field);
                   for (int i = 0; i < size; ++i) visit(ScalarValue{message, field, i}, path);
                 }
               });
}

}  // namespace pcfg
