// SPDX-License-Identifier: Apache-2.0
#include "rectify/sight_masks.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "camera/photo_camera.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "visibility/photo_visibility.h"

namespace tqtortho {

bool SightMasks::Make(const tqorkit::tqIntOri& camera, const tqorkit::tqExtOri& photo,
                      const std::string& dsmPath, const tqorkit::PhotoInfo& ortho,
                      const tqimage::GeoCoefficients& place, const std::string& maskName) {
  constexpr std::uint8_t kSeen = 0;
  constexpr std::uint8_t kHidden = 255;
  constexpr std::uint8_t kUnknown = 128;
  VisibilityOptions options;
  options.seen = kSeen;
  options.hidden = kHidden;
  options.outside = options.noHeight = kUnknown;
  std::vector<std::uint8_t> mask;
  int cols = 0;
  int rows = 0;
  if (!JudgeVisibility(CameraOf(camera, photo), dsmPath, photo.GetGeoRect(), photo.GetGSD().x,
                       options, mask, cols, rows) ||
      cols != ortho.width || rows != ortho.height) {
    return false;
  }
  const auto bands = static_cast<std::ptrdiff_t>(ortho.bands);
  const std::uint8_t* pixel = ortho.data.data();
  for (std::uint8_t& cell : mask) {
    if (cell == kUnknown) {
      const bool empty = std::all_of(pixel, pixel + bands, [](std::uint8_t v) { return v == 0; });
      cell = empty ? kSeen : kHidden;
    }
    pixel += bands;
  }
  return tqorkit::TqFSManager::SaveImageFile(mask.data(), cols, rows, 1, maskName, true, &place);
}

}  // namespace tqtortho
