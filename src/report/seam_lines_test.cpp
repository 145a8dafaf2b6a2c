// SPDX-License-Identifier: Apache-2.0
#include "report/seam_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>
#include <set>

namespace tqtortho::host {
namespace {

using Edge = std::array<int, 4>;  // smaller end first

Edge EdgeOf(tqfd::Point2_T<int> a, tqfd::Point2_T<int> b) {
  if (b.x < a.x || b.y < a.y) std::swap(a, b);
  return {a.x, a.y, b.x, b.y};
}

/// Every side shared by two cells of different, known photos.
std::set<Edge> EdgesOf(const std::vector<std::uint16_t>& numbers, int rows, int cols) {
  std::set<Edge> edges;
  const auto differ = [&](int a, int b) {
    return numbers[a] != 0 && numbers[b] != 0 && numbers[a] != numbers[b];
  };
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      const int i = r * cols + c;
      if (c + 1 < cols && differ(i, i + 1)) edges.insert({c + 1, r, c + 1, r + 1});
      if (r + 1 < rows && differ(i, i + cols)) edges.insert({c, r + 1, c + 1, r + 1});
    }
  }
  return edges;
}

TEST(SeamLinesTest, EveryEdgeLiesOnOneLineAndLinesEndOnlyWhereSeamsEndOrMeet) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    const int rows = 1 + static_cast<int>(random() % 9), cols = 1 + static_cast<int>(random() % 9);
    std::vector<std::uint16_t> numbers(static_cast<std::size_t>(rows * cols));
    for (auto& n : numbers) n = static_cast<std::uint16_t>(random() % (2 + round % 3));
    std::multiset<Edge> walked;
    std::map<std::pair<int, int>, int> degree;
    for (const Edge& e : EdgesOf(numbers, rows, cols)) {
      ++degree[{e[0], e[1]}];
      ++degree[{e[2], e[3]}];
    }
    for (const SeamLine& line : TraceSeams({numbers.data(), rows, cols})) {
      for (std::size_t i = 1; i < line.size(); ++i) {
        walked.insert(EdgeOf(line[i - 1], line[i]));
        if (i + 1 < line.size()) {
          EXPECT_EQ((degree[{line[i].x, line[i].y}]), 2) << round;
        }
      }
      if (!(line.front() == line.back())) {
        EXPECT_NE((degree[{line.front().x, line.front().y}]), 2) << round;
        EXPECT_NE((degree[{line.back().x, line.back().y}]), 2) << round;
      }
    }
    const std::set<Edge> edges = EdgesOf(numbers, rows, cols);
    ASSERT_EQ(walked, std::multiset<Edge>(edges.begin(), edges.end())) << round;
  }
}

TEST(SeamLinesTest, SimplifyingKeepsEndsAndStaysWithinTheTolerance) {
  SeamLine stair;  // eight to the right, two down, and round a corner
  for (int i = 0; i < 40; ++i) stair.push_back({i, i / 4});
  for (int i = 0; i < 20; ++i) stair.push_back({39, 10 + i});
  const SeamLine simple = Simplified(stair, 0.9);
  EXPECT_EQ(simple.front(), stair.front());
  EXPECT_EQ(simple.back(), stair.back());
  EXPECT_LT(simple.size(), 6U);
  for (const auto& p : stair) {
    double nearest = 1e9;
    for (std::size_t i = 1; i < simple.size(); ++i) {
      for (int k = 0; k <= 1000; ++k) {  // sampled, no formula shared with the code
        const double t = k / 1000.0;
        nearest = std::min(nearest,
                           std::hypot(simple[i - 1].x + t * (simple[i].x - simple[i - 1].x) - p.x,
                                      simple[i - 1].y + t * (simple[i].y - simple[i - 1].y) - p.y));
      }
    }
    EXPECT_LE(nearest, 0.95);
  }
  const SeamLine ring{{0, 0}, {4, 0}, {4, 4}, {0, 4}, {0, 0}};
  EXPECT_EQ(Simplified(ring, 0.8), ring);
}

}  // namespace
}  // namespace tqtortho::host
