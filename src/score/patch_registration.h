// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/grid_view.h"

namespace tqtortho::host {

/// Displacement of one patch against another: product(x + dx, y + dy) shows what reference(x, y)
/// shows.
struct PatchShift {
  double dx = 0;
  double dy = 0;
};

/// Registers two patches of the same size (at least 16 x 16 cells, grey values).
///
/// Phase correlation finds the whole cells, a least-squares fit of shift, gain and offset on
/// bicubic samples the fraction (about 0.01 cell on textured patches of 40 cells). Brightness and
/// contrast may differ between the two.
///
/// @return false when a patch is too plain, the fit does not settle, the shift exceeds a quarter of
///         the patch, or the aligned patches do not look alike (correlation below 0.8).
[[nodiscard]] bool RegisterPatch(GridView<const float> reference, GridView<const float> product,
                                 PatchShift& shift);

}  // namespace tqtortho::host
