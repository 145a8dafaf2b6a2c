// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "walls/wall_evidence.h"
#include "walls/wall_prior.h"

namespace tqtortho {

/// Takes back what a cut moved against the prior without the photos' agreement.
///
/// Pieces of connected cells that lie on another side than the prior says stay only when the photos
/// favour it on average; a piece that only a short wall or a few cells' noise has moved, as beside
/// trees and where hardly any photo looks, goes back.
///
/// @param isUpper  one side for each cell, in and out
/// @return cells that went back
std::int64_t TakeBackUnsupported(GridView<const float> part, const std::vector<WallCell>& cells,
                                 const WallPrior& prior, float agreement,
                                 std::vector<std::uint8_t>& isUpper);

}  // namespace tqtortho
