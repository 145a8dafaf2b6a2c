// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "occlusion/tile_tracer.h"

namespace tqtortho {

/// Decides the wanted cells of `group` against `blockers`, eight rays at once, with the widest
/// vectors that the machine has. All of the group's rays must lie in the same quadrant of the
/// camera.
void DecideLanes(const LaneScene& scene, const std::vector<Blocker>& blockers, LaneGroup& group);

}  // namespace tqtortho
