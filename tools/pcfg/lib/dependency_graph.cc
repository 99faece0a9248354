#include "dependency_graph.h"

#include <algorithm>
#include <queue>
#include <unordered_map>

namespace pcfg {

DependencyGraph::DependencyGraph(const ConfigIndex& index) {
  const Config& config = index.config();
  const int count = config.peripherals_size();
  dependency_start_.assign(static_cast<size_t>(count) + 1, 0);
  dependent_start_.assign(static_cast<size_t>(count) + 1, 0);
  for (int i = 0; i < count; ++i) {
    const auto& listed = config.peripherals(i).dependencies();
    for (int k = 0; k < listed.size(); ++k) {
      const int target = index.Peripheral(listed.Get(k).peripheral_id());
      if (target < 0) continue;
      dependencies_.push_back({target, k});
      ++dependent_start_[static_cast<size_t>(target) + 1];
    }
    dependency_start_[static_cast<size_t>(i) + 1] = static_cast<int>(dependencies_.size());
  }
  for (int i = 0; i < count; ++i) dependent_start_[i + 1] += dependent_start_[i];
  dependents_.resize(dependencies_.size());
  std::vector<int> next(dependent_start_.begin(), dependent_start_.end() - 1);
  for (int i = 0; i < count; ++i)
    for (const Edge* edge = DependenciesBegin(i); edge != DependenciesEnd(i); ++edge)
      dependents_[next[edge->peripheral]++] = i;
}

// Tarjan's algorithm without recursion, so that a chain of 100,000 peripherals cannot exhaust
// the stack.
std::vector<std::vector<int>> DependencyGraph::CyclicGroups() const {
  const int count = size();
  std::vector<int> order(count, -1), low(count, 0);
  std::vector<bool> on_stack(count, false);
  std::vector<int> stack;
  struct Frame {
    int node;
    int next_edge;
  };
  std::vector<Frame> calls;
  std::vector<std::vector<int>> groups;
  int counter = 0;
  for (int root = 0; root < count; ++root) {
    if (order[root] >= 0) continue;
    calls.push_back({root, dependency_start_[root]});
    order[root] = low[root] = counter++;
    stack.push_back(root);
    on_stack[root] = true;
    while (!calls.empty()) {
      Frame& frame = calls.back();
      const int node = frame.node;
      if (frame.next_edge < dependency_start_[node + 1]) {
        const int next = dependencies_[frame.next_edge++].peripheral;
        if (order[next] < 0) {
          order[next] = low[next] = counter++;
          stack.push_back(next);
          on_stack[next] = true;
          calls.push_back({next, dependency_start_[next]});
        } else if (on_stack[next]) {
          low[node] = std::min(low[node], order[next]);
        }
        continue;
      }
      calls.pop_back();
      if (!calls.empty()) low[calls.back().node] = std::min(low[calls.back().node], low[node]);
      if (low[node] != order[node]) continue;
      std::vector<int> group;
      int member;
      do {
        member = stack.back();
        stack.pop_back();
        on_stack[member] = false;
        group.push_back(member);
      } while (member != node);
      const bool cyclic =
          group.size() > 1 || std::any_of(DependenciesBegin(node), DependenciesEnd(node),
                                          [node](const Edge& edge) { return edge.peripheral == node; });
      if (!cyclic) continue;
      std::sort(group.begin(), group.end());
      groups.push_back(std::move(group));
    }
  }
  std::sort(groups.begin(), groups.end());
  return groups;
}

// Breadth first from the group's first member, within the group, back to that member. Its
// bookkeeping is the group's size, not the graph's: thousands of small groups in a large
// configuration must not each pay for the whole peripheral list.
DependencyGraph::Cycle DependencyGraph::ShortestCycle(const std::vector<int>& group) const {
  const int start = group.front();
  std::unordered_map<int, size_t> place;  // a member's place in GROUP
  place.reserve(group.size());
  for (size_t i = 0; i < group.size(); ++i) place.emplace(group[i], i);
  struct Step {
    int from = -1;
    int entry = -1;
    bool seen = false;
  };
  std::vector<Step> reached(group.size());
  std::queue<int> queue;
  queue.push(start);
  reached[0].seen = true;
  int closing = -1, closing_entry = -1;
  while (!queue.empty() && closing < 0) {
    const int node = queue.front();
    queue.pop();
    for (const Edge* edge = DependenciesBegin(node); edge != DependenciesEnd(node); ++edge) {
      if (edge->peripheral == start) {
        closing = node, closing_entry = edge->entry;
        break;
      }
      const auto member = place.find(edge->peripheral);
      if (member == place.end() || reached[member->second].seen) continue;
      reached[member->second] = {node, edge->entry, true};
      queue.push(edge->peripheral);
    }
  }
  Cycle cycle;
  if (closing < 0) return cycle;  // not a cyclic group
  cycle.peripherals.push_back(start);
  cycle.entries.push_back(closing_entry);
  for (int node = closing; node != start; node = reached[place.at(node)].from) {
    cycle.peripherals.push_back(node);
    cycle.entries.push_back(reached[place.at(node)].entry);
  }
  cycle.peripherals.push_back(start);
  // Built backwards from the start: turn it into dependency order.
  std::reverse(cycle.peripherals.begin(), cycle.peripherals.end());
  std::reverse(cycle.entries.begin(), cycle.entries.end());
  return cycle;
}

}  // namespace pcfg
