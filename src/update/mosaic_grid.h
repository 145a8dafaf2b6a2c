// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Where a photo stands in the job: x = block index, y = index in the block.
using PhotoRef = tqfd::Point2_T<int>;
using GroundRect = tqfd::Rect2_T<double>;

/// A photo with the ground that its ortho covers, first to last cell centre.
struct PlacedPhoto {
  PhotoRef photo;
  GroundRect rect;
};

/// The photos whose footprint is finite and has an area, in job order. Photos that failed have none
/// and take no part in the mosaic: a rectangle at (0, 0) would stretch it to the map's origin.
[[nodiscard]] std::vector<PlacedPhoto> PlacedPhotos(
    const std::vector<tqorkit::tqPhotoCategory>& blocks);
/// Number of photos in all blocks.
[[nodiscard]] int CountPhotos(const std::vector<tqorkit::tqPhotoCategory>& blocks);
/// Number of a photo in maps of photos: 1-based over the blocks in job order; 0 = no photo.
[[nodiscard]] int GlobalPhotoNumber(const std::vector<tqorkit::tqPhotoCategory>& blocks,
                                    PhotoRef photo);

/// Bounding rectangle of all footprints; the empty rectangle without photos.
[[nodiscard]] GroundRect GlobalRectangle(const std::vector<PlacedPhoto>& photos);

/// Rows of a full strip. One strip of the photo map at a time is in memory.
inline constexpr int kStripRows = 5000;
/// Strips of a mosaic of `rows` rows. The last one takes the rest: up to 4,989 rows more than
/// kStripRows; a rest is a strip of its own from 4,990 rows on.
[[nodiscard]] std::int64_t StripCount(std::int64_t rows);

/// Horizontal bands of the mosaic, from south to north, with their photos.
struct MosaicStrips {
  /// Bounding rectangle of the strip's photos, which may reach beyond the band; the empty rectangle
  /// when it has none.
  std::vector<GroundRect> rects;
  std::vector<std::vector<PhotoRef>> photos;  ///< parallel to rects
};
/// Gives every photo to the first strip that holds more than half of its area.
///
/// Kept: a photo that no strip holds by more than half, exactly halved by two for instance, is in
/// none, so that no strip updates it.
///
/// @param resolution  positive
[[nodiscard]] MosaicStrips CutStrips(const GroundRect& global, double resolution,
                                     const std::vector<PlacedPhoto>& photos);

/// How a mosaic is cut into regions that fit the budget of one three-band image in memory.
struct RegionPlan {
  std::int64_t rowsPerRegion = 0;
  std::int64_t count = 0;
};
/// Rows that do not fill a region join the last one.
[[nodiscard]] RegionPlan PlanRegions(std::int64_t rows, std::int64_t cols);
/// Bands of at most about 1e9 bytes of three-band image, from north to south. Every photo goes to
/// the first region that it overlaps; rectangles are then the bounding rectangles of their photos
/// (empty without any).
///
/// @param rows, cols  size of the mosaic in cells, with its margin
/// @param byRegion  keys 0 .. count - 1 are set; others stay as they are
void CutRegions(const GroundRect& global, double resolution, std::int64_t rows, std::int64_t cols,
                const std::vector<PlacedPhoto>& photos, std::vector<GroundRect>& regions,
                std::map<std::uint64_t, std::vector<PhotoRef>>& byRegion);

/// Georeference of the mosaic, from the centre of its north-western cell, with its size; default
/// coefficients when a resolution is unset (below 1e-5 in magnitude). `resY` is negative.
[[nodiscard]] tqimage::GeoCoefficients MosaicGeoreference(const GroundRect& global, double resX,
                                                          double resY);

/// For each photo, by its index, the others that cover more than 30 % of its own area. A photo
/// without any has no entry.
///
/// Kept: not symmetric. A small photo inside a big one names the big one, seldom the other way.
[[nodiscard]] std::map<std::size_t, std::vector<std::size_t>> OverlapTable(
    const std::vector<GroundRect>& footprints);

}  // namespace tqtortho
