// SPDX-License-Identifier: Apache-2.0
#include "internal/gdal_raster.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/numeric.h"
#include "core/stop_flag.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"

namespace tqimage {
namespace {

/// A no-data value beyond this is a marker of some other program, not a height.
constexpr double kLargestHeight = 1e6;

bool IsUsableNoData(double value) { return std::abs(value) <= kLargestHeight; }  // NaN: false

template <class T>
void NormaliseCells(const NoDataRule& rule, T* cells, std::size_t count) {
  if (!rule.floating) return;
  const T replacement = static_cast<T>(rule.replacement);
  // Files name such values with few digits (-3.4e+38) while their cells hold the exact limit.
  const bool huge = rule.named && std::isfinite(rule.fileValue) && !IsUsableNoData(rule.fileValue);
  const double margin = huge ? 0.01 * std::abs(rule.fileValue) : 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (!std::isfinite(cells[i]) || (huge && std::abs(cells[i] - rule.fileValue) <= margin)) {
      cells[i] = replacement;
    }
  }
}

bool IsFloating(GDALDataType type) { return type == GDT_Float32 || type == GDT_Float64; }

}  // namespace

GDALDataType ToGdalType(int dataType) {
  switch (dataType) {
    case kByte:
      return GDT_Byte;
    case kUInt16:
      return GDT_UInt16;
    case kInt16:
      return GDT_Int16;
    case kUInt32:
      return GDT_UInt32;
    case kInt32:
      return GDT_Int32;
    case kFloat32:
      return GDT_Float32;
    case kFloat64:
      return GDT_Float64;
    default:
      return GDT_Unknown;
  }
}

int FromGdalType(GDALDataType type) {
  for (int code = kByte; code <= kFloat64; ++code) {
    if (ToGdalType(code) == type) return code;
  }
  return 0;
}

std::size_t SampleSize(int dataType) {
  return static_cast<std::size_t>(GDALGetDataTypeSizeBytes(ToGdalType(dataType)));
}

bool FitsInMemory(std::int64_t width, std::int64_t height, std::int64_t bands,
                  std::size_t sampleSize) {
  constexpr std::int64_t kMost = std::numeric_limits<int>::max();
  if (width <= 0 || height <= 0 || bands <= 0 || sampleSize == 0) return false;
  if (width > kMost || height > kMost || bands > 65535) return false;
  // A header of a few bytes may claim any size; filling that much memory would take the machine
  // down long before the missing pixels are noticed.
  const double bytes = static_cast<double>(width) * static_cast<double>(height) *
                       static_cast<double>(bands) * static_cast<double>(sampleSize);
  const auto available = static_cast<double>(CPLGetUsablePhysicalRAM());
  return bytes < 4e18 && (available <= 0 || bytes <= available);
}

bool FileExists(const std::string& path) {
  VSIStatBufL status;
  return !path.empty() &&
         VSIStatExL(path.c_str(), &status, VSI_STAT_EXISTS_FLAG | VSI_STAT_NATURE_FLAG) == 0;
}

GeoCoefficients ReadGeoreference(GDALDataset& dataset) {
  const int cols = dataset.GetRasterXSize();
  const int rows = dataset.GetRasterYSize();
  double corner[6];
  GeoCoefficients result;
  if (dataset.GetGeoTransform(corner) == CE_None) {
    const double centre[6] = {corner[0] + 0.5 * corner[1], corner[1], 0,
                              corner[3] + 0.5 * corner[5], 0,         corner[5]};
    result = GeoCoefficients(centre, cols, rows);
  } else {
    const double plain[6] = {0, 1, 0, 0, 0, -1};
    result = GeoCoefficients(plain, cols, rows);
  }
  if (const char* wkt = dataset.GetProjectionRef()) result.SetProjection(wkt);
  return result;
}

