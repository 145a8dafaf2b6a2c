// SPDX-License-Identifier: Apache-2.0
#include "tqorkit/tqBinaryData.h"

#include <utility>

#include "internal/gdal_raster.h"
#include "tqfd/StringConverter.h"
#include "tqimage/TqImage.h"

namespace tqorkit {
namespace {

using tqimage::GdalScope;

int TypeOfCell(int bytesPerCell) {
  switch (bytesPerCell) {
    case 1:
      return tqimage::kByte;
    case 2:
      return tqimage::kUInt16;
    case 4:
      return tqimage::kUInt32;
    default:
      return 0;
  }
}

}  // namespace

struct tqBinaryData::Impl {
  tqimage::DatasetPtr opened;
  tqimage::StagedRaster created;
  bool failed = false;  ///< cells could not be written

  [[nodiscard]] GDALDataset* Dataset() const { return opened ? opened.get() : created.Dataset(); }
  [[nodiscard]] bool Contains(int col, int row, int width, int height) const {
    const GDALDataset* dataset = Dataset();
    if (dataset == nullptr || col < 0 || row < 0 || width <= 0 || height <= 0) return false;
    auto* raster = Dataset();
    return width <= raster->GetRasterXSize() - col && height <= raster->GetRasterYSize() - row;
  }
  /// Cells go to and from the buffer in the type of the file.
  bool Transfer(GDALRWFlag direction, int col, int row, int width, int height, void* cells) const {
    const GdalScope scope;
    GDALRasterBand* band = Dataset()->GetRasterBand(1);
    return band->RasterIO(direction, col, row, width, height, cells, width, height,
                          band->GetRasterDataType(), 0, 0, nullptr) == CE_None &&
           !scope.Failed();
  }
};

tqBinaryData::tqBinaryData() : impl_(std::make_unique<Impl>()) {}

tqBinaryData::~tqBinaryData() {
  const GdalScope scope;
  impl_.reset();
}

bool tqBinaryData::Create(const std::string& path, int width, int height, int bytesPerCell) {
  const GdalScope scope;
  impl_ = std::make_unique<Impl>();
  return impl_->created.Start(path, width, height, 1, TypeOfCell(bytesPerCell), true,
                              tqimage::Filling::kSparse);
}

bool tqBinaryData::Open(const std::wstring& path) {
  const GdalScope scope;
  impl_ = std::make_unique<Impl>();
  auto dataset = tqimage::OpenRaster(tqfd::StringConverter::Convert(path), false);
  if (!dataset || dataset->GetRasterCount() != 1) return false;
  const GDALDataType type = dataset->GetRasterBand(1)->GetRasterDataType();
  if (type != GDT_Byte && type != GDT_UInt16 && type != GDT_UInt32) return false;
  impl_->opened = std::move(dataset);
  return true;
}

bool tqBinaryData::SetGeoCoefficients(const tqimage::GeoCoefficients& coefficients) {
  if (impl_->created.Dataset() == nullptr) return false;
  const GdalScope scope;
  return tqimage::WriteGeoreference(*impl_->created.Dataset(), coefficients) && !scope.Failed();
}

int tqBinaryData::GetWidth() const {
  return impl_->Dataset() ? impl_->Dataset()->GetRasterXSize() : 0;
}

int tqBinaryData::GetHeight() const {
  return impl_->Dataset() ? impl_->Dataset()->GetRasterYSize() : 0;
}

int tqBinaryData::GetBytesPerCell() const {
  if (impl_->Dataset() == nullptr) return 0;
  return GDALGetDataTypeSizeBytes(impl_->Dataset()->GetRasterBand(1)->GetRasterDataType());
}

tqimage::GeoCoefficients tqBinaryData::GetGeoCoefficients() const {
  if (impl_->Dataset() == nullptr) return {};
  const GdalScope scope;
  return tqimage::ReadGeoreference(*impl_->Dataset());
}

bool tqBinaryData::SaveBlkData(int firstCol, int firstRow, int width, int height,
                               const void* data) {
  if (impl_->created.Dataset() == nullptr || data == nullptr ||
      !impl_->Contains(firstCol, firstRow, width, height)) {
    return false;
  }
  if (impl_->Transfer(GF_Write, firstCol, firstRow, width, height, const_cast<void*>(data))) {
    return true;
  }
  impl_->failed = true;
  return false;
}

bool tqBinaryData::ReadBlkData(int firstCol, int firstRow, int endCol, int endRow,
                               void* buffer) const {
  if (buffer == nullptr || firstCol < 0 || firstRow < 0 || endCol <= firstCol ||
      endRow <= firstRow ||
      !impl_->Contains(firstCol, firstRow, endCol - firstCol, endRow - firstRow)) {
    return false;
  }
  return impl_->Transfer(GF_Read, firstCol, firstRow, endCol - firstCol, endRow - firstRow, buffer);
}

bool tqBinaryData::Close() {
  const std::unique_ptr<Impl> ended = std::exchange(impl_, std::make_unique<Impl>());
  const GdalScope scope;
  if (ended->opened) {
    ended->opened.reset();
    return true;
  }
  // A file that lacks cells is discarded with `ended`.
  return !ended->failed && ended->created.Finish();
}

}  // namespace tqorkit
