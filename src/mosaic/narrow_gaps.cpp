// SPDX-License-Identifier: Apache-2.0
#include "mosaic/narrow_gaps.h"

#include <algorithm>

#include "stage/cv_bridge.h"

namespace tqtortho {

void KeepNarrowGaps(GridView<const std::uint8_t> seen, double width,
                    GridView<std::uint8_t> wanted) {
  // The middle row of a strip of n rows is (n + 1) / 2 rows away from the first seen cell. A disk
  // of that radius and the way back to its cells reach twice as far.
  const double radius = std::min(0.5 * (width + 1), 0.5 * kGapReach);
  constexpr int kRim = kGapReach / 2 + 1;
  cv::Mat unseen(seen.rows + 2 * kRim, seen.cols + 2 * kRim, CV_8U, cv::Scalar(255));
  for (int row = 0; row < seen.rows; ++row) {
    const std::uint8_t* from = seen.Row(row);
    auto* to = unseen.ptr<std::uint8_t>(row + kRim) + kRim;
    for (int col = 0; col < seen.cols; ++col) to[col] = from[col] == 0 ? 255 : 0;
  }
  cv::Mat distance;
  cv::distanceTransform(unseen, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
  // Centres of disks that are too wide become 0, then everything within such a disk is found.
  const cv::Mat narrow = distance <= radius + 1e-3;
  cv::distanceTransform(narrow, distance, cv::DIST_L2, cv::DIST_MASK_PRECISE);
  for (int row = 0; row < wanted.rows; ++row) {
    const auto* toWide = distance.ptr<float>(row + kRim) + kRim;
    std::uint8_t* cell = wanted.Row(row);
    for (int col = 0; col < wanted.cols; ++col) {
      if (static_cast<double>(toWide[col]) < radius) cell[col] = 0;
    }
  }
}

}  // namespace tqtortho
