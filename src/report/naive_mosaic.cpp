// SPDX-License-Identifier: Apache-2.0
#include "report/naive_mosaic.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/numeric.h"
#include "geo/RasterTools.h"
#include "mosaic/mosaic_layer.h"

namespace tqtortho::host {
namespace {

/// Reduced photos are not read larger than this, whatever the grid.
constexpr int kLargestPhoto = 8192;

enum Flag : std::uint8_t { kInFrame = 1, kHidden = 2 };

/// A grid of a part of the cells.
ReportGrid Part(const ReportGrid& grid, const ReportSpan& span) {
  ReportGrid part = grid;
  part.minX += span.firstCol * grid.cellX;
  part.maxY -= span.firstRow * grid.cellY;
  part.cols = span.cols;
  part.rows = span.rows;
  return part;
}

/// Flags of a photo on its part of the grid. @return false when its mask could not be read
bool FlagCells(const ReportGrid& grid, const std::vector<float>& heights, const GroundPhoto& photo,
               const ReportSpan& span, std::vector<std::uint8_t>& flags) {
  const ReportGrid part = Part(grid, span);
  std::vector<std::uint8_t> mask;
  const bool masked =
      ReadOnGrid<std::uint8_t>(photo.maskPath, 1, part, geo::Scaling::kNearest, 0, mask);
  flags.assign(part.Count(), 0);
  for (int row = 0; row < span.rows; ++row) {
    for (int col = 0; col < span.cols; ++col) {
      const double z = heights[grid.Index(span.firstRow + row, span.firstCol + col)];
      double u, v;
      if (std::isnan(z) || !PhotoPosition(photo.camera, part.X(col), part.Y(row), z, u, v))
        continue;
      const std::size_t i = part.Index(row, col);
      flags[i] = masked && mask[i] == 255 ? kInFrame | kHidden : kInFrame;
    }
  }
  return masked;
}

std::uint8_t OneMore(std::uint8_t count) {
  return static_cast<std::uint8_t>(std::min(count + 1, 255));
}

/// A photo in memory, reduced.
struct SmallPhoto {
  std::vector<std::uint8_t> pixels;
  int width = 0;
  int height = 0;
  int bands = 0;
  double scaleX = 1;  ///< reduced pixels per pixel
  double scaleY = 1;

