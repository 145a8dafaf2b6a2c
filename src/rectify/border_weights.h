// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tqorkit/PhotoInfo.h"

namespace tqtortho {

/// Cells beyond the border that still carry a weight.
inline constexpr int kBorderFeather = 3;

/// The weights that tell RefineTOR where to smooth an ortho image: 255 in cells whose nearest cell
/// of the job's border mask is a border, then 191, 127 and 63 in the rings of cells around
/// (distance in king's moves), 0 elsewhere.
///
/// Borders are the cells of value kBorderLine; where the mask marks none of those, the kTallBorder
/// cells, unless they cover half of the ground and more.
///
/// The mask lies on the ortho's lattice and reaches kBorderFeather cells beyond it on every side,
/// so that borders just outside have their effect. It is empty (no columns) when there is no border
/// mask or no tall border near.
[[nodiscard]] tqorkit::PhotoInfo MakeBorderWeights(const tqorkit::PhotoInfo& ortho);

}  // namespace tqtortho
