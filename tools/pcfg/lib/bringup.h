// The order in which peripherals are brought up: every dependency before the peripherals that
// list it, ties broken by registry order so that the same configuration always gives the same
// order. Kept apart from show so that other views can use it.
#pragma once

#include <string>
#include <vector>

#include "dependency_graph.h"

namespace pcfg {

struct BringUpOrder {
  std::vector<int> order;     // indices into Config::peripherals, dependencies first
  std::vector<int> left_out;  // on a dependency cycle or behind one, in registry order
  bool complete() const { return left_out.empty(); }
};

// Kahn's algorithm with the ready set kept as a min-heap on registry index: O((V+E) log V).
BringUpOrder TopologicalBringUp(const DependencyGraph& graph);

}  // namespace pcfg
