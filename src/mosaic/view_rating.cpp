// SPDX-License-Identifier: Apache-2.0
#include "mosaic/view_rating.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "core/numeric.h"
#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;

/// Rating of the nadir angle by the square of its tangent's root: a table, since an arc tangent for
/// every cell would cost more than all the rest.
class AngleTable {
 public:
  AngleTable() {
    for (int i = 0; i < kSize; ++i) {
      const double tangent = static_cast<double>(i) / kPerUnit;
      ratings_[static_cast<std::size_t>(i)] =
          static_cast<float>(std::atan(tangent) * kDegreesPerRadian * kRatingsPerDegree);
    }
  }
  [[nodiscard]] float Of(float tangent) const {
    // Also true for NaN and for cells above the camera, which give a negative tangent.
    if (!(tangent >= 0 && tangent < static_cast<float>(kSize - 1) / kPerUnit)) {
      return ratings_[kSize - 1];
    }
    return ratings_[static_cast<std::size_t>(tangent * kPerUnit)];
  }

 private:
  static constexpr int kPerUnit = 256;
  static constexpr int kSize = 8 * kPerUnit;
  std::array<float, kSize> ratings_{};
};

/// Distances beyond every margin.
constexpr float kFar = std::numeric_limits<float>::max();

/// A step along an axis and a diagonal one, 65536ths of a cell: the distances of OpenCV's 3 x 3
/// transform, which takes over where stamping would cost more.
constexpr int kStraight = 62587;
constexpr int kDiagonal = 89738;

float ChamferDistance(int rows, int cols) {
  const int longer = std::max(rows, cols);
  const int shorter = std::min(rows, cols);
  return static_cast<float>(kStraight * (longer - shorter) + kDiagonal * shorter) / 65536.0F;
}

/// Cells rated `value` with a neighbour that is not: one of them is the nearest of every other
/// cell. Stops when there are more than `most`.
std::vector<cv::Point> RimOf(GridView<const std::uint8_t> rating, std::uint8_t value,
                             std::size_t most) {
  std::vector<cv::Point> rim;
  for (int row = 0; row < rating.rows && rim.size() <= most; ++row) {
    const std::uint8_t* here = rating.Row(row);
    const std::uint8_t* above = rating.Row(std::max(row - 1, 0));
    const std::uint8_t* below = rating.Row(std::min(row + 1, rating.rows - 1));
    for (int col = 0; col < rating.cols; ++col) {
      if (here[col] != value) continue;
      if (above[col] != value || below[col] != value || here[std::max(col - 1, 0)] != value ||
          here[std::min(col + 1, rating.cols - 1)] != value) {
        rim.emplace_back(col, row);
      }
    }
  }
  return rim;
}

/// Distance of each cell not rated `value` to the nearest one that is, in cells; right where it is
/// below `margin`.
cv::Mat DistanceTo(GridView<const std::uint8_t> rating, std::uint8_t value, double margin) {
  constexpr int kWidest = 64;
  constexpr std::size_t kStampedPerCell = 16;  // from here on the transform is faster
  const int reach = TruncToInt(std::min(std::ceil(margin / 0.955), kWidest + 1.0));
  const std::size_t side = 2 * static_cast<std::size_t>(std::max(reach, 0)) + 1;
  const std::size_t most = kStampedPerCell * rating.CellCount() / (side * side);
  const std::vector<cv::Point> rim = RimOf(rating, value, most);
  cv::Mat distance(rating.rows, rating.cols, CV_32F, cv::Scalar(kFar));
  if (reach > kWidest || rim.size() > most) {
    cv::Mat away;
    cv::compare(AsMat(rating), value, away, cv::CMP_NE);
    cv::distanceTransform(away, distance, cv::DIST_L2, cv::DIST_MASK_3);
    return distance;
  }
  std::vector<float> stamp;
  for (int row = -reach; row <= reach; ++row) {
    for (int col = -reach; col <= reach; ++col) {
      stamp.push_back(ChamferDistance(std::abs(row), std::abs(col)));
    }
  }
  for (const cv::Point& cell : rim) {
    const int firstCol = std::max(cell.x - reach, 0);
    const int cols = std::min(cell.x + reach + 1, rating.cols) - firstCol;
    const int endRow = std::min(cell.y + reach + 1, rating.rows);
    for (int row = std::max(cell.y - reach, 0); row < endRow; ++row) {
      const float* from = stamp.data() + static_cast<std::size_t>(row - cell.y + reach) * side +
                          (firstCol - cell.x + reach);
      auto* to = distance.ptr<float>(row) + firstCol;
      for (int k = 0; k < cols; ++k) to[k] = std::min(to[k], from[k]);
    }
  }
  return distance;
}

float Penalty(float distance, double margin, double penalty) {
  const float share = 1 - distance / static_cast<float>(margin);
  return share > 0 ? share * static_cast<float>(penalty) : 0;
}

}  // namespace

void RateView(const PhotoCamera& camera, const VisibilityLattice& lattice,
              GridView<const float> heights, const ViewRatingOptions& options,
              GridView<std::uint8_t> rating) {
  if (rating.Empty()) return;
  static const AngleTable kAngles;
  const cv::Mat toHidden = DistanceTo(rating, kHiddenView, options.hiddenMargin);
  const cv::Mat toOutside = DistanceTo(rating, kOutsideView, options.frameMargin);
  const double coarsePerDepth = camera.pixelSize / camera.focal / options.cellSize;
  const float cameraZ = NarrowToFloat(camera.centre.z);
  std::vector<float> tangents(static_cast<std::size_t>(rating.cols));
  std::vector<float> squares(tangents.size());  // of the distance along the row
  for (int col = 0; col < rating.cols; ++col) {
    const double dX = lattice.firstX + col * lattice.step - camera.centre.x;
    squares[col] = NarrowToFloat(dX * dX);
  }
  for (int row = 0; row < rating.rows; ++row) {
    GiveUpIfRaised(options.stop);
    std::uint8_t* out = rating.Row(row);
    const float* hidden = toHidden.ptr<float>(row);
    const float* outside = toOutside.ptr<float>(row);
    const float* height = heights.Row(row);
    const double dY = lattice.firstY - row * lattice.step - camera.centre.y;
    const float squareY = NarrowToFloat(dY * dY);
    const int rowEdge = std::min(row + 1, rating.rows - row);
    // Apart from the rest, so that several cells go at once.
    for (int col = 0; col < rating.cols; ++col) {
      const float below = cameraZ - height[col];
      tangents[col] = std::sqrt(squares[col] + squareY) / below;
    }
    for (int col = 0; col < rating.cols; ++col) {
      if (out[col] != 0) continue;
      const float below = cameraZ - height[col];
      float cost = kAngles.Of(tangents[col]);
      // The raster's own edge ends the data as well.
      const int edge = std::min({rowEdge, col + 1, rating.cols - col});
      cost += Penalty(std::min(outside[col], static_cast<float>(edge)), options.frameMargin,
                      options.framePenalty);
      cost += Penalty(hidden[col], options.hiddenMargin, options.hiddenPenalty);
      const double coarse = below * coarsePerDepth;
      if (coarse > 1) cost += static_cast<float>(options.coarsePenalty * std::log2(coarse));
      out[col] =
          static_cast<std::uint8_t>(std::clamp(cost + 0.5F, 0.0F, static_cast<float>(kWorstView)));
    }
  }
}

}  // namespace tqtortho
