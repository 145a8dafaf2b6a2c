// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tqtortho::host {

/// What is done to walls that a surface model draws as ramps or in the wrong place.
enum class Walls {
  kKeep,     ///< nothing: the surface as it is
  kSurface,  ///< upright at half their height
  kPhotos,   ///< upright where the photos agree best
};

}  // namespace tqtortho::host