bool WriteGeoreference(GDALDataset& dataset, const GeoCoefficients& coefficients) {
  const auto origin = coefficients.GetOrigin();
  const auto cell = coefficients.GetResolution();
  const bool usable = std::isfinite(origin.x) && std::isfinite(origin.y) && std::isfinite(cell.x) &&
                      std::isfinite(cell.y) && cell.x != 0 && cell.y != 0;
  if (!usable) return false;
  double corner[6] = {origin.x - 0.5 * cell.x, cell.x, 0, origin.y - 0.5 * cell.y, 0, cell.y};
  if (dataset.SetGeoTransform(corner) != CE_None) return false;
  const std::string& wkt = coefficients.GetProjection();
  return wkt.empty() || dataset.SetProjection(wkt.c_str()) == CE_None;
}

NoDataRule ReadNoDataRule(GDALRasterBand& band) {
  NoDataRule rule;
  const GDALDataType type = band.GetRasterDataType();
  rule.floating = IsFloating(type);
  // 64-bit integers have calls of their own; no height or image of this system uses them.
  if (type == GDT_Int64 || type == GDT_UInt64) return rule;
  int named = 0;
  const double value = band.GetNoDataValue(&named);
  rule.named = named != 0;
  if (rule.named) {
    rule.fileValue = value;
    rule.value = value;
  }
  if (rule.floating) {
    if (rule.named) {
      rule.value = IsUsableNoData(value) ? static_cast<double>(tqtortho::NarrowToFloat(value))
                                         : tqtortho::kDefaultNoData;
    }
    rule.replacement = rule.named ? rule.value : tqtortho::kDefaultNoData;
  }
  rule.outside = type == GDT_Byte ? 0 : rule.value;
  return rule;
}

void NormaliseHeights(const NoDataRule& rule, float* cells, std::size_t count) {
  NormaliseCells(rule, cells, count);
}

void NormaliseHeights(const NoDataRule& rule, double* cells, std::size_t count) {
  NormaliseCells(rule, cells, count);
}

namespace {

/// Samples that are moved between two looks at the stop flag: compressing them takes a fraction of
/// a second.
constexpr std::int64_t kSamplesAtATime = 1 << 25;

/// Compresses and writes the blocks of a strip now, where GDAL would keep up to a gigabyte of them
/// for one long call at the end. Only for strips that hold all bands: the bands of a cell share a
/// block. The order of the blocks in the file stays as it is.
bool WriteOut(GDALDataset& dataset, int bands) {
  if (bands != dataset.GetRasterCount()) return true;
  for (int band = 1; band <= bands; ++band) {
    if (dataset.GetRasterBand(band)->FlushCache(false) != CE_None) return false;
  }
  return true;
}

/// Calls `move(first, count)` for the rows from `row` on, in strips that end with the file's
/// blocks.
template <class Move>
bool ByStrips(GDALRasterBand& band, GDALRWFlag direction, int row, int width, int height, int bands,
              const Move& move) {
  int blockCols = 1;
  int blockRows = 1;
  band.GetBlockSize(&blockCols, &blockRows);
  const std::int64_t rows = kSamplesAtATime / (std::int64_t{width} * std::max(bands, 1));
  const std::int64_t strip = std::max<std::int64_t>(rows / blockRows, 1) * blockRows;
  const std::int64_t last = std::int64_t{row} + height;
  for (std::int64_t first = row; first < last;) {
    const std::int64_t end = std::min((first / strip + 1) * strip, last);
    if (tqtortho::processStop.Raised()) return false;
    if (move(static_cast<int>(first), static_cast<int>(end - first)) != CE_None) {
      if (direction == GF_Read) tqtortho::NoteFailedRead(band.GetDataset()->GetDescription());
      return false;
    }
    if (direction == GF_Write && end < last && !WriteOut(*band.GetDataset(), bands)) return false;
    first = end;
  }
  return true;
}

}  // namespace

bool TransferStrips(GDALDataset& dataset, GDALRWFlag direction, int col, int row, int width,
                    int height, void* cells, GDALDataType type, int bandCount, int* bandNumbers,
                    GSpacing pixel, GSpacing line, GSpacing band) {
  auto* const bytes = static_cast<std::uint8_t*>(cells);
  return ByStrips(*dataset.GetRasterBand(1), direction, row, width, height, bandCount,
                  [&](int first, int count) {
                    return dataset.RasterIO(direction, col, first, width, count,
                                            bytes + (first - row) * line, width, count, type,
                                            bandCount, bandNumbers, pixel, line, band, nullptr);
                  });
}

