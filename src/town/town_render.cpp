// SPDX-License-Identifier: Apache-2.0
#include "town/town_render.h"

#include <algorithm>

#include "core/numeric.h"

namespace tqtortho::host {
namespace {

/// A colour and the object that it belongs to.
struct Sample {
  TownColour colour;
  int object = -1;
};

/// Mean of a grid of samples of the unit square around (0, 0), finer where the first four differ in
/// object.
template <class SampleAt>
void AveragePixel(const SampleAt& sampleAt, std::uint8_t* rgb) {
  double r = 0, g = 0, b = 0;
  const auto scan = [&](int n) {
    bool uniform = true;
    int first = -2;
    r = g = b = 0;
    for (int k = 0; k < n * n; ++k) {
      const int col = k % n, row = k / n;
      const Sample s = sampleAt((col + 0.5) / n - 0.5, (row + 0.5) / n - 0.5);
      if (k == 0) first = s.object;
      uniform = uniform && s.object == first;
      r += s.colour.r;
      g += s.colour.g;
      b += s.colour.b;
    }
    r /= n * n;
    g /= n * n;
    b /= n * n;
    return uniform;
  };
  if (!scan(2)) scan(4);
  const auto byte = [](double v) {
    return static_cast<std::uint8_t>(TruncToInt(std::clamp(v, kDarkest, kBrightest) + 0.5));
  };
  rgb[0] = byte(r);
  rgb[1] = byte(g);
  rgb[2] = byte(b);
}

}  // namespace

void RenderPhotoRow(const TownScene& scene, const TownCamera& camera, int row, int width,
                    std::uint8_t* rgb) {
  for (int column = 0; column < width; ++column) {
    AveragePixel(
        [&](double dx, double dy) {
          const TownRay ray = camera.RayOf(column + dx, row + dy);
          const TownScene::Hit hit = scene.Trace(ray);
          return Sample{scene.ColourOf(ray, hit), 2 * hit.solid + (hit.wall ? 1 : 0)};
        },
        rgb + 3 * static_cast<std::ptrdiff_t>(column));
  }
}

void RenderTruthRow(const TownScene& scene, const TownRaster& raster, int row, std::uint8_t* rgb) {
  for (int column = 0; column < raster.cells; ++column) {
    AveragePixel(
        [&](double dx, double dy) {
          Sample s;
          s.colour = scene.ColourAt(raster.X(column) + dx * raster.cellM,
                                    raster.Y(row) - dy * raster.cellM, s.object);
          return s;
        },
        rgb + 3 * static_cast<std::ptrdiff_t>(column));
  }
}

void SampleHeightRow(const TownScene& scene, const TownRaster& raster, int row, float* heights) {
  for (int column = 0; column < raster.cells; ++column) {
    heights[column] = NarrowToFloat(scene.Height(raster.X(column), raster.Y(row)));
  }
}

void SampleClassRow(const TownScene& scene, const TownRaster& raster, int row,
                    std::uint8_t* classes) {
  for (int column = 0; column < raster.cells; ++column) {
    classes[column] = static_cast<std::uint8_t>(scene.ClassAt(raster.X(column), raster.Y(row)));
  }
}

void VisibilityRow(const TownScene& scene, const TownRaster& raster, const TownCamera& camera,
                   int row, std::uint8_t* visibility) {
  for (int column = 0; column < raster.cells; ++column) {
    const double x = raster.X(column), y = raster.Y(row), z = scene.Height(x, y);
    if (!camera.InFrame(x, y, z)) {
      visibility[column] = kTruthOutside;
    } else {
      visibility[column] =
          scene.Hidden(x, y, z, camera.X(), camera.Y(), camera.Z()) ? kTruthHidden : kTruthSeen;
    }
  }
}

}  // namespace tqtortho::host
