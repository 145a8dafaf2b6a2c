// SPDX-License-Identifier: Apache-2.0
#include "update/ownership_mask.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "stage/cv_bridge.h"

namespace tqtortho {

void FillOwnership(const std::vector<std::uint16_t>& stripMap, int label,
                   std::vector<std::uint8_t>& mask) {
  const std::size_t count = std::min(mask.size(), stripMap.size());
  for (std::size_t i = 0; i < count; ++i) {
    if (stripMap[i] == label || stripMap[i] == 0) mask[i] = 255;
  }
}

std::vector<std::uint8_t> GrowOwnership(GridView<const std::uint8_t> mask) {
  cv::Mat dilated;
  Dilate3x3(AsMat(mask), dilated);
  const int rows = mask.rows + 1;
  const int cols = mask.cols + 1;
  std::vector<std::uint8_t> grown(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
  cv::Mat target = AsMat(GridView<std::uint8_t>(grown.data(), rows, cols));
  cv::resize(dilated, target, cv::Size(cols, rows), 0, 0, cv::INTER_LINEAR);
  return grown;
}

}  // namespace tqtortho
