// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "occlusion/tile_tracer.h"

namespace tqtortho {

/// Decides the wanted cells of `group` against `blockers`, eight rays at once, with the widest
/// vectors that the machine has. All of the group's rays must lie in the same quadrant of the
/// camera.
///
/// @param upperRight  the camera is right of and above the cells, where marches start at the
/// leaves'
///                    entries instead of the cells
void DecideLanes(const LaneScene& scene, const std::vector<Blocker>& blockers, bool upperRight,
                 LaneGroup& group);

}  // namespace tqtortho
