// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tqtortho::host {

/// A synthetic town whose surface is known exactly.
struct SampleOptions {
  std::string outDir;
  std::uint32_t seed = 1;
  double sizeM = 100;       ///< side of the square town in metres, 20 to 2000
  int photoCount = 9;       ///< 1 to 400, flown in strips
  double dsmCellM = 0.25;   ///< 0.02 to 5
  double photoGsdM = 0.1;   ///< of the photos on the ground, 0.01 to 1
  double truthCellM = 0.1;  ///< 0.02 to 5
  int lensModel = 1;        ///< 0, 1 or 3
  double attitudeDeg = 2;   ///< random tilt of the photos, up to this in omega and phi, 0 to 15
};

/// Writes dsm.tif, photos/, cameras.txt, photos.txt and truth/ (ortho.tif, height.tif, class.tif,
/// visibility/<photo>.tif: 255 hidden, 0 seen, 128 outside the frame; scene.json) into outDir. The
/// same options give the same bytes. `progress` (0 to 1) may be empty; its false stops the work.
/// @return false, with one line in `error`.
bool WriteSampleTown(const SampleOptions& options, std::string& error,
                     const std::function<bool(double)>& progress);

}  // namespace tqtortho::host
