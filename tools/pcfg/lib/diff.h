// Semantic differences between two configurations. Entries of the topology, options and HAL
// lists are matched by their key (peripheral id, system type, ...) rather than their position,
// so reordering them is no difference; every other list is compared position by position.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "config.h"

namespace pcfg {

struct Difference {
  // Such as physical_cameras[cam_left].camx.sensor_name or system_options[PERIPHERAL_SYSTEM_TYPE_CADMOR];
  // the second entry with a repeated key is written peripherals[fpga#2].
  std::string path;
  enum Kind { kChanged, kAdded, kRemoved } kind = kChanged;
  // Values as the text format writes them (strings quoted, enumerations by name); empty for a
  // message, and on the side that lacks the field.
  std::string old_value, new_value;
};

// The differences from A to B, in A's order, with entries only B has after those of their list.
std::vector<Difference> DiffConfigs(const Config& a, const Config& b);

// "PATH: OLD -> NEW", "+ PATH: NEW" or "+ PATH: added" for a message, "- PATH: OLD" or
// "- PATH: removed".
std::string FormatDifference(const Difference& difference);
void PrintDifferences(std::ostream& out, const std::vector<Difference>& differences);

}  // namespace pcfg
