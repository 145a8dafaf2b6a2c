// SPDX-License-Identifier: Apache-2.0
#include <sstream>
#include <vector>

#include "fuzz/require.h"
#include "importers/colmap_file.h"

namespace {

using namespace tqtortho::host;
using namespace tqtortho::fuzz;

void Cameras(std::istream& in, ColmapForm form) {
  std::map<std::string, SourceCamera> cameras;
  std::string error;
  const bool read = ReadColmapCameras(in, form, cameras, error);
  if (!read) return RequireReason(error);
  Require(!cameras.empty());
  RequireUsable(cameras);
}

void Photos(std::istream& in, ColmapForm form) {
  std::vector<ColmapPhoto> photos;
  std::string error;
  const bool read = ReadColmapPhotos(in, form, photos, error);
  Require(read ? !photos.empty() : !error.empty());
  for (std::size_t i = 0; read && i < photos.size(); ++i) {
    RequireFinite(photos[i].centre);
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
  const std::string_view rest = Text(data + 1, size - 1);
  const ColmapForm form = (data[0] & 1) != 0 ? ColmapForm::kBinary : ColmapForm::kText;
  if (data[0] % 8 == 4) {
    OpenSfmReconstruction place;
    if (!ParseOpenSfmReference(rest, place)) return 0;
    Require(place.hasReference && std::fabs(place.latitude) <= 90 && std::isfinite(place.altitude));
    return 0;
  }
  std::istringstream in{std::string(rest)};
  (data[0] & 2) != 0 ? Photos(in, form) : Cameras(in, form);
  return 0;
}
