// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "camera/camera_model.h"

namespace tqtortho {

/// A part of a photo that somebody else holds: interleaved bands, rows downwards.
struct PhotoWindow {
  PhotoCamera camera;
  const std::uint8_t* pixels = nullptr;
  int firstCol = 0;
  int firstRow = 0;
  int cols = 0;
  int rows = 0;
  int bands = 0;
};

struct PhotoColour {
  float band[3] = {0, 0, 0};
};

/// Where a photo shows a ground point, as fractional column and row of its pixels. False outside
/// the frame and behind the camera.
[[nodiscard]] bool PixelOfGround(const PhotoCamera& camera, double x, double y, double z,
                                 double& column, double& row);

/// The photo's colour of a ground point, bilinear; false where the window does not show it.
[[nodiscard]] bool ColourOfGround(const PhotoWindow& photo, double x, double y, double z,
                                  PhotoColour& colour);

}  // namespace tqtortho
