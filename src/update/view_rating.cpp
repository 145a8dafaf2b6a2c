// SPDX-License-Identifier: Apache-2.0
#include "update/view_rating.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "job/cv_bridge.h"

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

/// Distance of each cell to the nearest one rated `value`, in cells.
cv::Mat DistanceTo(GridView<const std::uint8_t> rating, std::uint8_t value) {
  cv::Mat away;
  cv::compare(AsMat(rating), value, away, cv::CMP_NE);
  cv::Mat distance;
  cv::distanceTransform(away, distance, cv::DIST_L2, cv::DIST_MASK_3);
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
  const cv::Mat toHidden = DistanceTo(rating, kHiddenView);
  const cv::Mat toOutside = DistanceTo(rating, kOutsideView);
  const double pixelsPerUnit = camera.focal / camera.pixelSize;
  for (int row = 0; row < rating.rows; ++row) {
    std::uint8_t* out = rating.Row(row);
    const float* hidden = toHidden.ptr<float>(row);
    const float* outside = toOutside.ptr<float>(row);
    const float* height = heights.Row(row);
    const double dY = lattice.firstY - row * lattice.step - camera.centre.y;
    const int rowEdge = std::min(row + 1, rating.rows - row);
    for (int col = 0; col < rating.cols; ++col) {
      if (out[col] != 0) continue;
      const double dX = lattice.firstX + col * lattice.step - camera.centre.x;
      const double below = camera.centre.z - height[col];
      const auto tangent = static_cast<float>(std::sqrt(dX * dX + dY * dY) / below);
      float cost = kAngles.Of(tangent);
      // The raster's own edge ends the data as well.
      const int edge = std::min({rowEdge, col + 1, rating.cols - col});
      cost += Penalty(std::min(outside[col], static_cast<float>(edge)), options.frameMargin,
                      options.framePenalty);
      cost += Penalty(hidden[col], options.hiddenMargin, options.hiddenPenalty);
      const double coarse = below / (pixelsPerUnit * options.cellSize);
      if (coarse > 1) cost += static_cast<float>(options.coarsePenalty * std::log2(coarse));
      out[col] =
          static_cast<std::uint8_t>(std::clamp(cost + 0.5F, 0.0F, static_cast<float>(kWorstView)));
    }
  }
}

}  // namespace tqtortho