bool TransferStrips(GDALRasterBand& band, GDALRWFlag direction, int col, int row, int width,
                    int height, void* cells, GDALDataType type, GSpacing line) {
  auto* const bytes = static_cast<std::uint8_t*>(cells);
  return ByStrips(band, direction, row, width, height, 1, [&](int first, int count) {
    return band.RasterIO(direction, col, first, width, count, bytes + (first - row) * line, width,
                         count, type, GDALGetDataTypeSizeBytes(type), line, nullptr);
  });
}

int CPL_STDCALL GoOnUnlessStopped(double, const char*, void*) {
  return tqtortho::processStop.Raised() ? FALSE : TRUE;
}

bool CloseChecked(DatasetPtr dataset) {
  GdalScope scope;
  bool written = true;
  for (int band = 1; band <= dataset->GetRasterCount(); ++band) {
    // Also tells of blocks that another thread wrote out of the shared cache and could not.
    if (dataset->GetRasterBand(band)->FlushCache(false) != CE_None) written = false;
  }
  dataset->FlushCache(false);
  dataset.reset();
  return written && !scope.Failed();
}

bool StagedRaster::Start(const std::string& target, int width, int height, int bands, int dataType,
                         bool overwrite, Filling filling) {
  Discard();
  const GDALDataType type = ToGdalType(dataType);
  if (target.empty() || width <= 0 || height <= 0 || bands <= 0 || type == GDT_Unknown) {
    return false;
  }
  if (!overwrite && FileExists(target)) return false;
  const GdalScope scope;
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
  if (driver == nullptr) return false;
  if (target.rfind("/vsi", 0) != 0) tqfd::PathHelper::MakeParentDirectory(target);

  CPLStringList options;
  const char* known = driver->GetMetadataItem(GDAL_DMD_CREATIONOPTIONLIST);
  if (known != nullptr && std::string(known).find("ZSTD_LEVEL") != std::string::npos) {
    options.SetNameValue("COMPRESS", "ZSTD");
    options.SetNameValue("ZSTD_LEVEL", "1");
  } else {
    options.SetNameValue("COMPRESS", "DEFLATE");
    options.SetNameValue("ZLEVEL", "1");
  }
  // Differences between neighbours pay for colour: a third smaller for a seventh more time. Masks
  // and heights gain nothing or lose much time.
  if (bands >= 3 && (type == GDT_Byte || type == GDT_UInt16)) {
    options.SetNameValue("PREDICTOR", "2");
  }
  options.SetNameValue("BIGTIFF", "IF_SAFER");
  options.SetNameValue("INTERLEAVE", "PIXEL");
  if (filling == Filling::kSparse) options.SetNameValue("SPARSE_OK", "TRUE");
  if (width >= 256 && height >= 256) {
    const char* side = width >= 2048 && height >= 2048 ? "512" : "256";
    options.SetNameValue("TILED", "YES");
    options.SetNameValue("BLOCKXSIZE", side);
    options.SetNameValue("BLOCKYSIZE", side);
  }
  target_ = target;
  staged_ = tqtortho::StagedPath(target);
  const ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
  dataset_.reset(driver->Create(tqtortho::CheckedPath(staged_).c_str(), width, height, bands, type,
                                options.List()));
  if (dataset_) return true;
  Discard();
  return false;
}

bool StagedRaster::Finish() {
  if (!dataset_) return false;
  if (tqtortho::processStop.Raised()) {
    Discard();
    return false;
  }
  const ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
  const bool written = CloseChecked(std::move(dataset_));
  dataset_.reset();
  const std::string staged = std::exchange(staged_, {});
  if (written) return tqtortho::PublishFile(staged, target_);
  tqtortho::DiscardFile(staged, target_, true);
  return false;
}

void StagedRaster::Discard() {
  if (dataset_) {
    const GdalScope scope;
    const ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
    dataset_->MarkSuppressOnClose();  // its blocks in memory are not written out any more
    dataset_.reset();
  }
  if (!staged_.empty()) tqtortho::DiscardFile(staged_, target_);
  staged_.clear();
}

}  // namespace tqimage
