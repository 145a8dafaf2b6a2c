// SPDX-License-Identifier: Apache-2.0
#include "walls/wall_sides.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "core/numeric.h"

namespace tqtortho {
namespace {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
constexpr std::array<std::pair<int, int>, 8> kNeighbours{
    {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {-1, 1}, {1, -1}, {1, 1}}};
constexpr double kDiagonal = 1.4142135623730951;

/// A way from a steep cell to the first cell that is not.
struct Way {
  std::size_t end = 0;
  bool arrived = false;
};

class SideFinder {
 public:
  SideFinder(GridView<const float> heights, const WallZoneOptions& options)
      : options_(options), rows_(heights.rows), cols_(heights.cols) {
    const std::size_t count = heights.CellCount();
    heights_.resize(count);
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const float height = heights.At(row, col);
        const bool known =
            std::isfinite(height) && std::fabs(height - options.noData) >= kRectifyNoDataTolerance;
        heights_[At(row, col)] = known ? height : kNone;
      }
    }
  }

  WallSides Find() {
    WallSides sides;
    sides.upper.assign(heights_.size(), -1);
    sides.lower.assign(heights_.size(), -1);
    sides.level.assign(heights_.size(), 0.5F);
    Smooth();
    MarkSteep();
    planeOf_.assign(heights_.size(), -1);
    std::vector<float> centre(heights_.size(), kNone);
    for (std::size_t i = 0; i < heights_.size(); ++i) {
      if (steep_[i] != 0) FindFor(i, sides, centre);
    }
    DropCanopies(centre, sides);
    DropShort(sides);
    sides.planes = std::move(planes_);
    return sides;
  }

