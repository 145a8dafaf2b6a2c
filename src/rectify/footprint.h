// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera/camera_model.h"
#include "rectify/surface_tile.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

/// Steps of one corner's search for its own height before it takes the default height.
inline constexpr int kFootprintStepLimit = 100;
/// Height change, in ground units, at which a corner counts as found.
inline constexpr double kFootprintSettled = 0.01;

/// Ground box of a photo: its four corner rays met with the surface.
///
/// The rays are followed one after the other, in the ring order (0, 0), (0, rows), (cols, rows),
/// (cols, 0), by repeated intersection with the plane of the height found below the last point.
/// Points beyond the tile take the height of its nearest cell.
///
/// @param photoCols, photoRows  size of the photo raster
/// @param startHeight           first height of the search
/// @return the box without a margin, or the empty (inverted) rectangle when the projection centre
///         does not lie inside the four ground corners, as with oblique photos.
[[nodiscard]] tqfd::Rect2_T<double> GroundFootprint(const PhotoCamera& camera,
                                                    const SurfaceTile& tile, int photoCols,
                                                    int photoRows, double startHeight);

}  // namespace tqtortho
