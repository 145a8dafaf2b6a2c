// SPDX-License-Identifier: Apache-2.0
#include "occlusion/border_merge.h"

#include "stage/cv_bridge.h"

namespace tqtortho {

void MergeFarBorders(GridView<std::uint8_t> hidden, GridView<std::uint8_t> border,
                     GridView<std::uint8_t> reach) {
  if (hidden.Empty()) return;
  cv::Mat hiddenCells = AsMat(hidden);
  cv::Mat reachCells = AsMat(reach);
  Dilate3x3(hiddenCells, reachCells, kShadowReach);
  for (int row = 0; row < hidden.rows; ++row) {
    const std::uint8_t* near = reach.Row(row);
    std::uint8_t* edge = border.Row(row);
    std::uint8_t* cell = hidden.Row(row);
    for (int col = 0; col < hidden.cols; ++col) {
      if (near[col] > 0) edge[col] = 0;
      if (edge[col] > 0) cell[col] = 255;
    }
  }
  Dilate3x3(hiddenCells, hiddenCells);
  Erode3x3(hiddenCells, hiddenCells);
}

}  // namespace tqtortho
