// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "walls/wall_evidence.h"
#include "walls/wall_prior.h"

namespace tqtortho {

struct WallCutOptions {
  float agreement = 3;      ///< see SpreadOfAgreement
  float photoWeight = 3;    ///< of photos that are sure, against the prior's log odds
  float edgeWeight = 1.2F;  ///< of a wall's length, for each cell of it
};

/// Decides the side of each cell by a smallest cut: photos, the prior, and a short wall, which
/// prefers to follow what the photos see as a colour edge.
///
/// @param part  surface on half cells; beyond the zone it says what the zone's border belongs to
/// @return 1 for each cell on the upper side
[[nodiscard]] std::vector<std::uint8_t> CutWalls(GridView<const float> part,
                                                 const std::vector<WallCell>& cells,
                                                 const WallPrior& prior,
                                                 const WallCutOptions& options);

}  // namespace tqtortho
