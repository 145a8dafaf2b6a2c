// SPDX-License-Identifier: Apache-2.0
#include "report/seam_lines.h"

#include <cmath>
#include <utility>

namespace tqtortho::host {
namespace {

using Corner = tqfd::Point2_T<int>;

/// Edges at each corner of the cells that lie on a seam and no line has taken yet.
class EdgeMap {
 public:
  explicit EdgeMap(GridView<const std::uint16_t> numbers)
      : cols_(numbers.cols + 1),
        rows_(numbers.rows + 1),
        edges_(static_cast<std::size_t>(cols_) * static_cast<std::size_t>(rows_), 0) {
    for (int r = 0; r < numbers.rows; ++r) {
      const std::uint16_t* row = numbers.Row(r);
      const std::uint16_t* above = r > 0 ? numbers.Row(r - 1) : nullptr;
      for (int c = 0; c < numbers.cols; ++c) {
        if (row[c] == 0) continue;
        if (above != nullptr && above[c] != 0 && above[c] != row[c]) Add({c, r}, kEast);
        if (c > 0 && row[c - 1] != 0 && row[c - 1] != row[c]) Add({c, r}, kSouth);
      }
    }
  }

  [[nodiscard]] int Cols() const { return cols_; }
  [[nodiscard]] int Rows() const { return rows_; }
  [[nodiscard]] int Degree(Corner c) const {
    int degree = 0;
    for (int d = 0; d < 4; ++d) degree += At(c) >> d & 1;
    return degree;
  }
  /// Takes an edge away and returns its other end.
  bool Take(Corner from, Corner& to) {
    for (int d = 0; d < 4; ++d) {
      if ((At(from) >> d & 1) == 0) continue;
      to = Step(from, d);
      At(from) = static_cast<std::uint8_t>(At(from) & ~(1U << d));
      At(to) = static_cast<std::uint8_t>(At(to) & ~(1U << (d ^ 1)));
      return true;
    }
    return false;
  }

 private:
  // Opposite directions differ in the last bit; 3 is north.
  static constexpr int kEast = 0, kWest = 1, kSouth = 2;

  static Corner Step(Corner c, int direction) {
    if (direction <= kWest) return {c.x + (direction == kEast ? 1 : -1), c.y};
    return {c.x, c.y + (direction == kSouth ? 1 : -1)};
  }
  std::uint8_t& At(Corner c) {
    return edges_[static_cast<std::size_t>(c.y) * static_cast<std::size_t>(cols_) +
                  static_cast<std::size_t>(c.x)];
  }
  [[nodiscard]] std::uint8_t At(Corner c) const { return const_cast<EdgeMap*>(this)->At(c); }
  void Add(Corner c, int direction) {
    At(c) = static_cast<std::uint8_t>(At(c) | 1U << direction);
    const Corner other = Step(c, direction);
    At(other) = static_cast<std::uint8_t>(At(other) | 1U << (direction ^ 1));
  }

  int cols_;
  int rows_;
  std::vector<std::uint8_t> edges_;
};

/// Distance of a point from a line segment.
double Distance(Corner p, Corner a, Corner b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double length2 = dx * dx + dy * dy;
  double t = length2 > 0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / length2 : 0;
  t = t < 0 ? 0 : t > 1 ? 1 : t;
  return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

}  // namespace

std::vector<SeamLine> TraceSeams(GridView<const std::uint16_t> numbers) {
  std::vector<SeamLine> lines;
  if (numbers.Empty()) return lines;
  EdgeMap edges(numbers);
  // Degrees shrink while edges are taken, so where lines end is remembered first.
  std::vector<std::uint8_t> node(static_cast<std::size_t>(edges.Cols()) *
                                 static_cast<std::size_t>(edges.Rows()));
  const auto isNode = [&](Corner c) -> std::uint8_t& {
    return node[static_cast<std::size_t>(c.y) * static_cast<std::size_t>(edges.Cols()) +
                static_cast<std::size_t>(c.x)];
  };
  for (int y = 0; y < edges.Rows(); ++y) {
    for (int x = 0; x < edges.Cols(); ++x) isNode({x, y}) = edges.Degree({x, y}) != 2;
  }
  // Lines between nodes first; what is left then are closed ones.
  for (const bool closed : {false, true}) {
    for (int y = 0; y < edges.Rows(); ++y) {
      for (int x = 0; x < edges.Cols(); ++x) {
        if (!closed && isNode({x, y}) == 0) continue;
        Corner next;
        while (edges.Take({x, y}, next)) {
          SeamLine line{{x, y}, next};
          while (isNode(line.back()) == 0 && edges.Take(line.back(), next)) line.push_back(next);
          lines.push_back(std::move(line));
        }
      }
    }
  }
  return lines;
}

SeamLine Simplified(const SeamLine& line, double tolerance) {
  if (line.size() < 3) return line;
  std::vector<bool> keep(line.size(), false);
  keep.front() = keep.back() = true;
  std::vector<std::pair<std::size_t, std::size_t>> parts{{0, line.size() - 1}};
  while (!parts.empty()) {
    const auto [first, last] = parts.back();
    parts.pop_back();
    double farthest = tolerance;
    std::size_t at = first;
    for (std::size_t i = first + 1; i < last; ++i) {
      const double distance = Distance(line[i], line[first], line[last]);
      if (distance <= farthest) continue;
      farthest = distance;
      at = i;
    }
    if (at == first) continue;
    keep[at] = true;
    parts.insert(parts.end(), {{first, at}, {at, last}});
  }
  SeamLine simple;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (keep[i]) simple.push_back(line[i]);
  }
  return simple;
}

}  // namespace tqtortho::host
