// SPDX-License-Identifier: Apache-2.0
#include "walls/photo_window.h"

#include <cstddef>

#include "core/numeric.h"

namespace tqtortho {

bool PixelOfGround(const PhotoCamera& camera, double x, double y, double z, double& column,
                   double& row) {
  const double* m = camera.rotation;
  const double depth =
      m[2] * (x - camera.centre.x) + m[5] * (y - camera.centre.y) + m[8] * (z - camera.centre.z);
  if (!(depth * camera.focal < 0)) return false;
  const auto ideal = PixelFromImage(camera, ImageFromGround(camera, x, y, z));
  if (!(ideal.x >= 0 && ideal.x < camera.width && ideal.y >= 0 && ideal.y < camera.height)) {
    return false;
  }
  const auto recorded =
      RecordedFromIdeal(camera.lens, {NarrowToFloat(ideal.x), NarrowToFloat(ideal.y)});
  column = recorded.x;
  row = camera.height - recorded.y;
  return column >= 0 && column < camera.width && row >= 0 && row < camera.height;
}

bool ColourOfGround(const PhotoWindow& photo, double x, double y, double z, PhotoColour& colour) {
  double column = 0;
  double row = 0;
  if (photo.bands < 1 || !PixelOfGround(photo.camera, x, y, z, column, row)) return false;
  column -= photo.firstCol;
  row -= photo.firstRow;
  if (!(column >= 0 && row >= 0 && column < photo.cols - 1 && row < photo.rows - 1)) return false;
  const int c = TruncToInt(column);
  const int r = TruncToInt(row);
  const auto u = static_cast<float>(column - c);
  const auto v = static_cast<float>(row - r);
  const auto bands = static_cast<std::size_t>(photo.bands);
  const std::size_t across = bands * static_cast<std::size_t>(photo.cols);
  const std::uint8_t* p =
      photo.pixels + across * static_cast<std::size_t>(r) + bands * static_cast<std::size_t>(c);
  for (std::size_t b = 0; b < 3; ++b) {
    const std::uint8_t* q = p + (bands >= 3 ? b : 0);
    const float upper = q[0] + u * (static_cast<float>(q[bands]) - q[0]);
    const float lower = q[across] + u * (static_cast<float>(q[across + bands]) - q[across]);
    colour.band[b] = upper + v * (lower - upper);
  }
  return true;
}

}  // namespace tqtortho
