// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/colmap_file.h"
#include "host/lens_fit.h"
#include "host/opensfm_file.h"

namespace {

using namespace tqtortho::host;

void Require(bool holds) {
  if (!holds) std::abort();
}

void Cameras(std::istream& in, ColmapForm form) {
  std::map<std::string, SourceCamera> cameras;
  std::string error;
  const bool read = ReadColmapCameras(in, form, cameras, error);
  Require(read ? !cameras.empty() : !error.empty());
  Require(error.find('\n') == std::string::npos);
  int converted = 0;
  for (const auto& [name, camera] : cameras) {
    if (!read || !camera.fault.empty() || ++converted > 2) continue;
    const auto fit = FitLens(camera.lens, 1, error);
    Require(!fit || fit->maxResidual <= kLensMaxResidual);
  }
}

void Photos(std::istream& in, ColmapForm form) {
  std::vector<ColmapPhoto> photos;
  std::string error;
  const bool read = ReadColmapPhotos(in, form, photos, error);
  Require(read ? !photos.empty() : !error.empty());
  for (std::size_t i = 0; read && i < photos.size(); ++i) {
    for (const double c : photos[i].centre) Require(std::isfinite(c));
    for (const double r : photos[i].rotation) Require(std::fabs(r) <= 1.001);
    Require(!photos[i].name.empty() && (i == 0 || photos[i - 1].name < photos[i].name));
  }
}

}  // namespace

// The first byte chooses: a model's cameras or photos, as text or binary, or the reference that
// stands beside a reconstruction. No crash, no memory that a file merely claims, and what is
// accepted is finite.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const ColmapForm form = (data[0] & 1) != 0 ? ColmapForm::kBinary : ColmapForm::kText;
  if (data[0] % 8 == 4) {
    OpenSfmReconstruction place;
    if (!ParseOpenSfmReference(rest, place)) return 0;
    Require(place.hasReference && std::fabs(place.latitude) <= 90 && std::isfinite(place.altitude));
    return 0;
  }
  std::istringstream in{std::string(rest)};
  if ((data[0] & 2) != 0) {
    Photos(in, form);
  } else {
    Cameras(in, form);
  }
  return 0;
}
