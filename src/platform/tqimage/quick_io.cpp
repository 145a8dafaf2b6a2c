// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "core/memory_faults.h"
#include "internal/gdal_raster.h"
#include "internal/interleaved_writer.h"
#include "tqimage/TqImage.h"

namespace tqimage {
namespace {

/// Bands of a raster as a caller sees them: a palette counts as its three colours.
struct BandChoice {
  bool palette = false;
  int first = 0;
  int count = 0;
  int dataType = 0;
};

bool ChooseBands(GDALDataset& dataset, int firstBand, const int* bandCount, BandChoice& choice) {
  GDALRasterBand* head = dataset.GetRasterBand(1);
  choice.palette = dataset.GetRasterCount() == 1 && head->GetRasterDataType() == GDT_Byte &&
                   head->GetColorTable() != nullptr;
  const int available = choice.palette ? 3 : dataset.GetRasterCount();
  if (firstBand < 0 || firstBand >= available) return false;
  choice.first = firstBand;
  choice.count = available - firstBand;
  if (bandCount != nullptr && *bandCount > 0) choice.count = std::min(choice.count, *bandCount);

  GDALRasterBand* band = dataset.GetRasterBand(choice.palette ? 1 : firstBand + 1);
  choice.dataType = FromGdalType(band->GetRasterDataType());
  if (choice.dataType == kFloat32 || choice.dataType == kFloat64) {
    choice.dataType = kFloat32;
    choice.count = 1;
  }
  return choice.dataType != 0;
}

bool ReadPalette(GDALDataset& dataset, const BandChoice& choice, std::vector<std::uint8_t>& data) {
  GDALRasterBand* band = dataset.GetRasterBand(1);
  const int width = band->GetXSize();
  const int height = band->GetYSize();
  const std::size_t cells = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::vector<std::uint8_t> indices(cells);
  if (!TransferStrips(*band, GF_Read, 0, 0, width, height, indices.data(), GDT_Byte, width)) {
    return false;
  }
  std::array<std::array<std::uint8_t, 3>, 256> colours{};
  const GDALColorTable* table = band->GetColorTable();
  for (int i = 0; i < std::min(256, table->GetColorEntryCount()); ++i) {
    GDALColorEntry entry;
    table->GetColorEntryAsRGB(i, &entry);
    colours[static_cast<std::size_t>(i)] = {static_cast<std::uint8_t>(entry.c1),
                                            static_cast<std::uint8_t>(entry.c2),
                                            static_cast<std::uint8_t>(entry.c3)};
  }
  std::uint8_t* out = data.data();
  for (const std::uint8_t index : indices) {
    const auto& colour = colours[index];
    for (int channel = choice.first; channel < choice.first + choice.count; ++channel) {
      *out++ = colour[static_cast<std::size_t>(channel)];
    }
  }
  return true;
}

bool ReadBands(GDALDataset& dataset, const BandChoice& choice, std::vector<std::uint8_t>& data) {
  const int width = dataset.GetRasterXSize();
  const int height = dataset.GetRasterYSize();
  std::vector<int> bandNumbers(static_cast<std::size_t>(choice.count));
  std::iota(bandNumbers.begin(), bandNumbers.end(), choice.first + 1);
  const auto sample = static_cast<GSpacing>(SampleSize(choice.dataType));
  const GSpacing pixel = sample * choice.count;
  // Whole rows of all bands: decoders of interleaved files write straight into them.
  return TransferStrips(dataset, GF_Read, 0, 0, width, height, data.data(),
                        ToGdalType(choice.dataType), choice.count, bandNumbers.data(), pixel,
                        pixel * width, sample);
}

bool ReadInto(GDALDataset& dataset, const BandChoice& choice, tqorkit::PhotoInfo& image) {
  image = {};
  image.width = dataset.GetRasterXSize();
  image.height = dataset.GetRasterYSize();
  image.bands = choice.count;
  image.dataType = choice.dataType;
  const std::size_t sample = SampleSize(choice.dataType);
  if (!FitsInMemory(image.width, image.height, image.bands, sample)) return false;
  image.data.resize(static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) *
                    static_cast<std::size_t>(image.bands) * sample);

