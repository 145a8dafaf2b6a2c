// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/lens_fit.h"
#include "host/opensfm_file.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

// Whatever a reconstruction file holds: no crash, and what is accepted is usable. Poses are finite,
// and a converted camera keeps its promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tqtortho::host;
  std::string error;
  const auto file =
      ParseOpenSfm(std::string_view(reinterpret_cast<const char*>(data), size), error);
  Require(file.has_value() || !error.empty());
  if (!file) return 0;
  Require(!file->shots.empty());
  for (const OpenSfmShot& shot : file->shots) {
    const PhotoAngles angles = AnglesFromMatrix(CameraToGround(shot.rotation));
    Require(std::isfinite(angles.omega) && std::isfinite(angles.phi) &&
            std::isfinite(angles.kappa));
    for (const double c : shot.centre) Require(std::isfinite(c));
  }
  int converted = 0;
  for (const auto& [name, camera] : file->cameras) {
    if (!camera.fault.empty() || ++converted > 2) continue;
    const auto fit = FitLens(camera.lens, 1, error);
    if (!fit) continue;
    Require(fit->maxResidual <= kLensMaxResidual && fit->rmsResidual <= kLensRmsResidual);
    Require(fit->camera.width >= 1 && fit->camera.height > 0 && fit->camera.focalLength > 0);
  }
  return 0;
}
