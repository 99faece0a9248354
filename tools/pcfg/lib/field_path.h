// A path from the configuration root to one field, such as
// physical_cameras[2].camx.port_mapping, used to name and locate what a diagnostic is about.
#pragma once

#include <string>
#include <vector>

namespace pcfg {

struct PathStep {
  std::string field;
  int index = -1;  // element of a repeated field, or -1
};

class FieldPath {
 public:
  FieldPath() = default;

  // A copy of this path extended by one step.
  FieldPath Field(const std::string& name) const;
  FieldPath Element(const std::string& repeated_name, int index) const;

  // In-place growth for walks that extend and shrink one path instead of copying it.
  void Push(const std::string& field, int index = -1) { steps_.push_back({field, index}); }
  void Pop() { steps_.pop_back(); }

  const std::vector<PathStep>& steps() const { return steps_; }
  bool empty() const { return steps_.empty(); }
  std::string ToString() const;

 private:
  std::vector<PathStep> steps_;
};

}  // namespace pcfg
