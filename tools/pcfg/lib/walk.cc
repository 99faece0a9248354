#include "walk.h"

#include <algorithm>

namespace pcfg {

namespace gp = google::protobuf;

FieldPath ScalarValue::PathFrom(const FieldPath& message_path) const {
  return index >= 0 ? message_path.Element(field->name(), index) : message_path.Field(field->name());
}

FieldWalk::FieldWalk(const gp::Descriptor* root, Filter wanted) {
  std::unordered_map<const gp::Descriptor*, int> planned;
  PlanFor(root, wanted, planned);
  KeepMessagesThatLead(wanted == &kEveryMessage);
}

int FieldWalk::PlanFor(const gp::Descriptor* type, Filter wanted,
                       std::unordered_map<const gp::Descriptor*, int>& planned) {
  auto known = planned.find(type);
  if (known != planned.end()) return known->second;
  const int index = static_cast<int>(plans_.size());
  planned.emplace(type, index);
  plans_.emplace_back();
  plans_[index].reflection = gp::MessageFactory::generated_factory()->GetPrototype(type)->GetReflection();
  for (int i = 0; i < type->field_count(); ++i) {
    const gp::FieldDescriptor* field = type->field(i);
    if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE) {
      const int child = PlanFor(field->message_type(), wanted, planned);
      plans_[index].messages.emplace_back(field, child);
    } else if (wanted(field)) {
      plans_[index].scalars.push_back(field);
    }
  }
  return index;
}

// Drops message fields under which no admitted field can be set, so that walks skip them.
void FieldWalk::KeepMessagesThatLead(bool every_message) {
  std::vector<bool> leads(plans_.size(), every_message);
  for (size_t i = 0; i < plans_.size(); ++i) leads[i] = leads[i] || !plans_[i].scalars.empty();
  for (bool changed = true; changed;) {
    changed = false;
    for (size_t i = 0; i < plans_.size(); ++i)
      for (const auto& [field, child] : plans_[i].messages)
        if (!leads[i] && leads[child]) leads[i] = changed = true;
  }
  for (Plan& plan : plans_)
    plan.messages.erase(std::remove_if(plan.messages.begin(), plan.messages.end(),
                                       [&](const auto& message) { return !leads[message.second]; }),
                        plan.messages.end());
}

template <typename Visit>
void FieldWalk::Walk(const gp::Message& message, int plan_index, FieldPath& path, const Visit& visit) const {
  const Plan& plan = plans_[plan_index];
  const gp::Reflection* reflection = plan.reflection;
  visit(message, plan, path);
  for (const auto& [field, child] : plan.messages) {
    if (field->is_repeated()) {
      const int size = reflection->FieldSize(message, field);
      for (int i = 0; i < size; ++i) {
        path.Push(field->name(), i);
        Walk(reflection->GetRepeatedMessage(message, field, i), child, path, visit);
        path.Pop();
      }
    } else if (reflection->HasField(message, field)) {
      path.Push(field->name());
      Walk(reflection->GetMessage(message, field), child, path, visit);
      path.Pop();
    }
  }
}

void FieldWalk::ForEachValue(const gp::Message& root, const ValueVisitor& visit) const {
  FieldPath path;
  Walk(root, 0, path, [&](const gp::Message& message, const Plan& plan, const FieldPath& at) {
    for (const gp::FieldDescriptor* field : plan.scalars) {
      if (!field->is_repeated()) {
        if (plan.reflection->HasField(message, field))
          visit(ScalarValue{message, plan.reflection, field, -1}, at);
        continue;
      }
      const int size = plan.reflection->FieldSize(message, field);
      for (int i = 0; i < size; ++i) visit(ScalarValue{message, plan.reflection, field, i}, at);
    }
  });
}

void FieldWalk::ForEachMessage(const gp::Message& root, const MessageVisitor& visit) const {
  FieldPath path;
  Walk(root, 0, path, [&](const gp::Message& message, const Plan& plan, const FieldPath& at) {
    visit(message, plan.reflection, at);
  });
}

}  // namespace pcfg
