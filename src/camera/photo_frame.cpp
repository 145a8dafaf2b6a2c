// SPDX-License-Identifier: Apache-2.0
#include "camera/photo_frame.h"

#include <algorithm>
#include <limits>

#include "core/numeric.h"

namespace tqtortho {
namespace {

/// The extent of some positions in the photo.
struct Extent {
  double minCol = std::numeric_limits<double>::infinity();
  double maxCol = -std::numeric_limits<double>::infinity();
  double minUp = std::numeric_limits<double>::infinity();
  double maxUp = -std::numeric_limits<double>::infinity();

  void Add(double col, double up) {
    minCol = std::min(minCol, col);
    maxCol = std::max(maxCol, col);
    minUp = std::min(minUp, up);
    maxUp = std::max(maxUp, up);
  }
  /// Grows by its own size, far more than a lens bends lines over such a stretch.
  void Grow() {
    const double cols = maxCol - minCol + 1;
    const double ups = maxUp - minUp + 1;
    minCol -= cols;
    maxCol += cols;
    minUp -= ups;
    maxUp += ups;
  }
  // The limits themselves are left to the test of single points, which rounds as rectification
  // does.
  [[nodiscard]] bool Inside(double width, double height) const {
    return minCol > 0 && maxCol < width && minUp > 0 && maxUp < height;
  }
  [[nodiscard]] bool Outside(double width, double height) const {
    return maxCol < 0 || minCol > width || maxUp < 0 || minUp > height;
  }
};

}  // namespace

PhotoFrame::PhotoFrame(const PhotoCamera& camera)
    : camera_(camera),
      focalPixels_(camera.focal / camera.pixelSize),
      principalCol_(camera.offsetX / camera.pixelSize + camera.width * 0.5),
      principalUp_(camera.offsetY / camera.pixelSize + camera.height * 0.5) {}

/// False behind the camera.
bool PhotoFrame::Project(double x, double y, double z, Position& ideal) const {
  const double* m = camera_.rotation;
  const double dX = x - camera_.centre.x;
  const double dY = y - camera_.centre.y;
  const double dZ = z - camera_.centre.z;
  const double den = m[2] * dX + m[5] * dY + m[8] * dZ;
  // Pixels per unit of the direction; positive in front of the camera.
  const double scale = -focalPixels_ / den;
  ideal.col = (m[0] * dX + m[3] * dY + m[6] * dZ) * scale + principalCol_;
  ideal.up = (m[1] * dX + m[4] * dY + m[7] * dZ) * scale + principalUp_;
  return scale > 0;
}

bool PhotoFrame::Contains(double x, double y, double z) const {
  Position ideal;
  if (!Project(x, y, z, ideal) || !Holds(ideal.col, ideal.up)) return false;
  if (camera_.lens.model == 0) return true;
  const auto recorded =
      RecordedFromIdeal(camera_.lens, {NarrowToFloat(ideal.col), NarrowToFloat(ideal.up)});
  return Holds(recorded.x, camera_.height - recorded.y);
}

PhotoFrame::Place PhotoFrame::PlaceOf(double minX, double maxX, double minY, double maxY,
                                      double minZ, double maxZ) const {
  Position corners[8];
  Extent extent;
  for (int i = 0; i < 8; ++i) {
    if (!Project((i & 1) != 0 ? maxX : minX, (i & 2) != 0 ? maxY : minY, (i & 4) != 0 ? maxZ : minZ,
                 corners[i])) {
      return Place::kAcross;
    }
    extent.Add(corners[i].col, corners[i].up);
  }
  // What the corners span holds the image of the whole box, as long as no lens bends it.
  if (extent.Outside(camera_.width, camera_.height)) return Place::kOutside;
  if (!extent.Inside(camera_.width, camera_.height)) return Place::kAcross;
  if (camera_.lens.model == 0) return Place::kInside;
  extent = {};
  for (const Position& corner : corners) {
    const auto recorded =
        RecordedFromIdeal(camera_.lens, {NarrowToFloat(corner.col), NarrowToFloat(corner.up)});
    extent.Add(recorded.x, camera_.height - recorded.y);
  }
  extent.Grow();
  if (extent.Outside(camera_.width, camera_.height)) return Place::kOutside;
  return extent.Inside(camera_.width, camera_.height) ? Place::kInside : Place::kAcross;
}

}  // namespace tqtortho
