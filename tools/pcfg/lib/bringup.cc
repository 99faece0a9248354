#include "bringup.h"

#include <functional>
#include <queue>

namespace pcfg {

BringUpOrder TopologicalBringUp(const DependencyGraph& graph) {
  const int count = graph.size();
  std::vector<int> unmet(static_cast<size_t>(count), 0);
  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  for (int i = 0; i < count; ++i) {
    unmet[i] = static_cast<int>(graph.DependenciesEnd(i) - graph.DependenciesBegin(i));
    if (unmet[i] == 0) ready.push(i);
  }
  BringUpOrder result;
  result.order.reserve(static_cast<size_t>(count));
  while (!ready.empty()) {
    const int up = ready.top();
    ready.pop();
    result.order.push_back(up);
    // A dependent that lists the same dependency twice waits for it once per listing.
    for (const int* dependent = graph.DependentsBegin(up); dependent != graph.DependentsEnd(up); ++dependent)
      if (--unmet[*dependent] == 0) ready.push(*dependent);
  }
  for (int i = 0; i < count; ++i)
    if (unmet[i] > 0) result.left_out.push_back(i);
  return result;
}

}  // namespace pcfg
