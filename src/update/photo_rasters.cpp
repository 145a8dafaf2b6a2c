// SPDX-License-Identifier: Apache-2.0
#include "update/photo_rasters.h"

#include "tqimage/TqImage.h"

namespace tqtortho {

using tqimage::TqImage;

bool ReadOrtho(const std::string& path, tqorkit::PhotoInfo& ortho, tqimage::GeoCoefficients& geo) {
  return TqImage::QuickReadImage(path, ortho, &geo) && ortho.dataType == tqimage::kByte;
}

bool ReadMask(const std::string& path, tqorkit::PhotoInfo& mask) {
  return TqImage::QuickReadImage(path, mask, nullptr) && mask.dataType == tqimage::kByte &&
         mask.bands == 1;
}

}  // namespace tqtortho
