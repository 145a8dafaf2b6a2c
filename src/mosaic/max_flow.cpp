// SPDX-License-Identifier: Apache-2.0
#include "mosaic/max_flow.h"

#include <algorithm>
#include <cmath>

namespace tqtortho {

MaxFlow::MaxFlow(int nodes)
    : terminal_(static_cast<std::size_t>(nodes), 0.0F),
      first_(static_cast<std::size_t>(nodes), kNone),
      parent_(static_cast<std::size_t>(nodes), kNone),
      tree_(static_cast<std::size_t>(nodes), kFree),
      active_(static_cast<std::size_t>(nodes), 0),
      stamp_(static_cast<std::size_t>(nodes), 0) {}

void MaxFlow::AddEdge(int from, int to, float cost, float reverseCost) {
  // The two directions are neighbours, so arc ^ 1 is the reverse.
  arcs_.push_back({to, first_[from], cost});
  first_[from] = static_cast<std::int32_t>(arcs_.size()) - 1;
  arcs_.push_back({from, first_[to], reverseCost});
  first_[to] = static_cast<std::int32_t>(arcs_.size()) - 1;
}

void MaxFlow::Activate(std::int32_t node) {
  if (active_[node] != 0) return;
  active_[node] = 1;
  queue_.push_back(node);
}

void MaxFlow::MakeOrphan(std::int32_t node) {
  parent_[node] = kOrphan;
  orphans_.push_back(node);
}

void MaxFlow::Solve() {
  const auto nodes = static_cast<std::int32_t>(terminal_.size());
  queue_.clear();
  for (std::int32_t i = 0; i < nodes; ++i) {
    if (terminal_[i] == 0) continue;
    tree_[i] = terminal_[i] > 0 ? kSourceTree : kSinkTree;
    parent_[i] = kTerminal;
    Activate(i);
  }
  for (std::size_t head = 0; head < queue_.size();) {
    const std::int32_t node = queue_[head];
    if (tree_[node] != kFree) {
      const std::int32_t middle = Grow(node);
      if (middle != kNone) {
        ++time_;
        Augment(middle);
        Adopt();
        continue;  // the same node may have more
      }
    }
    active_[node] = 0;
    ++head;
    if (head > 65536 && head * 2 > queue_.size()) {
      queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head));
      head = 0;
    }
  }
}

/// Extends the node's tree; an arc from the source's tree to the sink's when they meet.
std::int32_t MaxFlow::Grow(std::int32_t node) {
  const bool source = tree_[node] == kSourceTree;
  for (std::int32_t a = first_[node]; a != kNone; a = arcs_[a].next) {
    const float residual = source ? arcs_[a].residual : arcs_[a ^ 1].residual;
    if (!(residual > 0)) continue;
    const std::int32_t other = arcs_[a].head;
    if (tree_[other] == kFree) {
      tree_[other] = tree_[node];
      parent_[other] = a ^ 1;
      stamp_[other] = stamp_[node];
      Activate(other);
    } else if (tree_[other] != tree_[node]) {
      return source ? a : a ^ 1;
    }
  }
  return kNone;
}

void MaxFlow::Augment(std::int32_t middle) {
  float least = arcs_[middle].residual;
  // Up the source's tree the flow runs from parent to child, in the sink's from child to parent.
  std::int32_t node = arcs_[middle ^ 1].head;
  for (; parent_[node] != kTerminal; node = arcs_[parent_[node]].head) {
    least = std::min(least, arcs_[parent_[node] ^ 1].residual);
  }
  least = std::min(least, terminal_[node]);
  node = arcs_[middle].head;
  for (; parent_[node] != kTerminal; node = arcs_[parent_[node]].head) {
    least = std::min(least, arcs_[parent_[node]].residual);
  }
  least = std::min(least, -terminal_[node]);

  const auto push = [this, least](std::int32_t arc) {
    arcs_[arc].residual -= least;
    arcs_[arc ^ 1].residual += least;
    return arcs_[arc].residual <= 0;
  };
  (void)push(middle);
  node = arcs_[middle ^ 1].head;
  while (parent_[node] != kTerminal) {
    const std::int32_t up = parent_[node];
    if (push(up ^ 1)) MakeOrphan(node);
    node = arcs_[up].head;
  }
  terminal_[node] -= least;
  if (terminal_[node] <= 0) MakeOrphan(node);
  node = arcs_[middle].head;
  while (parent_[node] != kTerminal) {
    const std::int32_t up = parent_[node];
    if (push(up)) MakeOrphan(node);
    node = arcs_[up].head;
  }
  terminal_[node] += least;
  if (terminal_[node] >= 0) MakeOrphan(node);
}

void MaxFlow::Adopt() {
  while (!orphans_.empty()) {
    const std::int32_t node = orphans_.back();
    orphans_.pop_back();
    AdoptOne(node);
  }
}

/// Whether a node still hangs on its terminal; nodes found so are stamped for this round.
bool MaxFlow::ReachesTerminal(std::int32_t node) {
  path_.clear();
  while (stamp_[node] != time_) {
    path_.push_back(node);
    const std::int32_t up = parent_[node];
    if (up == kTerminal) break;
    if (up == kOrphan || up == kNone) return false;
    node = arcs_[up].head;
  }
  for (const std::int32_t on : path_) stamp_[on] = time_;
  return true;
}

void MaxFlow::AdoptOne(std::int32_t node) {
  const bool source = tree_[node] == kSourceTree;
  for (std::int32_t a = first_[node]; a != kNone; a = arcs_[a].next) {
    const std::int32_t other = arcs_[a].head;
    const float residual = source ? arcs_[a ^ 1].residual : arcs_[a].residual;
    if (tree_[other] != tree_[node] || !(residual > 0)) continue;
    if (ReachesTerminal(other)) {
      parent_[node] = a;
      stamp_[node] = time_;
      return;
    }
  }
  // No parent: the node leaves its tree, its children look for others.
  for (std::int32_t a = first_[node]; a != kNone; a = arcs_[a].next) {
    const std::int32_t other = arcs_[a].head;
    if (tree_[other] != tree_[node]) continue;
    const float residual = source ? arcs_[a ^ 1].residual : arcs_[a].residual;
    if (residual > 0) Activate(other);
    if (parent_[other] >= 0 && arcs_[parent_[other]].head == node) MakeOrphan(other);
  }
  tree_[node] = kFree;
  parent_[node] = kNone;
}

bool MaxFlow::OnSinkSide(int node) const { return tree_[node] == kSinkTree; }

}  // namespace tqtortho
