// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tqfd/Export.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"

namespace TqRaster {

/// Weight masks: how well a photo shows each cell of its ortho.
///
/// A cell that the photo does not show weighs 0. One that it shows weighs
///
///     max(1, least, round(255 * ramp(d / kReach) * cos(theta)^nadirPower))
///
/// where d is the distance in cells to the nearest cell that is not shown or to the raster's
/// border, whichever is nearer; ramp(t) = (1 - cos(pi * min(t, 1))) / 2 rises from 0 to 1 without a
/// kink at either end, so that blends show no edge; and theta is the nadir angle under which the
/// projection centre sees the cell. Objects hold nothing; different ones may run at once.
class TQTORTHO_API tqSelectWgt {
 public:
  /// Distance in cells from which on it takes nothing off the weight.
  static constexpr int kReach = 64;

  tqSelectWgt() = default;
  ~tqSelectWgt() = default;

  /// Prepares the table from distance to weight, once per process. CombinedWeight does so itself
  /// when nobody has; a stage calls this before its threads start.
  static void GenerateDisLookUpTab();

  /// Makes the weight mask of one photo.
  ///
  /// @param photo       its projection centre is used
  /// @param occlusion   one band of bytes, 0 = shown; any other value, hidden cells and cells
  ///                    without data alike, is not. The ground rectangle (first to last cell
  ///                    centre) and the cell sizes place the cells; defaultZ is the height of the
  ///                    ground they lie on. Where these do not put the ground below the projection
  ///                    centre (cell sizes of 0, a NaN height) the weight rests on distances alone.
  /// @param weight      receives one band of bytes of the same size and ground rectangle; may be
  ///                    the same record as `occlusion`
  /// @param nadirPower  how strongly weights fall away from the nadir; 0: not at all. 2 follows the
  ///                    square of the slant distance, that is the ground a pixel covers.
  /// @param least       least weight of a shown cell, at most 255. 0 and 1 mean the same: a shown
  ///                    cell never weighs 0, so that 0 stays the mark of the others.
  /// @return false, `weight` unchanged, for a mask that is no one-band byte raster or a negative
  ///         power.
  ///
  /// Cost: one exact distance transform, linear in the cells; 5 bytes per cell beside the masks.
  bool CombinedWeight(tqorkit::tqExtOri& photo, tqorkit::PhotoInfo& occlusion,
                      tqorkit::PhotoInfo& weight, int nadirPower, int least);
};

}  // namespace TqRaster
