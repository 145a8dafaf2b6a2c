// SPDX-License-Identifier: Apache-2.0
#include "mosaic/max_flow.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

struct Edge {
  int from, to;
  int cost, reverse;
};
struct Problem {
  std::vector<int> source, sink;  // costs of the two sides
  std::vector<Edge> edges;

  [[nodiscard]] long Cost(unsigned sinkSide) const {
    const auto on = [sinkSide](int node) { return (sinkSide >> node & 1U) != 0; };
    long cost = 0;
    for (std::size_t i = 0; i < source.size(); ++i) {
      cost += on(static_cast<int>(i)) ? sink[i] : source[i];
    }
    for (const Edge& e : edges) {
      if (!on(e.from) && on(e.to)) cost += e.cost;
      if (on(e.from) && !on(e.to)) cost += e.reverse;
    }
    return cost;
  }
};

// All divisions of up to ten nodes can be tried, which is an independent truth.
TEST(MaxFlowTest, TheCutIsTheCheapestOfAllDivisions) {
  std::mt19937 random(20240311);
  const auto number = [&](int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
  };
  for (int round = 0; round < 400; ++round) {
    Problem problem;
    const int nodes = number(1, 10);
    MaxFlow flow(nodes);
    for (int i = 0; i < nodes; ++i) {
      problem.source.push_back(number(-9, 20));
      problem.sink.push_back(number(-9, 20));
      flow.AddSourceSideCost(i, static_cast<float>(problem.source.back()));
      flow.AddSinkSideCost(i, static_cast<float>(problem.sink.back()));
    }
    for (int k = number(0, 25); k > 0 && nodes > 1; --k) {
      const int from = number(0, nodes - 1);
      const int to = (from + number(1, nodes - 1)) % nodes;
      problem.edges.push_back({from, to, number(0, 12), number(0, 12)});
      const Edge& e = problem.edges.back();
      flow.AddEdge(from, to, static_cast<float>(e.cost), static_cast<float>(e.reverse));
    }
    flow.Solve();
    unsigned found = 0;
    for (int i = 0; i < nodes; ++i) found |= flow.OnSinkSide(i) ? 1U << i : 0U;
    long least = std::numeric_limits<long>::max();
    for (unsigned side = 0; side < 1U << nodes; ++side) {
      least = std::min(least, problem.Cost(side));
    }
    ASSERT_EQ(problem.Cost(found), least) << "round " << round;
  }
}

}  // namespace
}  // namespace tqtortho