  void Sample(double col, double row, std::uint8_t* rgb) const {
    const double x = std::clamp(col, 0.0, width - 1.0);
    const double y = std::clamp(row, 0.0, height - 1.0);
    const int c = std::min(TruncToInt(x), std::max(width - 2, 0));
    const int r = std::min(TruncToInt(y), std::max(height - 2, 0));
    const int right = width > 1 ? bands : 0;
    const std::ptrdiff_t down = height > 1 ? static_cast<std::ptrdiff_t>(width) * bands : 0;
    const std::uint8_t* p =
        pixels.data() + (static_cast<std::size_t>(r) * static_cast<std::size_t>(width) +
                         static_cast<std::size_t>(c)) *
                            static_cast<std::size_t>(bands);
    const double fx = x - c, fy = y - r;
    for (int band = 0; band < 3; ++band) {
      const std::uint8_t* q = p + (bands == 3 ? band : 0);
      const double top = q[0] + (q[right] - q[0]) * fx;
      const double bottom = q[down] + (q[down + right] - q[down]) * fx;
      rgb[band] = static_cast<std::uint8_t>(TruncToInt(top + (bottom - top) * fy + 0.5));
    }
  }
};

/// Ground size of a photo's pixel at a height.
double PixelOnGround(const PhotoCamera& camera, double height) {
  return std::fabs((camera.centre.z - height) * camera.pixelSize / camera.focal);
}

/// The photo at about the size of the grid's cells on ground of this height.
bool ReadSmall(const ReportGrid& grid, const GroundPhoto& photo, double height, SmallPhoto& small) {
  const double longer = std::max(photo.camera.width, photo.camera.height);
  const double share = PixelOnGround(photo.camera, height) / std::min(grid.cellX, grid.cellY);
  const int side =
      std::clamp(TruncToInt(std::ceil(longer * std::min(share, 1.0))), 64, kLargestPhoto);
  geo::RasterSummary raster;
  std::string error;
  if (!geo::DescribeRaster(photo.photoPath, raster, error) ||
      !geo::ReadReduced(photo.photoPath, side, small.pixels, small.width, small.height,
                        small.bands)) {
    return false;
  }
  small.scaleX = static_cast<double>(small.width) / raster.width;
  small.scaleY = static_cast<double>(small.height) / raster.height;
  return true;
}

/// @return false when the photo has cells and cannot be read
bool DrawOne(const ReportGrid& grid, const std::vector<float>& heights, const GroundPhoto& photo,
             const ReportSpan& span, const std::vector<std::uint16_t>& nearest,
             std::vector<std::uint8_t>& colours) {
  SmallPhoto small;
  for (int row = span.firstRow; row < span.firstRow + span.rows; ++row) {
    for (int col = span.firstCol; col < span.firstCol + span.cols; ++col) {
      const std::size_t i = grid.Index(row, col);
      if (nearest[i] != photo.number) continue;
      if (small.width == 0 && !ReadSmall(grid, photo, heights[i], small)) return false;
      double u, v;
      if (!PhotoPosition(photo.camera, grid.X(col), grid.Y(row), heights[i], u, v)) continue;
      // Whole columns and rows are the middles of pixels.
      small.Sample((u + 0.5) * small.scaleX - 0.5, (v + 0.5) * small.scaleY - 0.5,
                   colours.data() + 3 * i);
    }
  }
  return true;
}

}  // namespace

PhotoCoverage FindCoverage(const ReportGrid& grid, const std::vector<float>& heights,
                           const std::vector<GroundPhoto>& photos) {
  PhotoCoverage all;
  all.nearest.assign(grid.Count(), 0);
  all.frames.assign(grid.Count(), 0);
  all.hidden.assign(grid.Count(), 0);
  std::vector<float> distance(grid.Count(), std::numeric_limits<float>::infinity());
  bool anyMask = false;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t k = 0; k < photos.size(); ++k) {
    const GroundPhoto& photo = photos[k];
    const ReportSpan span = CellsIn(grid, photo.ground);
    if (span.cols == 0 || !IsUsable(photo.camera)) continue;
    std::vector<std::uint8_t> flags;
    const bool masked = FlagCells(grid, heights, photo, span, flags);
    // Photos are added one at a time; the order does not show in the sums or, by the rule for ties,
    // in the choice.
#pragma omp critical(tqtortho_host_coverage)
    {
      anyMask = anyMask || masked;
      const std::uint8_t* flag = flags.data();
      for (int row = span.firstRow; row < span.firstRow + span.rows; ++row) {
        const double dy = grid.Y(row) - photo.camera.centre.y;
        for (int col = span.firstCol; col < span.firstCol + span.cols; ++col, ++flag) {
          if (*flag == 0) continue;
          const std::size_t i = grid.Index(row, col);
          all.frames[i] = OneMore(all.frames[i]);
          if ((*flag & kHidden) != 0) all.hidden[i] = OneMore(all.hidden[i]);
          const double dx = grid.X(col) - photo.camera.centre.x;
          const float d = NarrowToFloat(dx * dx + dy * dy);
          if (d < distance[i] || (d == distance[i] && photo.number < all.nearest[i])) {
            distance[i] = d;
            all.nearest[i] = static_cast<std::uint16_t>(photo.number);
          }
        }
      }
    }
  }
  if (!anyMask) all.hidden.clear();
  return all;
}

std::vector<std::uint8_t> DrawNearest(const ReportGrid& grid, const std::vector<float>& heights,
                                      const std::vector<GroundPhoto>& photos,
                                      std::vector<std::uint16_t>& nearest) {
  std::vector<std::uint8_t> colours(3 * grid.Count(), 0);
  std::vector<std::uint8_t> unreadable(photos.size(), 0);
  // Each cell belongs to one photo, so threads never meet.
#pragma omp parallel for schedule(dynamic)
  for (std::size_t k = 0; k < photos.size(); ++k) {
    const ReportSpan span = CellsIn(grid, photos[k].ground);
    if (span.cols > 0) unreadable[k] = !DrawOne(grid, heights, photos[k], span, nearest, colours);
  }
  for (std::size_t k = 0; k < photos.size(); ++k) {
    if (unreadable[k] == 0) continue;
    std::replace(nearest.begin(), nearest.end(), static_cast<std::uint16_t>(photos[k].number),
                 std::uint16_t{0});
  }
  return colours;
}

}  // namespace tqtortho::host
