#include "bringup.h"

#include <functional>
#include <queue>
#include <unordered_map>

namespace pcfg {

BringUpOrder TopologicalBringUp(const Config& config) {
  const int count = config.peripherals_size();
  std::unordered_map<std::string, int> index_of;
  index_of.reserve(count);
  for (int i = 0; i < count; ++i) index_of.emplace(config.peripherals(i).id(), i);

  // Edges run from a dependency to its dependent. Kept in one array grouped by dependency
  // (dependents of d are dependents[start[d] .. start[d + 1])) rather than a vector per node.
  std::vector<std::pair<int, int>> edges;
  std::vector<int> unmet(count, 0);
  for (int i = 0; i < count; ++i) {
    for (const auto& dependency : config.peripherals(i).dependencies()) {
      auto found = index_of.find(dependency.peripheral_id());
      if (found == index_of.end()) continue;
      edges.emplace_back(found->second, i);
      ++unmet[i];
    }
  }
  std::vector<int> start(count + 1, 0);
  for (const auto& [from, to] : edges) ++start[from + 1];
  for (int i = 0; i < count; ++i) start[i + 1] += start[i];
  std::vector<int> dependents(edges.size());
  std::vector<int> next_slot(start.begin(), start.end() - 1);
  for (const auto& [from, to] : edges) dependents[next_slot[from]++] = to;

  std::priority_queue<int, std::vector<int>, std::greater<int>> ready;
  for (int i = 0; i < count; ++i)
    if (unmet[i] == 0) ready.push(i);

  BringUpOrder result;
  result.order.reserve(count);
  while (!ready.empty()) {
    const int up = ready.top();
    ready.pop();
    result.order.push_back(up);
    for (int k = start[up]; k < start[up + 1]; ++k)
      if (--unmet[dependents[k]] == 0) ready.push(dependents[k]);
  }
  for (int i = 0; i < count; ++i)
    if (unmet[i] > 0) result.left_out.push_back(config.peripherals(i).id());
  return result;
}

}  // namespace pcfg
