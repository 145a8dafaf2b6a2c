// SPDX-License-Identifier: Apache-2.0
#include "visibility/step_surface.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "core/numeric.h"

namespace tqtortho {
namespace {

constexpr int kSub = StepSurface::kSub;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// Cubic B-spline weights of the four centres around a sub-cell's centre, along one axis.
constexpr std::array<std::array<float, 4>, kSub> MakeSplineWeights() {
  std::array<std::array<float, 4>, kSub> weights{};
  for (int sub = 0; sub < kSub; ++sub) {
    const float t = (static_cast<float>(sub) + 0.5F) / kSub;
    const float s = 1 - t;
    weights[sub] = {s * s * s / 6, (3 * t * t * t - 6 * t * t + 4) / 6,
                    (3 * s * s * s - 6 * s * s + 4) / 6, t * t * t / 6};
  }
  return weights;
}

/// For a set of corners (bits NW, NE, SW, SE) the one nearest to each sub-cell's centre; the set is
/// not empty where the table is used.
constexpr std::array<std::array<std::uint8_t, kSub * kSub>, 16> MakeNearestCorner() {
  std::array<std::array<std::uint8_t, kSub * kSub>, 16> nearest{};
  for (int set = 1; set < 16; ++set) {
    for (int sub = 0; sub < kSub * kSub; ++sub) {
      int best = 1000;
      for (int corner = 0; corner < 4; ++corner) {
        if ((set >> corner & 1) == 0) continue;
        const int dv = 2 * (sub / kSub) + 1 - 2 * kSub * (corner >> 1);
        const int du = 2 * (sub % kSub) + 1 - 2 * kSub * (corner & 1);
        if (dv * dv + du * du < best) {
          best = dv * dv + du * du;
          nearest[set][sub] = static_cast<std::uint8_t>(corner);
        }
      }
    }
  }
  return nearest;
}

constexpr auto kSplineWeights = MakeSplineWeights();
constexpr auto kNearestCorner = MakeNearestCorner();

constexpr StepSurface::Quad MakeQuad(StepSurface::Kind kind, std::uint32_t corners,
                                     std::uint32_t subCells) {
  return static_cast<std::uint32_t>(kind) << 20 | corners << 16 | subCells;
}
constexpr std::uint32_t CornersOf(StepSurface::Quad quad) { return quad >> 16 & 15U; }

}  // namespace

StepSurface::StepSurface(GridView<const float> heights, double noData, double wallStep)
    : heights_(heights),
      noData_(noData),
      wallStep_(wallStep),
      lowest_(std::numeric_limits<double>::infinity()),
      highest_(-std::numeric_limits<double>::infinity()) {
  for (int row = 0; row < heights_.rows; ++row) {
    for (int col = 0; col < heights_.cols; ++col) {
      const float height = heights_.At(row, col);
      if (!IsHeight(height)) continue;
      lowest_ = std::min<double>(lowest_, height);
      highest_ = std::max<double>(highest_, height);
    }
  }
  if (heights_.rows < 2 || heights_.cols < 2) return;
  quads_.resize(static_cast<std::size_t>(QuadRows()) * static_cast<std::size_t>(QuadCols()));
  std::size_t next = 0;
  for (int row = 0; row < QuadRows(); ++row) {
    for (int col = 0; col < QuadCols(); ++col) quads_[next++] = Classify(row, col);
  }
}

bool StepSurface::IsHeight(float height) const {
  return std::isfinite(height) && std::fabs(height - noData_) >= kRectifyNoDataTolerance;
}

StepSurface::Quad StepSurface::Classify(int row, int col) const {
  const float* upper = heights_.Row(row) + col;
  const float* lower = heights_.Row(row + 1) + col;
  std::array<float, 4> corners{upper[0], upper[1], lower[0], lower[1]};
  std::uint32_t valid = 0;
  for (int i = 0; i < 4; ++i) valid |= static_cast<std::uint32_t>(IsHeight(corners[i])) << i;
  if (valid == 0) return MakeQuad(kVoid, 0, 0);
  if (valid != 15) {
    std::uint32_t subCells = 0;
    for (int sub = 0; sub < kSub * kSub; ++sub) {
      subCells |= (valid >> kNearestCorner[15][sub] & 1U) << sub;
    }
    return MakeQuad(kRagged, valid, subCells);
  }
  const auto [low, high] = std::minmax_element(corners.begin(), corners.end());
  if (*high - *low <= wallStep_) return MakeQuad(kSmooth, 0, 0);
  // The widest gap between the sorted heights is the wall; without a gap of a wall's height the
  // quad is a steep slope.
  std::sort(corners.begin(), corners.end());
  int gap = 0;
  for (int i = 1; i < 3; ++i) {
    if (corners[i + 1] - corners[i] > corners[gap + 1] - corners[gap]) gap = i;
  }
  if (corners[gap + 1] - corners[gap] <= wallStep_) return MakeQuad(kSmooth, 0, 0);
  return Split(row, col, 0.5F * (corners[gap] + corners[gap + 1]));
}

StepSurface::Quad StepSurface::Split(int row, int col, float middle) const {
  // Weighted votes for the upper side and all votes, first along the rows of centres.
  float votes[4][kSub] = {};
  float total[4][kSub] = {};
  std::uint32_t corners = 0;
  for (int i = 0; i < 4; ++i) {
    const float* centres = heights_.Row(std::clamp(row - 1 + i, 0, heights_.rows - 1));
    for (int j = 0; j < 4; ++j) {
      const float height = centres[std::clamp(col - 1 + j, 0, heights_.cols - 1)];
      if (!IsHeight(height)) continue;
      const bool isUpper = height > middle;
      if (isUpper && (i == 1 || i == 2) && (j == 1 || j == 2)) corners |= 1U << (2 * i + j - 3);
      for (int sub = 0; sub < kSub; ++sub) {
        total[i][sub] += kSplineWeights[sub][j];
        if (isUpper) votes[i][sub] += kSplineWeights[sub][j];
      }
    }
  }
  std::uint32_t subCells = 0;
  for (int sub = 0; sub < kSub * kSub; ++sub) {
    float upper = 0;
    float all = 0;
    for (int i = 0; i < 4; ++i) {
      upper += kSplineWeights[sub / kSub][i] * votes[i][sub % kSub];
      all += kSplineWeights[sub / kSub][i] * total[i][sub % kSub];
    }
    if (upper > 0.5F * all) subCells |= 1U << sub;
  }
  return MakeQuad(kSplit, corners, subCells);
}

/// Height difference per cell at a centre, from the neighbours that no wall parts from it.
double StepSurface::SlopeAlong(int row, int col, int stepRow, int stepCol) const {
  const float height = heights_.At(row, col);
  double sum = 0;
  int count = 0;
  for (const int side : {-1, 1}) {
    const int r = row + side * stepRow;
    const int c = col + side * stepCol;
    if (!heights_.Contains(r, c)) continue;
    const double neighbour = heights_.At(r, c);
    const double difference = side * (neighbour - height);
    // Also false for NaN.
    if (!(std::fabs(difference) <= wallStep_)) continue;
    if (std::fabs(neighbour - noData_) < kRectifyNoDataTolerance) continue;
    sum += difference;
    ++count;
  }
  return count == 0 ? 0 : sum / count;
}

double StepSurface::SubCellHeight(int quadRow, int quadCol, int subRow, int subCol, double v,
                                  double u) const {
  const Quad quad = quads_[static_cast<std::size_t>(quadRow) * QuadCols() + quadCol];
  const int sub = subRow * kSub + subCol;
  const bool isUpper = (quad >> sub & 1U) != 0;
  if (KindOf(quad) == kRagged && !isUpper) return kNone;
  const std::uint32_t corners = CornersOf(quad);
  const int corner = kNearestCorner[isUpper ? corners : ~corners & 15U][sub];
  const int row = quadRow + (corner >> 1);
  const int col = quadCol + (corner & 1);
  const double rise = SlopeAlong(row, col, 1, 0) * (v - (corner >> 1)) +
                      SlopeAlong(row, col, 0, 1) * (u - (corner & 1));
  return heights_.At(row, col) + std::clamp(rise, -0.5 * wallStep_, 0.5 * wallStep_);
}

double StepSurface::UpperBound(int quadRow, int quadCol) const {
  double highest = -std::numeric_limits<double>::infinity();
  for (int corner = 0; corner < 4; ++corner) {
    const float height = heights_.At(quadRow + (corner >> 1), quadCol + (corner & 1));
    if (IsHeight(height)) highest = std::max<double>(highest, height);
  }
  return highest + 0.5 * wallStep_;
}

double StepSurface::HeightAt(double row, double col) const {
  if (quads_.empty() || !(row >= 0 && row <= QuadRows() && col >= 0 && col <= QuadCols())) {
    return kNone;
  }
  const int quadRow = std::min(TruncToInt(row), QuadRows() - 1);
  const int quadCol = std::min(TruncToInt(col), QuadCols() - 1);
  const double v = row - quadRow;
  const double u = col - quadCol;
  switch (KindOf(quads_[static_cast<std::size_t>(quadRow) * QuadCols() + quadCol])) {
    case kVoid:
      return kNone;
    case kSmooth: {
      const float* upper = heights_.Row(quadRow) + quadCol;
      const float* lower = heights_.Row(quadRow + 1) + quadCol;
      const double north = upper[0] + u * (static_cast<double>(upper[1]) - upper[0]);
      const double south = lower[0] + u * (static_cast<double>(lower[1]) - lower[0]);
      return north + v * (south - north);
    }
    default:
      return SubCellHeight(quadRow, quadCol, std::min(TruncToInt(v * kSub), kSub - 1),
                           std::min(TruncToInt(u * kSub), kSub - 1), v, u);
  }
}

void StepSurface::HeightsAt(double row, const std::vector<double>& cols, float* heights) const {
  const bool inside = !quads_.empty() && row >= 0 && row < QuadRows();
  const int quadRow = inside ? static_cast<int>(row) : 0;
  const double v = row - quadRow;
  const Quad* quads = quads_.data() + static_cast<std::size_t>(quadRow) * std::max(QuadCols(), 0);
  const float* upper = heights_.Row(quadRow);
  const float* lower = inside ? heights_.Row(quadRow + 1) : upper;
  for (std::size_t i = 0; i < cols.size(); ++i) {
    const double col = cols[i];
    if (inside && col >= 0 && col < QuadCols()) {
      const int quadCol = static_cast<int>(col);
      if (KindOf(quads[quadCol]) == kSmooth) {
        const double u = col - quadCol;
        const float* n = upper + quadCol;
        const float* s = lower + quadCol;
        const double north = n[0] + u * (static_cast<double>(n[1]) - n[0]);
        const double south = s[0] + u * (static_cast<double>(s[1]) - s[0]);
        heights[i] = static_cast<float>(north + v * (south - north));
        continue;
      }
    }
    heights[i] = static_cast<float>(HeightAt(row, col));
  }
}

}  // namespace tqtortho
