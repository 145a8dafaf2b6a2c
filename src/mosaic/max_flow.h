// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tqtortho {

/// Smallest cut of a graph between a source and a sink, by augmenting paths along two search trees
/// that are kept and mended after each path (Boykov and Kolmogorov, 2004): on the shallow grid
/// graphs of labelling problems nearly linear in practice.
class MaxFlow {
 public:
  explicit MaxFlow(int nodes);

  /// Adds `cost` to what it costs when the node ends up on the source's side ...
  void AddSourceSideCost(int node, float cost) {
    terminal_[static_cast<std::size_t>(node)] -= cost;
  }
  /// ... or on the sink's side. Costs may have any sign.
  void AddSinkSideCost(int node, float cost) { terminal_[static_cast<std::size_t>(node)] += cost; }
  /// What it costs when `from` is on the source's side and `to` on the sink's side; not negative.
  void AddEdge(int from, int to, float cost, float reverseCost);

  void Solve();
  /// True when the node lies on the sink's side of the cut; nodes that could lie on either side
  /// stay on the source's.
  [[nodiscard]] bool OnSinkSide(int node) const;

 private:
  struct Arc {
    std::int32_t head;
    std::int32_t next;  ///< next arc of the tail, -1 at the end
    float residual;
  };
  enum Tree : std::uint8_t { kFree, kSourceTree, kSinkTree };
  static constexpr std::int32_t kNone = -1;
  static constexpr std::int32_t kTerminal = -2;
  static constexpr std::int32_t kOrphan = -3;

  void Activate(std::int32_t node);
  std::int32_t Grow(std::int32_t node);
  void Augment(std::int32_t middle);
  void Adopt();
  void AdoptOne(std::int32_t node);
  bool ReachesTerminal(std::int32_t node);
  void MakeOrphan(std::int32_t node);

  std::vector<float> terminal_;  ///< residual from the source (> 0) or to the sink (< 0)
  std::vector<std::int32_t> first_;
  std::vector<std::int32_t> parent_;  ///< arc to the parent, kTerminal, kOrphan or kNone
  std::vector<std::uint8_t> tree_;
  std::vector<std::uint8_t> active_;
  std::vector<std::int32_t> stamp_;
  std::vector<std::int32_t> queue_;
  std::vector<std::int32_t> orphans_;
  std::vector<std::int32_t> path_;
  std::vector<Arc> arcs_;
  std::int32_t time_ = 0;
};

}  // namespace tqtortho
