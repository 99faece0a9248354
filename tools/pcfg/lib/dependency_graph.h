// The peripherals' dependencies as a graph over registry positions, shared by the bring-up order
// and the cycle rule. A dependency naming no registry entry is left out (the rules report it);
// a repeated id stands for its first entry.
#pragma once

#include <vector>

#include "config.h"

namespace pcfg {

class DependencyGraph {
 public:
  explicit DependencyGraph(const ConfigIndex& index);

  int size() const { return static_cast<int>(dependency_start_.size()) - 1; }

  struct Edge {
    int peripheral;  // the registry entry it leads to
    int entry;       // the position of the dependency in the listing peripheral's dependencies
  };
  // What PERIPHERAL depends on, in the order it lists them. (Pointer arithmetic on data(), not
  // &v[i]: the lists may be empty, and an end may be one past the last element.)
  const Edge* DependenciesBegin(int peripheral) const {
    return dependencies_.data() + dependency_start_[peripheral];
  }
  const Edge* DependenciesEnd(int peripheral) const {
    return dependencies_.data() + dependency_start_[peripheral + 1];
  }
  // The peripherals that list PERIPHERAL as a dependency, in registry order.
  const int* DependentsBegin(int peripheral) const {
    return dependents_.data() + dependent_start_[peripheral];
  }
  const int* DependentsEnd(int peripheral) const {
    return dependents_.data() + dependent_start_[peripheral + 1];
  }

  // Groups of peripherals that depend on one another (strongly connected components with a
  // cycle: two or more members, or one that depends on itself), each in registry order, the
  // groups ordered by their first member.
  std::vector<std::vector<int>> CyclicGroups() const;

  // One cycle through the first member of GROUP, as short as any: the peripherals in dependency
  // order, starting and ending with that member, and for each step the dependency entry taken.
  struct Cycle {
    std::vector<int> peripherals;  // first == last
    std::vector<int> entries;      // entries[i] leads from peripherals[i] to peripherals[i + 1]
  };
  Cycle ShortestCycle(const std::vector<int>& group) const;

 private:
  // Compressed adjacency lists: the edges of node n are [start[n], start[n + 1]).
  std::vector<int> dependency_start_;
  std::vector<Edge> dependencies_;
  std::vector<int> dependent_start_;
  std::vector<int> dependents_;
};

}  // namespace pcfg
