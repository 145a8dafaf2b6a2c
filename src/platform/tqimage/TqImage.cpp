// SPDX-License-Identifier: Apache-2.0
#include "tqimage/TqImage.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "core/memory_faults.h"
#include "core/numeric.h"
#include "internal/gdal_raster.h"

namespace tqimage {
namespace {

/// Converts `value` to the sample type of `row` and writes it over `count` samples.
void FillSamples(double value, GDALDataType type, std::uint8_t* row, std::int64_t count) {
  const int size = GDALGetDataTypeSizeBytes(type);
  GDALCopyWords64(&value, GDT_Float64, 0, row, type, size, count);
}

struct Span {
  int first = 0;
  int last = 0;  ///< exclusive
  [[nodiscard]] std::int64_t Size() const { return std::int64_t{last} - first; }
};

}  // namespace

struct TqImage::Impl {
  DatasetPtr opened;     ///< an existing file
  StagedRaster created;  ///< or a new one
  bool writable = false;
  bool failed = false;  ///< something could not be written

  [[nodiscard]] GDALDataset* Dataset() const { return opened ? opened.get() : created.Dataset(); }
  [[nodiscard]] GDALRasterBand* Band(int band) const {
    GDALDataset* dataset = Dataset();
    if (dataset == nullptr || band < 0 || band >= dataset->GetRasterCount()) return nullptr;
    return dataset->GetRasterBand(band + 1);
  }
};

TqImage::TqImage() : impl_(std::make_unique<Impl>()) {}

TqImage::~TqImage() {
  if (!impl_->opened) return;
  const GdalScope scope;
  impl_->opened.reset();
}

bool TqImage::Open(const std::string& path, bool readOnly) {
  const GdalScope scope;
  impl_ = std::make_unique<Impl>();
  impl_->opened = OpenRaster(path, !readOnly);
  impl_->writable = !readOnly;
  return impl_->opened != nullptr;
}

bool TqImage::Create(const std::string& path, int width, int height, int bands, int dataType,
                     int driverType, bool overwrite) {
  const GdalScope scope;
  impl_ = std::make_unique<Impl>();
  if (driverType != kGeoTiff) return false;
  impl_->writable = impl_->created.Start(path, width, height, bands, dataType, overwrite);
  return impl_->writable;
}

bool TqImage::Close() {
  const std::unique_ptr<Impl> ended = std::exchange(impl_, std::make_unique<Impl>());
  if (ended->Dataset() == nullptr) return false;
  if (ended->failed) {
    if (ended->opened) CloseChecked(std::move(ended->opened));
    return false;  // a new file that lacks cells is discarded with `ended`
  }
  if (!ended->opened) return ended->created.Finish();
  return CloseChecked(std::move(ended->opened)) || !ended->writable;
}

int TqImage::GetWidth() const { return impl_->Dataset() ? impl_->Dataset()->GetRasterXSize() : 0; }

int TqImage::GetHeight() const { return impl_->Dataset() ? impl_->Dataset()->GetRasterYSize() : 0; }

int TqImage::GetBandCount() const {
  return impl_->Dataset() ? impl_->Dataset()->GetRasterCount() : 0;
}

int TqImage::GetDataType() const {
  GDALRasterBand* band = impl_->Band(0);
  return band ? FromGdalType(band->GetRasterDataType()) : 0;
}

GeoCoefficients TqImage::GetGeoCoefficients() const {
  if (impl_->Dataset() == nullptr) return {};
  const GdalScope scope;
  return ReadGeoreference(*impl_->Dataset());
}

bool TqImage::HasGeoreference() const {
  if (impl_->Dataset() == nullptr) return false;
  const GdalScope scope;
  double transform[6];
  return impl_->Dataset()->GetGeoTransform(transform) == CE_None;
}

bool TqImage::SetGeoCoefficients(const GeoCoefficients& coefficients) {
  if (!impl_->writable || impl_->Dataset() == nullptr) return false;
  const GdalScope scope;
  return WriteGeoreference(*impl_->Dataset(), coefficients) && !scope.Failed();
}

double TqImage::GetNoDataValue(int band) const {
  GDALRasterBand* source = impl_->Band(band);
  if (source == nullptr) return 0;
  const GdalScope scope;
  return ReadNoDataRule(*source).value;
}

bool TqImage::HasNoDataValue(int band) const {
  GDALRasterBand* source = impl_->Band(band);
  if (source == nullptr) return false;
  const GdalScope scope;
  return ReadNoDataRule(*source).named;
}

bool TqImage::SetNoDataValue(int band, double value) {
  GDALRasterBand* target = impl_->Band(band);
  if (target == nullptr || !impl_->writable) return false;
  const GdalScope scope;
  return target->SetNoDataValue(value) == CE_None;
}

bool TqImage::ReadImage(int band, const tqfd::Rect2_T<int>& rect, int dataType,
                        void* buffer) const {
  GDALRasterBand* source = impl_->Band(band);
  const GDALDataType type = ToGdalType(dataType);
  if (source == nullptr || type == GDT_Unknown || buffer == nullptr) return false;
  const Span cols{rect.minX, rect.maxX};
  const Span rows{rect.minY, rect.maxY};
  if (cols.Size() <= 0 || rows.Size() <= 0) return false;

  const GdalScope scope;
  const NoDataRule rule = ReadNoDataRule(*source);
  auto* cells = static_cast<std::uint8_t*>(buffer);
  const std::int64_t sample = GDALGetDataTypeSizeBytes(type);
  const std::int64_t line = cols.Size() * sample;
  const Span innerCols{std::max(cols.first, 0), std::min(cols.last, source->GetXSize())};
  const Span innerRows{std::max(rows.first, 0), std::min(rows.last, source->GetYSize())};
  const bool meets = innerCols.Size() > 0 && innerRows.Size() > 0;

  for (std::int64_t row = rows.first; row < rows.last; ++row) {
    std::uint8_t* start = cells + (row - rows.first) * line;
    if (!meets || row < innerRows.first || row >= innerRows.last) {
      FillSamples(rule.outside, type, start, cols.Size());
      continue;
    }
    const std::int64_t before = std::int64_t{innerCols.first} - cols.first;
    FillSamples(rule.outside, type, start, before);
    FillSamples(rule.outside, type, start + (before + innerCols.Size()) * sample,
                std::int64_t{cols.last} - innerCols.last);
  }
  if (!meets) return true;

  const int width = static_cast<int>(innerCols.Size());
  const int height = static_cast<int>(innerRows.Size());
  // Heights become clean in floating point first; a narrower type is derived from clean ones.
  const bool viaFloat = rule.floating && type != GDT_Float32 && type != GDT_Float64;
  std::vector<float> clean;
  if (viaFloat) {
    if (!FitsInMemory(width, height, 1, sizeof(float))) return false;
    try {
      clean.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    } catch (const std::bad_alloc&) {
      tqtortho::NoteMemoryFault();
      return false;
    }
  }
  std::uint8_t* inner = cells + (std::int64_t{innerRows.first} - rows.first) * line +
                        (std::int64_t{innerCols.first} - cols.first) * sample;
  const bool read = viaFloat
                        ? TransferStrips(*source, GF_Read, innerCols.first, innerRows.first, width,
                                         height, clean.data(), GDT_Float32,
                                         GSpacing{width} * static_cast<GSpacing>(sizeof(float)))
                        : TransferStrips(*source, GF_Read, innerCols.first, innerRows.first, width,
                                         height, inner, type, line);
  if (!read || scope.Failed()) return false;

  const auto count = static_cast<std::size_t>(width);
  for (int row = 0; row < height; ++row) {
    std::uint8_t* start = inner + row * line;
    if (viaFloat) {
      float* heights = clean.data() + static_cast<std::size_t>(row) * count;
      NormaliseHeights(rule, heights, count);
      GDALCopyWords64(heights, GDT_Float32, sizeof(float), start, type, static_cast<int>(sample),
                      width);
    } else if (type == GDT_Float32) {
      NormaliseHeights(rule, reinterpret_cast<float*>(start), count);
    } else if (type == GDT_Float64) {
      NormaliseHeights(rule, reinterpret_cast<double*>(start), count);
    }
  }
  return true;
}

bool TqImage::ReadHeights(int band, const tqfd::Rect2_T<int>& rect, float noData,
                          float* heights) const {
  if (!ReadImage(band, rect, kFloat32, heights)) return false;
  GDALRasterBand* source = impl_->Band(band);
  const NoDataRule rule = ReadNoDataRule(*source);
  const std::int64_t cols = std::int64_t{rect.maxX} - rect.minX;
  const std::int64_t rows = std::int64_t{rect.maxY} - rect.minY;
  if (rule.named) {
    const float value = tqtortho::NarrowToFloat(rule.value);
    if (value != noData) std::replace(heights, heights + cols * rows, value, noData);
    return true;
  }
  std::replace(heights, heights + cols * rows, static_cast<float>(tqtortho::kDefaultNoData),
               noData);
  if (rule.outside == noData) return true;
  float* cell = heights;
  for (std::int64_t row = rect.minY; row < rect.maxY; ++row) {
    for (std::int64_t col = rect.minX; col < rect.maxX; ++col, ++cell) {
      const bool inside =
          row >= 0 && row < source->GetYSize() && col >= 0 && col < source->GetXSize();
      if (!inside) *cell = noData;
    }
  }
  return true;
}

bool TqImage::WriteImage(int band, const tqfd::Rect2_T<int>& rect, int dataType,
                         const void* buffer) {
  GDALRasterBand* target = impl_->Band(band);
  const GDALDataType type = ToGdalType(dataType);
  if (target == nullptr || !impl_->writable || type == GDT_Unknown || buffer == nullptr) {
    return false;
  }
  if (rect.minX < 0 || rect.minY < 0 || rect.maxX <= rect.minX || rect.maxY <= rect.minY ||
      rect.maxX > target->GetXSize() || rect.maxY > target->GetYSize()) {
    return false;
  }
  const GdalScope scope;
  const int width = rect.maxX - rect.minX;
  const int height = rect.maxY - rect.minY;
  const bool written = TransferStrips(*target, GF_Write, rect.minX, rect.minY, width, height,
                                      const_cast<void*>(buffer), type,
                                      GSpacing{width} * GDALGetDataTypeSizeBytes(type));
  if (written && !scope.Failed()) return true;
  impl_->failed = true;
  return false;
}

}  // namespace tqimage
