// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "visibility/step_surface.h"

namespace tqtortho {

/// Where a camera is above a surface: a fractional row and column of its cells, and a height.
struct CameraAbove {
  double row = 0;
  double col = 0;
  double z = 0;
};

/// Tells the quads of a surface that a camera surely sees whole from those that need a closer look:
/// 0 and 1, row-major, a byte for each quad.
///
/// On a smooth quad that faces the camera, the angle under which the surface stands grows with the
/// distance on every sight line's profile; so does it over any number of such quads in a row, and
/// none of them hides a point of the others. A profile can only begin to hide where it leaves a
/// quad that faces the camera: into one that turns away, at a wall or where the surface ends. From
/// each such quad on, everything below the sight line over its highest point is closed as well,
/// away from the camera, until the line has passed below the lowest ground.
///
/// So whatever hides a point of a profile lies in the same unbroken row of closed quads as the
/// point. Where the camera is not above the whole surface, all quads are closed.
///
/// Linear in quads and in the area of shadows. Throws std::bad_alloc.
[[nodiscard]] std::vector<std::uint8_t> FindClosedQuads(const StepSurface& surface,
                                                        const CameraAbove& camera);

}  // namespace tqtortho
