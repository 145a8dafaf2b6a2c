// SPDX-License-Identifier: Apache-2.0
#include "internal/memory_raster.h"

#include <cpl_string.h>

#include <array>
#include <string>

namespace geo {

tqimage::DatasetPtr MemoryDataset(int width, int height) {
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("MEM");
  return tqimage::DatasetPtr(
      driver == nullptr ? nullptr : driver->Create("", width, height, 0, GDT_Byte, nullptr));
}

bool AddBand(GDALDataset& dataset, void* first, GDALDataType type, GSpacing pixel, GSpacing line) {
  char address[32] = {};
  const int length = CPLPrintPointer(address, first, static_cast<int>(sizeof(address)) - 1);
  CPLStringList options;
  options.SetNameValue("DATAPOINTER",
                       std::string(address, static_cast<std::size_t>(length)).c_str());
  options.SetNameValue("PIXELOFFSET", std::to_string(pixel).c_str());
  options.SetNameValue("LINEOFFSET", std::to_string(line).c_str());
  return dataset.AddBand(type, options.List()) == CE_None;
}

tqimage::DatasetPtr PictureView(const std::uint8_t* pixels, int width, int height, int bands) {
  constexpr std::array kColours = {GCI_RedBand, GCI_GreenBand, GCI_BlueBand, GCI_AlphaBand};
  tqimage::DatasetPtr view = MemoryDataset(width, height);
  for (int band = 0; view && band < bands; ++band) {
    // The memory driver only reads through this pointer here.
    auto* first = const_cast<std::uint8_t*>(pixels) + band;
    if (!AddBand(*view, first, GDT_Byte, bands, GSpacing{bands} * width)) return nullptr;
    view->GetRasterBand(band + 1)->SetColorInterpretation(
        bands == 1 ? GCI_GrayIndex : kColours[static_cast<std::size_t>(band)]);
  }
  return view;
}

}  // namespace geo