 private:
  [[nodiscard]] std::size_t At(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols_) +
           static_cast<std::size_t>(col);
  }
  [[nodiscard]] int RowOf(std::size_t i) const {
    return static_cast<int>(i / static_cast<std::size_t>(cols_));
  }
  [[nodiscard]] int ColOf(std::size_t i) const {
    return static_cast<int>(i % static_cast<std::size_t>(cols_));
  }
  [[nodiscard]] bool Inside(int row, int col) const {
    return row >= 0 && row < rows_ && col >= 0 && col < cols_;
  }

  /// Means of 3 x 3 cells; single cells out of line must not catch a way up or down.
  void Smooth() {
    smooth_.assign(heights_.size(), kNone);
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        if (std::isnan(heights_[At(row, col)])) continue;
        double sum = 0;
        int count = 0;
        for (int r = std::max(row - 1, 0); r <= std::min(row + 1, rows_ - 1); ++r) {
          for (int c = std::max(col - 1, 0); c <= std::min(col + 1, cols_ - 1); ++c) {
            const float height = heights_[At(r, c)];
            if (std::isnan(height)) continue;
            sum += height;
            ++count;
          }
        }
        smooth_[At(row, col)] = NarrowToFloat(sum / count);
      }
    }
  }

  void MarkSteep() {
    steep_.assign(heights_.size(), 0);
    constexpr int kRange = 4;
    for (int row = 0; row < rows_; ++row) {
      for (int col = 0; col < cols_; ++col) {
        const float height = heights_[At(row, col)];
        if (std::isnan(height)) continue;
        bool steep = false;
        for (std::size_t k = 0; k < kNeighbours.size() && !steep; ++k) {
          const int r = row + kNeighbours[k].first;
          const int c = col + kNeighbours[k].second;
          if (!Inside(r, c)) continue;
          const double run = options_.cell * (k < 4 ? 1 : kDiagonal);
          // Also false for no height.
          steep = std::fabs(heights_[At(r, c)] - height) > options_.steepSlope * run;
        }
        if (!steep) continue;
        float low = height;
        float high = height;
        for (int r = std::max(row - kRange, 0); r <= std::min(row + kRange, rows_ - 1); ++r) {
          for (int c = std::max(col - kRange, 0); c <= std::min(col + kRange, cols_ - 1); ++c) {
            const float other = heights_[At(r, c)];
            if (other < low) low = other;
            if (other > high) high = other;
          }
        }
        steep_[At(row, col)] = high - low > options_.leastWall ? 1 : 0;
      }
    }
  }

  /// From a steep cell that no neighbour lies beyond: the furthest level cell near it.
  [[nodiscard]] std::size_t LevelCellNear(std::size_t from, int sense) const {
    constexpr int kNear = 3;
    const int row = RowOf(from);
    const int col = ColOf(from);
    std::size_t found = from;
    for (int r = std::max(row - kNear, 0); r <= std::min(row + kNear, rows_ - 1); ++r) {
      for (int c = std::max(col - kNear, 0); c <= std::min(col + kNear, cols_ - 1); ++c) {
        const std::size_t i = At(r, c);
        if (steep_[i] != 0 || std::isnan(smooth_[i])) continue;
        if (sense * (smooth_[i] - smooth_[found]) >= 0) found = i;
      }
    }
    return found;
  }

  /// Follows the steepest way; notes the middle of the steepest step on it.
  Way Follow(std::size_t from, int sense, float& steepest, float& middle) const {
    const int most = std::max(4, TruncToInt(options_.reach / options_.cell));
    Way way;
    way.end = from;
    for (int step = 0; step < most; ++step) {
      const int row = RowOf(way.end);
      const int col = ColOf(way.end);
      double best = 0;
      std::size_t next = way.end;
      for (std::size_t k = 0; k < kNeighbours.size(); ++k) {
        const int r = row + kNeighbours[k].first;
        const int c = col + kNeighbours[k].second;
        if (!Inside(r, c)) continue;
        const double rise = sense * (smooth_[At(r, c)] - smooth_[way.end]);
        const double slope = rise / (k < 4 ? 1 : kDiagonal);
        if (slope > best) {
          best = slope;
          next = At(r, c);
        }
      }
      if (next == way.end) {
        next = LevelCellNear(way.end, sense);
        if (next == way.end) return way;
      }
      const float drop = std::fabs(heights_[next] - heights_[way.end]);
      if (drop > steepest) {
        steepest = drop;
        middle = 0.5F * (heights_[next] + heights_[way.end]);
      }
      way.end = next;
      if (steep_[next] == 0) {
        way.arrived = true;
        return way;
      }
    }
    return way;
  }

  /// The plane through the level cells around a way's end; fitted once for each cell.
  std::int32_t PlaneAt(std::size_t cell) {
    if (planeOf_[cell] >= 0) return planeOf_[cell];
    constexpr double kReach = 1.4;  // ground units
    constexpr double kSameLevel = 1.5;
    const int reach = std::clamp(TruncToInt(kReach / options_.cell + 0.5), 3, 8);
    const int row = RowOf(cell);
    const int col = ColOf(cell);
    LevelPlane plane;
    plane.row = static_cast<float>(row);
    plane.col = static_cast<float>(col);
    plane.height = heights_[cell];
    double keep = kSameLevel;
    for (int round = 0; round < 4; ++round) {
      double n = 0, sr = 0, sc = 0, sz = 0, srr = 0, scc = 0, src = 0, srz = 0, scz = 0, off = 0;
      for (int r = std::max(row - reach, 0); r <= std::min(row + reach, rows_ - 1); ++r) {
        for (int c = std::max(col - reach, 0); c <= std::min(col + reach, cols_ - 1); ++c) {
          const std::size_t i = At(r, c);
          if (steep_[i] != 0) continue;
          const double dr = r - row;
          const double dc = c - col;
          const double z = static_cast<double>(heights_[i]) - plane.height;
          const double away = std::fabs(z - plane.perRow * dr - plane.perCol * dc);
          if (!(away <= keep)) continue;
          n += 1, sr += dr, sc += dc, sz += z;
          srr += dr * dr, scc += dc * dc, src += dr * dc, srz += dr * z, scz += dc * z;
          off += away;
        }
      }
      if (n < 6) break;
      plane.roughness = static_cast<float>(off / n);
      if (round == 3) break;
      const double arr = srr - sr * sr / n, acc = scc - sc * sc / n, arc = src - sr * sc / n;
      const double brz = srz - sr * sz / n, bcz = scz - sc * sz / n;
      const double det = arr * acc - arc * arc;
      double perRow = 0, perCol = 0;
      if (det > 0.05 * n * n) {
        perRow = (brz * acc - bcz * arc) / det;
        perCol = (bcz * arr - brz * arc) / det;
      }
      if (std::hypot(perRow, perCol) > options_.steepSlope * options_.cell) perRow = perCol = 0;
      plane.height += static_cast<float>((sz - perRow * sr - perCol * sc) / n);
      plane.perRow = static_cast<float>(perRow);
      plane.perCol = static_cast<float>(perCol);
      keep = std::max(0.15, std::min(keep, 3 * off / n));
    }
    planeOf_[cell] = static_cast<std::int32_t>(planes_.size());
    planes_.push_back(plane);
    return planeOf_[cell];
  }

  static constexpr float kRough = 0.25F;  ///< mean distance from its plane, ground units
  static constexpr float kSmooth = 0.1F;  ///< of a level roof
  static constexpr double kLevel = 0.3;   ///< slope of a level roof
  static constexpr float kStrip = 0.8F;   ///< level from which on a ramp counts as a filled strip
  static constexpr float kEven = 0.35F;   ///< steepest step of an even ramp, of its whole height

  void FindFor(std::size_t i, WallSides& sides, std::vector<float>& centre) {
    float steepest = 0;
    float middle = heights_[i];
    const Way up = Follow(i, 1, steepest, middle);
    const Way down = Follow(i, -1, steepest, middle);
    if (!up.arrived || !down.arrived) return;
    const std::int32_t upper = PlaneAt(up.end);
    const std::int32_t lower = PlaneAt(down.end);
    const float high = PlaneHeight(planes_[upper], RowOf(i), ColOf(i), options_);
    const float low = PlaneHeight(planes_[lower], RowOf(i), ColOf(i), options_);
    if (!(high - low >= options_.leastWall)) return;
    // No plane fits the top of a tree.
    const LevelPlane& top = planes_[upper];
    if (top.roughness > kRough) return;
    sides.upper[i] = upper;
    sides.lower[i] = lower;
    sides.level[i] = LevelOf(up.end, down.end);
    // The steepest step of an even ramp may lie anywhere; beside a level roof it is a wall.
    const bool even = steepest < kEven * (high - low);
    const bool levelRoof =
        std::hypot(top.perRow, top.perCol) < kLevel * options_.cell && top.roughness < kSmooth;
    if (sides.level[i] > kStrip && even && levelRoof) {
      centre[i] = 0.5F;
      return;
    }
    centre[i] = (middle - low) / (high - low);
  }

  /// Blurred walls are upright in their middle. A ramp of many cells was filled in by
  /// interpolation, from the roof's edge, which matching did find, to the first ground that two
  /// photos saw: its wall stands near the top.
  [[nodiscard]] float LevelOf(std::size_t up, std::size_t down) const {
    constexpr double kBlurred = 8;  // cells
    constexpr double kFilled = 12;
    constexpr double kTop = 0.9;
    const double length = std::hypot(RowOf(up) - RowOf(down), ColOf(up) - ColOf(down));
    const double filled = std::clamp((length - kBlurred) / (kFilled - kBlurred), 0.0, 1.0);
    return NarrowToFloat(0.5 + (kTop - 0.5) * filled);
  }

  void DropCanopies(const std::vector<float>& centre, WallSides& sides) const {
    const int reach = std::max(1, TruncToInt(1.2 / options_.cell + 0.5));
    std::vector<std::size_t> drop;
    for (std::size_t i = 0; i < centre.size(); ++i) {
      if (sides.upper[i] < 0) continue;
      double sum = 0;
      int count = 0;
      const int row = RowOf(i);
      const int col = ColOf(i);
      for (int r = std::max(row - reach, 0); r <= std::min(row + reach, rows_ - 1); ++r) {
        for (int c = std::max(col - reach, 0); c <= std::min(col + reach, cols_ - 1); ++c) {
          const float value = centre[At(r, c)];
          if (std::isnan(value)) continue;
          sum += value;
          ++count;
        }
      }
      if (sum < options_.lowestCentre * count) drop.push_back(i);
    }
    for (const std::size_t i : drop) sides.upper[i] = sides.lower[i] = -1;
  }

  /// Pieces of wall shorter than the options want.
  void DropShort(WallSides& sides) const {
    std::vector<std::uint8_t> seen(heights_.size(), 0);
    std::vector<std::size_t> piece;
    for (std::size_t first = 0; first < heights_.size(); ++first) {
      if (sides.upper[first] < 0 || seen[first] != 0) continue;
      piece.assign(1, first);
      seen[first] = 1;
      int minRow = rows_, maxRow = 0, minCol = cols_, maxCol = 0;
      for (std::size_t k = 0; k < piece.size(); ++k) {
        const int row = RowOf(piece[k]);
        const int col = ColOf(piece[k]);
        minRow = std::min(minRow, row), maxRow = std::max(maxRow, row);
        minCol = std::min(minCol, col), maxCol = std::max(maxCol, col);
        for (const auto& [dr, dc] : kNeighbours) {
          if (!Inside(row + dr, col + dc)) continue;
          const std::size_t i = At(row + dr, col + dc);
          if (sides.upper[i] < 0 || seen[i] != 0) continue;
          seen[i] = 1;
          piece.push_back(i);
        }
      }
      const double length = std::hypot(maxRow - minRow + 1, maxCol - minCol + 1) * options_.cell;
      if (length >= options_.leastLength) continue;
      for (const std::size_t i : piece) sides.upper[i] = sides.lower[i] = -1;
    }
  }

  const WallZoneOptions& options_;
  int rows_ = 0;
  int cols_ = 0;
  std::vector<float> heights_;
  std::vector<float> smooth_;
  std::vector<std::uint8_t> steep_;
  std::vector<std::int32_t> planeOf_;
  std::vector<LevelPlane> planes_;
};

}  // namespace

WallSides FindWallSides(GridView<const float> heights, const WallZoneOptions& options) {
  return SideFinder(heights, options).Find();
}

float PlaneHeight(const LevelPlane& plane, double row, double col, const WallZoneOptions& options) {
  const double rise = plane.perRow * (row - plane.row) + plane.perCol * (col - plane.col);
  return NarrowToFloat(plane.height +
                       std::clamp(rise, -options.mostExtension, options.mostExtension));
}

}  // namespace tqtortho
