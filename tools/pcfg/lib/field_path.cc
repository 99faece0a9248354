#include "field_path.h"

namespace pcfg {

FieldPath FieldPath::Field(std::string_view name) const {
  FieldPath extended = *this;
  extended.steps_.push_back({name, -1});
  return extended;
}

FieldPath FieldPath::Element(std::string_view repeated_name, int index) const {
  FieldPath extended = *this;
  extended.steps_.push_back({repeated_name, index});
  return extended;
}

std::string FieldPath::ToString() const {
  std::string text;
  for (const PathStep& step : steps_) {
    if (!text.empty()) text += '.';
    text += step.field;
    if (step.index >= 0) text += "[" + std::to_string(step.index) + "]";
  }
  return text;
}

}  // namespace pcfg
