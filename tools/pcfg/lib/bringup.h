// The order in which peripherals are brought up: every dependency before the peripherals that
// list it, ties broken by registry order so that the same configuration always gives the same
// order. Kept apart from show so that other views can use it.
#pragma once

#include <string>
#include <vector>

#include "loader.h"

namespace pcfg {

struct BringUpOrder {
  std::vector<int> order;             // indices into Config::peripherals, dependencies first
  std::vector<std::string> left_out;  // ids on a dependency cycle or behind one, registry order
  bool complete() const { return left_out.empty(); }
};

// Kahn's algorithm with the ready set kept as a min-heap on registry index: O((V+E) log V).
// A dependency naming no registry entry is ignored (the checks report it); a repeated id
// stands for its first entry, as in the checks.
BringUpOrder TopologicalBringUp(const Config& config);

}  // namespace pcfg
