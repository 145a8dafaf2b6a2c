// SPDX-License-Identifier: Apache-2.0
#include "geo/ImageCodec.h"

#include <cpl_conv.h>
#include <cpl_string.h>

#include "internal/memory_raster.h"
#include "internal/staged_path.h"

namespace geo {

std::string EncodeJpeg(const std::uint8_t* pixels, int width, int height, int bands, int quality) {
  if (pixels == nullptr || width <= 0 || height <= 0 || (bands != 1 && bands != 3)) return {};
  tqimage::GdalScope scope;
  const tqimage::ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("JPEG");
  const tqimage::DatasetPtr view = PictureView(pixels, width, height, bands);
  if (driver == nullptr || !view) return {};
  const std::string path = tqtortho::StagedPath("/vsimem/picture.jpg");
  CPLStringList options;
  options.SetNameValue("QUALITY", std::to_string(quality).c_str());
  tqimage::DatasetPtr copy(
      driver->CreateCopy(path.c_str(), view.get(), 1, options.List(), nullptr, nullptr));
  const bool written = copy && tqimage::CloseChecked(std::move(copy)) && !scope.Failed();
  std::string bytes;
  vsi_l_offset count = 0;
  const GByte* data = VSIGetMemFileBuffer(path.c_str(), &count, FALSE);
  if (written && data != nullptr) {
    bytes.assign(reinterpret_cast<const char*>(data), static_cast<std::size_t>(count));
  }
  VSIUnlink(path.c_str());
  return bytes;
}

std::string Deflate(const void* bytes, std::size_t count) {
  std::size_t length = 0;
  void* made = CPLZLibDeflate(bytes, count, 9, nullptr, 0, &length);
  if (made == nullptr) return {};
  std::string stream(static_cast<const char*>(made), length);
  VSIFree(made);
  return stream;
}

}  // namespace geo
