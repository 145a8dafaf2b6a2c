// SPDX-License-Identifier: Apache-2.0
#include "fuzz/require.h"

using namespace tqtortho::host;
using namespace tqtortho::fuzz;

// Whatever a reconstruction file holds: no crash, and what is accepted is usable. Poses are finite,
// and a converted camera keeps its promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string error;
  const auto file = ParseOpenSfm(Text(data, size), error);
  Require(file.has_value() || !error.empty());
  if (!file) return 0;
  Require(!file->shots.empty());
  for (const OpenSfmShot& shot : file->shots) {
    const PhotoAngles angles = AnglesFromMatrix(CameraToGround(shot.rotation));
    RequireFinite(Vector3{angles.omega, angles.phi, angles.kappa});
    RequireFinite(shot.centre);
  }
  RequireUsable(file->cameras);
  return 0;
}
