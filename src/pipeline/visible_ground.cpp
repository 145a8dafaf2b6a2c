// SPDX-License-Identifier: Apache-2.0
#include "pipeline/visible_ground.h"

#include <algorithm>
#include <cmath>

#include "core/numeric.h"
#include "core/rect_ops.h"

namespace tqtortho {

namespace {

using Rect = tqfd::Rect2_T<double>;

constexpr double kMinDepth = 1e-6;    // ground units; nearer counts as behind the camera
constexpr double kFrameMargin = 1.0;  // pixels; covers the rounding of pixel positions to float
constexpr double kCurvature = 0.05;   // share of a patch's image that the lens may bend it by

enum class Sight { kMisses, kMeets, kCutByCameraPlane };

class Search {
 public:
  Search(const HeightPyramid& surface, const PhotoCamera& camera)
      : surface_(surface),
        camera_(camera),
        frame_{-kFrameMargin, -kFrameMargin, camera.width + kFrameMargin,
               camera.height + kFrameMargin} {}

  Rect Run() {
    Visit(static_cast<int>(surface_.levels.size()) - 1, 0, 0);
    return box_;
  }

 private:
  void Visit(int levelIndex, int row, int col) {
    const auto& level = surface_.levels[static_cast<std::size_t>(levelIndex)];
    if (row >= level.rows || col >= level.cols) return;
    const HeightRange& range =
        level.ranges[static_cast<std::size_t>(row) * static_cast<std::size_t>(level.cols) +
                     static_cast<std::size_t>(col)];
    if (range.Empty()) return;
    const Rect ground = GroundOf(levelIndex, row, col);
    if (box_.minX <= ground.minX && box_.minY <= ground.minY && box_.maxX >= ground.maxX &&
        box_.maxY >= ground.maxY) {
      return;
    }
    bool cornerSeen = false;
    const Sight sight = Look(ground, range, levelIndex == 0, cornerSeen);
    if (sight == Sight::kMisses) return;
    if (levelIndex == 0) {
      if (sight == Sight::kMeets || cornerSeen) FoldInto(box_, ground);
      return;
    }
    for (int i = 0; i < 4; ++i) Visit(levelIndex - 1, 2 * row + i / 2, 2 * col + i % 2);
  }

  [[nodiscard]] Rect GroundOf(int levelIndex, int row, int col) const {
    const double side = std::ldexp(1.0, levelIndex);
    Rect ground;
    ground.minX = surface_.minX + col * (side * surface_.patchWidth);
    ground.maxX = surface_.minX + (col + 1.0) * (side * surface_.patchWidth);
    ground.maxY = surface_.maxY - row * (side * surface_.patchHeight);
    ground.minY = surface_.maxY - (row + 1.0) * (side * surface_.patchHeight);
    return ground;
  }

  // Where the block of ground square and height range falls: the image of a convex block is the
  // hull of its corners' images, as long as all of them lie in front of the camera.
  [[nodiscard]] Sight Look(const Rect& ground, const HeightRange& range, bool finest,
                           bool& cornerSeen) const {
    const double* m = camera_.rotation;
    Rect image;
    int behind = 0;
    for (int corner = 0; corner < 8; ++corner) {
      const double x = (corner & 1) != 0 ? ground.maxX : ground.minX;
      const double y = (corner & 2) != 0 ? ground.maxY : ground.minY;
      const double z = (corner & 4) != 0 ? range.high : range.low;
      const double depth = -(m[2] * (x - camera_.centre.x) + m[5] * (y - camera_.centre.y) +
                             m[8] * (z - camera_.centre.z));
      if (!(depth > kMinDepth)) {
        ++behind;
        continue;
      }
      const auto pixel = PixelFromImage(camera_, ImageFromGround(camera_, x, y, z));
      const Rect point{pixel.x, pixel.y, pixel.x, pixel.y};
      cornerSeen = cornerSeen || OverlapsStrictly(point, frame_);
      FoldInto(image, point);
    }
    if (behind == 8) return Sight::kMisses;
    if (behind > 0) return Sight::kCutByCameraPlane;
    if (!OverlapsStrictly(image, frame_)) return Sight::kMisses;
    if (finest && !RecordedMeetsFrame(image)) return Sight::kMisses;
    return Sight::kMeets;
  }

  // A position outside the ideal frame is in no photo, whatever the lens does to it; inside, the
  // lens may still carry it out.
  [[nodiscard]] bool RecordedMeetsFrame(const Rect& image) const {
    const Rect part = Intersection(image, frame_);
    const double bend =
        kFrameMargin + kCurvature * std::max(part.maxX - part.minX, part.maxY - part.minY);
    Rect moved;
    for (int corner = 0; corner < 4; ++corner) {
      const auto p = RecordedFromIdeal(camera_.lens,
                                       {NarrowToFloat((corner & 1) != 0 ? part.maxX : part.minX),
                                        NarrowToFloat((corner & 2) != 0 ? part.maxY : part.minY)});
      if (!std::isfinite(p.x) || !std::isfinite(p.y)) return true;
      FoldInto(moved, Rect{p.x - bend, p.y - bend, p.x + bend, p.y + bend});
    }
    return OverlapsStrictly(moved, frame_);
  }

  const HeightPyramid& surface_;
  const PhotoCamera& camera_;
  Rect frame_;
  Rect box_;
};

bool CanProject(const PhotoCamera& camera) {
  for (const double value : camera.rotation) {
    if (!std::isfinite(value)) return false;
  }
  return IsUsable(camera) && std::isfinite(camera.centre.x) && std::isfinite(camera.centre.y) &&
         std::isfinite(camera.centre.z);
}

}  // namespace

tqfd::Rect2_T<double> VisibleGround(const HeightPyramid& surface, const PhotoCamera& camera) {
  if (surface.levels.empty() || !CanProject(camera)) return {};
  return Search(surface, camera).Run();
}

}  // namespace tqtortho
