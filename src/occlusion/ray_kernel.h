// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/stop_flag.h"
#include "occlusion/ray_surface.h"

namespace tqtortho {

/// Marks the cells whose straight line to the camera is blocked by higher surface on its way.
///
/// @param surface  heights with box and cell sizes; see RaySurface for the frame
/// @param camera   projection centre in the local frame
/// @param examine  bytes of the surface's size, 0 = leave the cell out; an empty view examines all
/// @param hidden   bytes of the surface's size; receives 255 hidden, 0 seen or not examined. Cells
///                 without data are never hidden, but block rays when they are high.
///
/// @param stop     polled by every thread, once a row or some tiles; null: nobody asks. A call that
/// was
///                 asked to stop throws WorkStopped.
///
/// A surface without extent in one of the three axes (flat, one row, one column, no data) hides
/// nothing. Rows are shared out to idle threads; inside somebody else's parallel loop the call
/// stays on its thread. The result does not depend on the number of threads.
///
/// The environment variable TQTORTHO_KERNEL selects another way to the same bytes: "scalar" is the
/// plain march, "baseline", "avx2" and "avx512" the fast kernel with these vectors (where the
/// machine has them; the default is the widest).
void MarkHiddenCells(const RaySurface& surface, const Point3& camera,
                     GridView<const std::uint8_t> examine, GridView<std::uint8_t> hidden,
                     const StopFlag* stop = nullptr);

}  // namespace tqtortho
