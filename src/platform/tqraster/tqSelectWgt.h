// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tqfd/Export.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"

namespace TqRaster {

/// Weight masks: how far each cell of a photo's ortho lies from what the photo does not show.
///
/// A weight is a byte that grows with the distance to the nearest hidden cell or to the raster's
/// border, from 0 on a hidden cell to 255 at kReach cells and beyond, along a raised cosine, so
/// that blends have no visible edge at either end. Objects hold nothing; different ones may run at
/// once.
class TQTORTHO_API tqSelectWgt {
 public:
  /// Distance in cells from which on the weight is 255.
  static constexpr int kReach = 128;

  tqSelectWgt() = default;
  ~tqSelectWgt() = default;

  /// Prepares the table from distance to weight, once per process. CombinedWeight does so itself
  /// when nobody has; a stage calls this before its threads start.
  static void GenerateDisLookUpTab();

  /// Makes the weight mask of one photo.
  ///
  /// @param photo      not read: the weight depends on the mask alone
  /// @param occlusion  one band of bytes, any value but 0 is hidden
  /// @param weight     receives one band of bytes of the same size and ground rectangle
  /// @param step       distance is counted in 1/step of a reach: 2 reaches 255 in half of kReach
  /// @param floor      least weight of a cell that is not hidden
  /// @return false, `weight` unchanged, for a mask that is no one-band byte raster or a step
  /// below 1.
  bool CombinedWeight(tqorkit::tqExtOri& photo, tqorkit::PhotoInfo& occlusion,
                      tqorkit::PhotoInfo& weight, int step, int floor);
};

}  // namespace TqRaster
