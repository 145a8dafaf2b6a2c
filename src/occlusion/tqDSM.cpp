// SPDX-License-Identifier: Apache-2.0
#include "occlusion/tqDSM.h"

namespace tqtortho {

Point3 tqDSM::ToLocal(const Point3& ground) const {
  const float height = static_cast<float>(rows - 1) * cellSizeY;
  return {ground.x - originX, ground.y - (originY + static_cast<double>(height)), ground.z};
}

RaySurface tqDSM::Surface() const {
  return {GridView<const float>(heights.data(), rows, cols),
          noData,
          cellSizeX,
          cellSizeY,
          {minX, minY, minZ, maxX, maxY, maxZ}};
}

void tqDSM::SetBox() {
  float low = 1e6f;
  float high = -1e6f;
  for (const float height : heights) {
    if (!IsValidHeight(height, noData)) continue;
    if (height < low) low = height;
    if (height > high) high = height;
  }
  const float width = static_cast<float>(cols - 1) * cellSizeX;
  const float depth = static_cast<float>(rows - 1) * -cellSizeY;
  minX = minY = 0;
  maxX = static_cast<double>(width);
  maxY = static_cast<double>(depth);
  minZ = static_cast<double>(low);
  maxZ = static_cast<double>(high);
}

}  // namespace tqtortho
