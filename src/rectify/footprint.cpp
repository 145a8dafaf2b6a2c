// SPDX-License-Identifier: Apache-2.0
#include "rectify/footprint.h"

#include <algorithm>
#include <cmath>

#include "tqimage/GeoCoefficients.h"
#include "tqorkit/arbiRect.h"

namespace tqtortho {
namespace {

/// Height search along one corner's ray after the other.
class HeightSearch {
 public:
  HeightSearch(const PhotoCamera& camera, const SurfaceTile& tile, double startHeight)
      : camera_(camera), tile_(tile), previous_(startHeight + 1.0), height_(startHeight) {
    const double transform[6] = {tile.minX, tile.cell, 0, tile.maxY, 0, tile.cellY};
    lattice_ = tqimage::GeoCoefficients(transform, tile.heights.cols, tile.heights.rows);
  }

  /// Height for the ray of an image-plane position.
  ///
  /// Kept: the pair (previous, current) carries over from corner to corner. After a corner that
  /// settled the next ones find the pair settled and reuse its height; only a corner that ended
  /// on the step limit or on no data makes the next one search again.
  double Follow(tqfd::Point2_T<double> image) {
    int steps = 0;
    while (std::fabs(previous_ - height_) > kFootprintSettled) {
      previous_ = height_;
      height_ = HeightBelow(image);
      ++steps;
      if (steps > kFootprintStepLimit || height_ == tile_.noData) {
        height_ = tile_.defaultZ;
        break;
      }
      if (std::isnan(height_)) height_ = tile_.defaultZ;
    }
    return height_;
  }

 private:
  [[nodiscard]] double HeightBelow(tqfd::Point2_T<double> image) const {
    const tqfd::Point2_T<double> ground = GroundFromImage(camera_, image.x, image.y, height_);
    const tqfd::Point2_T<int> cell = lattice_.World2Raster(ground.x, ground.y, -1, -1);
    return tile_.heights.At(std::clamp(cell.y, 0, tile_.heights.rows - 1),
                            std::clamp(cell.x, 0, tile_.heights.cols - 1));
  }

  const PhotoCamera& camera_;
  const SurfaceTile& tile_;
  tqimage::GeoCoefficients lattice_;
  double previous_;
  double height_;
};

}  // namespace

tqfd::Rect2_T<double> GroundFootprint(const PhotoCamera& camera, const SurfaceTile& tile,
                                      int photoCols, int photoRows, double startHeight) {
  if (tile.heights.Empty()) return {};
  const double w = photoCols;
  const double h = photoRows;
  const tqfd::Point2_T<double> corners[4] = {{0, 0}, {0, h}, {w, h}, {w, 0}};
  HeightSearch search(camera, tile, startHeight);
  tqfd::Rect2_T<double> box{1e15, 1e15, -1e15, -1e15};
  double groundX[4];
  double groundY[4];
  for (int i = 0; i < 4; ++i) {
    const tqfd::Point2_T<double> image = {
        (corners[i].x - w * 0.5) * camera.pixelSize - camera.offsetX,
        (h * 0.5 - corners[i].y) * camera.pixelSize - camera.offsetY};
    const double height = search.Follow(image);
    const tqfd::Point2_T<double> ground = GroundFromImage(camera, image.x, image.y, height);
    groundX[i] = ground.x;
    groundY[i] = ground.y;
    if (ground.x < box.minX) box.minX = ground.x;
    if (ground.y < box.minY) box.minY = ground.y;
    if (ground.x > box.maxX) box.maxX = ground.x;
    if (ground.y > box.maxY) box.maxY = ground.y;
  }
  const tqorkit::arbiRect quadrilateral(groundX, groundY);
  if (!quadrilateral.IsPointInArbiRect(camera.centre.x, camera.centre.y)) return {};
  return box;
}

}  // namespace tqtortho
