#include "walk.h"

#include <vector>

namespace pcfg {

namespace gp = google::protobuf;

void WalkMessages(const gp::Message& message, const FieldPath& path, const MessageVisitor& visit) {
  visit(message, path);
  const gp::Reflection* reflection = message.GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  reflection->ListFields(message, &fields);
  for (const gp::FieldDescriptor* field : fields) {
    if (field->cpp_type() != gp::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (field->is_repeated()) {
      for (int i = 0; i < reflection->FieldSize(message, field); ++i)
        WalkMessages(reflection->GetRepeatedMessage(message, field, i), path.Element(field->name(), i),
                     visit);
    } else {
      WalkMessages(reflection->GetMessage(message, field), path.Field(field->name()), visit);
    }
  }
}

}  // namespace pcfg
