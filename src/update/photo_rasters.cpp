// SPDX-License-Identifier: Apache-2.0
#include "update/photo_rasters.h"

#include "stage/messages.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"

namespace tqtortho {

using tqimage::TqImage;

bool ReadOrtho(const std::string& path, tqorkit::PhotoInfo& ortho, tqimage::GeoCoefficients& geo) {
  return TqImage::QuickReadImage(path, ortho, &geo) && ortho.dataType == tqimage::kByte;
}

std::optional<std::string> OrthoProjection(const std::vector<tqorkit::tqPhotoCategory>& blocks,
                                           const std::string& orthoDir) {
  std::string first;
  for (const auto& block : blocks) {
    for (const auto& photo : block.GetPhotos()) {
      const std::string name = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
      TqImage ortho;
      if (!name.empty() && ortho.Open(name, true)) {
        return ortho.GetGeoCoefficients().GetProjection();
      }
      if (first.empty()) first = name;
    }
  }
  LogMessage(std::string(message::kNoOrthoReadable) + first);
  return {};
}

bool ReadMask(const std::string& path, tqorkit::PhotoInfo& mask) {
  return TqImage::QuickReadImage(path, mask, nullptr) && mask.dataType == tqimage::kByte &&
         mask.bands == 1;
}

}  // namespace tqtortho
