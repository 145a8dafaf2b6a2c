// SPDX-License-Identifier: Apache-2.0
#include "geo/RasterTools.h"

#include <cpl_string.h>
#include <gdal_alg.h>
#include <gdal_utils.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "core/limits.h"
#include "core/memory_faults.h"
#include "internal/gdal_raster.h"
#include "internal/memory_raster.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "tqfd/FileInput.h"
#include "tqfd/PathHelper.h"

namespace geo {
namespace {

using tqimage::DatasetPtr;
using tqimage::GdalScope;

std::size_t CellCount(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

/// Whether a small file ends with these words.
bool EndsWith(const std::string& path, const std::string& words) {
  std::string text, ignored;
  return tqfd::ReadWholeFile(path, tqtortho::limits::kVirtualRasterBytes, text, ignored) &&
         text.size() >= words.size() &&
         text.compare(text.size() - words.size(), words.size(), words) == 0;
}

}  // namespace

bool FillNoData(std::vector<float>& heights, int cols, int rows, float noData, int maxDistance) {
  if (cols <= 0 || rows <= 0 || heights.size() < CellCount(cols, rows)) return false;
  if (maxDistance <= 0) return true;
  const std::size_t count = CellCount(cols, rows);
  std::vector<std::uint8_t> known(count);
  for (std::size_t i = 0; i < count; ++i) {
    // A cell that is no number is as empty as one that holds the no-data value.
    known[i] = heights[i] != noData && std::isfinite(heights[i]) ? 255 : 0;
  }
  GdalScope scope;
  const DatasetPtr heightsView = MemoryDataset(cols, rows);
  const DatasetPtr maskView = MemoryDataset(cols, rows);
  if (!heightsView || !maskView ||
      !AddBand(*heightsView, heights.data(), GDT_Float32, sizeof(float),
               GSpacing{cols} * static_cast<GSpacing>(sizeof(float))) ||
      !AddBand(*maskView, known.data(), GDT_Byte, 1, cols)) {
    return false;
  }
  // Without this option the filler keeps its work files in the current directory.
  CPLStringList options;
  options.SetNameValue("TEMP_FILE_DRIVER", "MEM");
  const CPLErr result =
      GDALFillNodata(GDALRasterBand::ToHandle(heightsView->GetRasterBand(1)),
                     GDALRasterBand::ToHandle(maskView->GetRasterBand(1)), maxDistance, 0, 0,
                     options.List(), tqimage::GoOnUnlessStopped, nullptr);
  return result == CE_None && !scope.Failed();
}

bool BuildVrt(const std::string& vrtPath, const std::vector<std::string>& rasters, int noData) {
  if (vrtPath.empty() || rasters.empty()) return false;
  GdalScope scope;
  CPLStringList names;
  for (const std::string& raster : rasters) {
    // Opened by us first: only files count, never an address or inline text.
    if (!tqimage::FileExists(raster)) return false;
    names.AddString(raster.c_str());
  }
  CPLStringList arguments;
  arguments.AddString("-strict");  // a source that does not fit is a failure, not a gap
  if (noData >= 0) {
    const std::string value = std::to_string(noData);
    for (const char* option : {"-srcnodata", "-vrtnodata"}) {
      arguments.AddString(option);
      arguments.AddString(value.c_str());
    }
  }
  GDALBuildVRTOptions* options = GDALBuildVRTOptionsNew(arguments.List(), nullptr);
  if (options == nullptr) return false;
  const std::string staged = tqtortho::StagedPath(vrtPath);
  int usageError = 0;
  // Staged in the target's directory, so that relative source paths hold after the rename.
  DatasetPtr vrt(GDALDataset::FromHandle(
      GDALBuildVRT(staged.c_str(), names.Count(), nullptr, names.List(), options, &usageError)));
  GDALBuildVRTOptionsFree(options);
  // Written by GDAL without checks, since CheckedPath would spoil the relative paths: read again.
  const bool written = vrt && tqimage::CloseChecked(std::move(vrt)) && !scope.Failed() &&
                       EndsWith(staged, "</VRTDataset>\n");
  if (written && usageError == 0) return tqtortho::PublishFile(staged, vrtPath);
  tqtortho::DiscardFile(staged, vrtPath, true);
  return false;
}

bool WritePng(const std::string& path, const std::uint8_t* data, int width, int height, int bands) {
  if (path.empty() || data == nullptr || width <= 0 || height <= 0) return false;
  if (bands != 1 && bands != 3 && bands != 4) return false;
  GdalScope scope;
  const tqimage::ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("PNG");
  const DatasetPtr view = PictureView(data, width, height, bands);
  if (driver == nullptr || !view) return false;
  if (path.rfind("/vsi", 0) != 0) tqfd::PathHelper::MakeParentDirectory(path);
  const std::string staged = tqtortho::StagedPath(path);
  DatasetPtr copy(driver->CreateCopy(tqtortho::CheckedPath(staged).c_str(), view.get(), 1, nullptr,
                                     tqimage::GoOnUnlessStopped, nullptr));
  const bool written = copy && tqimage::CloseChecked(std::move(copy)) && !scope.Failed();
  if (written) return tqtortho::PublishFile(staged, path);
  tqtortho::DiscardFile(staged, path, true);
  return false;
}

bool ReadReduced(const std::string& path, int maxSize, std::vector<std::uint8_t>& data, int& width,
                 int& height, int& bands) {
  if (maxSize < 1) return false;
  GdalScope scope;
  const DatasetPtr file = tqimage::OpenRaster(path, false);
  if (!file) return false;
  const int cols = file->GetRasterXSize();
  const int rows = file->GetRasterYSize();
  const double factor = std::min(1.0, static_cast<double>(maxSize) / std::max(cols, rows));
  width = std::clamp(static_cast<int>(std::lround(cols * factor)), 1, std::min(cols, maxSize));
  height = std::clamp(static_cast<int>(std::lround(rows * factor)), 1, std::min(rows, maxSize));
  GDALRasterBand* head = file->GetRasterBand(1);
  const GDALColorTable* table = file->GetRasterCount() == 1 ? head->GetColorTable() : nullptr;
  bands = file->GetRasterCount() >= 3 || table != nullptr ? 3 : 1;
  if (!tqimage::FitsInMemory(width, height, bands, 1)) return false;
  try {
    data.assign(CellCount(width, height) * static_cast<std::size_t>(bands), 0);
  } catch (const std::bad_alloc&) {
    tqtortho::NoteMemoryFault();
    return false;
  }

  GDALRasterIOExtraArg how;
  INIT_RASTERIO_EXTRA_ARG(how);
  how.pfnProgress = tqimage::GoOnUnlessStopped;
  how.eResampleAlg = table != nullptr ? GRIORA_NearestNeighbour : GRIORA_Average;
  const GSpacing pixel = bands;
  if (table == nullptr) {
    int numbers[3] = {1, 2, 3};
    return file->RasterIO(GF_Read, 0, 0, cols, rows, data.data(), width, height, GDT_Byte, bands,
                          numbers, pixel, pixel * width, 1, &how) == CE_None &&
           !scope.Failed();
  }
  // A palette's indices cannot be averaged; they land in the first band and are then looked up.
  if (head->RasterIO(GF_Read, 0, 0, cols, rows, data.data(), width, height, GDT_Byte, pixel,
                     pixel * width, &how) != CE_None ||
      scope.Failed()) {
    return false;
  }
  for (std::size_t i = 0; i < data.size(); i += 3) {
    GDALColorEntry entry{};
    if (data[i] < table->GetColorEntryCount()) table->GetColorEntryAsRGB(data[i], &entry);
    data[i] = static_cast<std::uint8_t>(entry.c1);
    data[i + 1] = static_cast<std::uint8_t>(entry.c2);
    data[i + 2] = static_cast<std::uint8_t>(entry.c3);
  }
  return true;
}

bool DescribeRaster(const std::string& path, RasterSummary& summary, std::string& error) {
  summary = {};
  error.clear();
  const GdalScope scope;
  const DatasetPtr file = tqimage::OpenRaster(path, false, &error);
  if (!file) return false;
  GDALRasterBand* head = file->GetRasterBand(1);
  summary.width = file->GetRasterXSize();
  summary.height = file->GetRasterYSize();
  summary.bands = file->GetRasterCount();
  summary.sampleType = GDALGetDataTypeName(head->GetRasterDataType());
  summary.format = file->GetDriver() != nullptr ? file->GetDriver()->GetDescription() : "";
  summary.palette = head->GetColorTable() != nullptr;
  if (const char* unit = head->GetUnitType()) summary.unit = unit;
  summary.scale = head->GetScale();
  summary.offset = head->GetOffset();
  double transform[6];
  summary.hasGeoreference =
      file->GetGeoTransform(transform) == CE_None &&
      std::all_of(transform, transform + 6, [](double v) { return std::isfinite(v); });
  summary.rotated = summary.hasGeoreference && !(transform[2] == 0 && transform[4] == 0 &&
                                                 transform[1] > 0 && transform[5] < 0);
  summary.coefficients = tqimage::ReadGeoreference(*file);
  return true;
}

}  // namespace geo
