// A path from the configuration root to one field, such as
// physical_cameras[2].camx.port_mapping, used to name and locate what a diagnostic is about.
// Steps refer to field names without copying them, so names must outlive the path: they are
// string literals or the names of field descriptors, which live as long as the process.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pcfg {

struct PathStep {
  std::string_view field;
  int index = -1;  // element of a repeated field, or -1
};

class FieldPath {
 public:
  FieldPath() = default;

  // A copy of this path extended by one step.
  FieldPath Field(std::string_view name) const;
  FieldPath Element(std::string_view repeated_name, int index) const;

  // In-place growth for walks that extend and shrink one path instead of copying it.
  void Push(std::string_view field, int index = -1) { steps_.push_back({field, index}); }
  void Pop() { steps_.pop_back(); }

  const std::vector<PathStep>& steps() const { return steps_; }
  bool empty() const { return steps_.empty(); }
  std::string ToString() const;

 private:
  std::vector<PathStep> steps_;
};

}  // namespace pcfg