  GdalScope scope;
  const bool read = choice.palette ? ReadPalette(dataset, choice, image.data)
                                   : ReadBands(dataset, choice, image.data);
  if (!read || scope.Failed()) return false;
  const NoDataRule rule =
      ReadNoDataRule(*dataset.GetRasterBand(choice.palette ? 1 : choice.first + 1));
  image.noData = rule.value;
  if (choice.dataType == kFloat32) {
    NormaliseHeights(rule, reinterpret_cast<float*>(image.data.data()),
                     image.data.size() / sizeof(float));
  }
  return true;
}

}  // namespace

bool TqImage::QuickReadImage(const std::string& path, tqorkit::PhotoInfo& image,
                             GeoCoefficients* coefficients, int firstBand, int* bandCount) {
  const GdalScope scope;
  const DatasetPtr dataset = OpenRaster(path, false);
  BandChoice choice;
  if (!dataset || !ChooseBands(*dataset, firstBand, bandCount, choice)) return false;
  try {
    if (!ReadInto(*dataset, choice, image)) return false;
  } catch (const std::bad_alloc&) {
    tqtortho::NoteMemoryFault();
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  const GeoCoefficients geo = ReadGeoreference(*dataset);
  const auto first = geo.GetOrigin();
  const auto last = geo.Raster2World(image.width - 1, image.height - 1);
  image.geoRect[0] = first.x;
  image.geoRect[1] = last.y;
  image.geoRect[2] = last.x;
  image.geoRect[3] = first.y;
  image.resX = geo.GetResolution().x;
  image.resY = geo.GetResolution().y;
  if (coefficients != nullptr) *coefficients = geo;
  if (bandCount != nullptr) *bandCount = choice.count;
  return true;
}

bool TqImage::QuickWriteImage(const std::string& path, const tqorkit::PhotoInfo& image,
                              const GeoCoefficients* coefficients, bool overwrite) {
  InterleavedRaster raster;
  raster.data = image.data.data();
  raster.width = image.width;
  raster.height = image.height;
  raster.bands = image.bands;
  raster.dataType = image.dataType == 0 ? int{kByte} : image.dataType;
  raster.hasNoData =
      (raster.dataType == kFloat32 || raster.dataType == kFloat64) && image.noData != 0;
  raster.noData = image.noData;
  const std::size_t sample = SampleSize(raster.dataType);
  if (!FitsInMemory(image.width, image.height, image.bands, sample)) return false;
  const std::size_t needed = static_cast<std::size_t>(image.width) *
                             static_cast<std::size_t>(image.height) *
                             static_cast<std::size_t>(image.bands) * sample;
  return image.data.size() >= needed && WriteInterleaved(path, raster, coefficients, overwrite);
}

bool WriteInterleaved(const std::string& path, const InterleavedRaster& raster,
                      const GeoCoefficients* coefficients, bool overwrite) {
  const std::size_t sampleSize = SampleSize(raster.dataType);
  if (raster.data == nullptr ||
      !FitsInMemory(raster.width, raster.height, raster.bands, sampleSize)) {
    return false;
  }
  GdalScope scope;
  StagedRaster file;
  if (!file.Start(path, raster.width, raster.height, raster.bands, raster.dataType, overwrite)) {
    return false;
  }
  GDALDataset& dataset = *file.Dataset();
  if (coefficients != nullptr && !WriteGeoreference(dataset, *coefficients)) return false;
  if (raster.hasNoData && dataset.GetRasterBand(1)->SetNoDataValue(raster.noData) != CE_None) {
    return false;
  }
  if (raster.description != nullptr) {
    dataset.SetMetadataItem("TIFFTAG_IMAGEDESCRIPTION", raster.description);
  }
  const auto sample = static_cast<GSpacing>(sampleSize);
  const GSpacing pixel = sample * raster.bands;
  if (!TransferStrips(dataset, GF_Write, 0, 0, raster.width, raster.height,
                      const_cast<void*>(raster.data), ToGdalType(raster.dataType), raster.bands,
                      nullptr, pixel, pixel * raster.width, sample) ||
      scope.Failed()) {
    return false;
  }
  return file.Finish();
}

}  // namespace tqimage
