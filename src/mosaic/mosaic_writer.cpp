// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_writer.h"

#include <cpl_error.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>

#include "internal/gdal_raster.h"
#include "internal/process_memory.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "tqfd/PathHelper.h"

namespace tqtortho::host {
namespace {

using tqimage::DatasetPtr;
using tqimage::GdalScope;

bool HasZstd(GDALDriver* driver) {
  const char* known = driver->GetMetadataItem(GDAL_DMD_CREATIONOPTIONLIST);
  return known != nullptr && std::string(known).find("ZSTD") != std::string::npos;
}

/// Working rasters of fewer cells are not compressed: the disk has room for seven bytes for each.
constexpr double kMostPlainCells = 4e8;

constexpr const char* kNames[3] = {"mosaic", "source", "quality"};

/// A working raster: written once, read once, so fast and without overviews.
DatasetPtr CreateWorking(const std::string& path, const MosaicGrid& grid, int bands,
                         GDALDataType type) {
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
  if (driver == nullptr) return nullptr;
  CPLStringList options;
  options.SetNameValue("TILED", "YES");
  options.SetNameValue("BLOCKXSIZE", "512");
  options.SetNameValue("BLOCKYSIZE", "512");
  options.SetNameValue("INTERLEAVE", "PIXEL");
  options.SetNameValue("BIGTIFF", "IF_SAFER");
  options.SetNameValue("SPARSE_OK", "TRUE");
  if (static_cast<double>(grid.cols) * grid.rows < kMostPlainCells) {
    options.SetNameValue("COMPRESS", "NONE");
  } else if (HasZstd(driver)) {
    options.SetNameValue("COMPRESS", "ZSTD");
    options.SetNameValue("ZSTD_LEVEL", "1");
  } else {
    options.SetNameValue("COMPRESS", "DEFLATE");
    options.SetNameValue("ZLEVEL", "1");
  }
  if (bands == 4) {
    options.SetNameValue("PHOTOMETRIC", "RGB");
    options.SetNameValue("ALPHA", "NON-PREMULTIPLIED");
  }
  DatasetPtr dataset(
      driver->Create(CheckedPath(path).c_str(), grid.cols, grid.rows, bands, type, options.List()));
  if (!dataset) return nullptr;
  const double transform[6] = {grid.minX, grid.step, 0, grid.maxY, 0, -grid.step};
  tqimage::GeoCoefficients at(transform, grid.cols, grid.rows);
  at.SetProjection(grid.projection);
  if (!tqimage::WriteGeoreference(*dataset, at)) return nullptr;
  return dataset;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string ThreadsOf(const MosaicFormat& format) {
  return format.threads > 0 ? std::to_string(format.threads) : "ALL_CPUS";
}

const char* ResamplingOf(bool picture) { return picture ? "AVERAGE" : "NEAREST"; }

bool IsJpeg(const MosaicFormat& format, bool picture) {
  return picture && Lower(format.compression) == "jpeg";
}

CPLStringList FinalOptions(GDALDriver* driver, const MosaicFormat& format, bool picture) {
  CPLStringList options;
  const bool jpeg = IsJpeg(format, picture);
  if (jpeg) {
    options.SetNameValue("COMPRESS", "JPEG");
    options.SetNameValue("QUALITY", std::to_string(format.jpegQuality).c_str());
  } else if (Lower(format.compression) == "deflate" || !HasZstd(driver)) {
    options.SetNameValue("COMPRESS", "DEFLATE");
    options.SetNameValue("LEVEL", "6");
  } else {
    // Level 6 would take off five per cent and cost half as much again.
    options.SetNameValue("COMPRESS", "ZSTD");
    options.SetNameValue("LEVEL", "3");
  }
  if (!jpeg) options.SetNameValue("PREDICTOR", picture ? "YES" : "NO");
  options.SetNameValue("BLOCKSIZE", "512");
  options.SetNameValue("BIGTIFF", "IF_SAFER");
  options.SetNameValue("OVERVIEWS", jpeg ? "IGNORE_EXISTING" : "AUTO");
  options.SetNameValue("OVERVIEW_RESAMPLING", ResamplingOf(picture));
  options.SetNameValue("NUM_THREADS", ThreadsOf(format).c_str());
  return options;
}

/// Hears what GDAL's own worker threads complain about, keeps it off standard error and remembers
/// it: a scope hears only its own thread, and not everything that they fail at fails the copy.
class QuietWorkers {
 public:
  QuietWorkers() : earlier_(CPLSetErrorHandler(OnMessage)) { failed_ = false; }
  ~QuietWorkers() { CPLSetErrorHandler(earlier_); }
  QuietWorkers(const QuietWorkers&) = delete;
  QuietWorkers& operator=(const QuietWorkers&) = delete;

  [[nodiscard]] static bool Failed() { return failed_; }

 private:
  static void CPL_STDCALL OnMessage(CPLErr level, CPLErrorNum, const char*) {
    if (level >= CE_Failure) failed_ = true;
  }

  inline static std::atomic<bool> failed_{false};
  CPLErrorHandler earlier_;
};

/// Overviews as the copy wants them, in the working file: there they are made without compression,
/// in half the time that the copy would take for them. False when GDAL fails.
bool AddOverviews(GDALDataset& working, const MosaicFormat& format, const char* resampling) {
  constexpr int kSmallest = 512;
  std::vector<int> factors;
  for (int factor = 2;
       std::max(working.GetRasterXSize(), working.GetRasterYSize()) / (factor / 2) > kSmallest;
       factor *= 2) {
    factors.push_back(factor);
  }
  if (factors.empty()) return true;
  const std::string threads = ThreadsOf(format);
  const tqimage::ThreadOption workers("GDAL_NUM_THREADS", threads.c_str());
  return working.BuildOverviews(resampling, static_cast<int>(factors.size()), factors.data(), 0,
                                nullptr, tqimage::GoOnUnlessStopped, nullptr) == CE_None;
}

/// A cloud-optimised copy at `path`.
bool WriteCog(GDALDataset& working, const std::string& path, const MosaicFormat& format,
              bool picture, std::string& error) {
  const QuietWorkers quiet;
  GdalScope scope;
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("COG");
  if (driver == nullptr) {
    error = path + ": this GDAL cannot write cloud-optimised GeoTIFF";
    return false;
  }
  const tqimage::ThreadOption noSideFiles("GDAL_PAM_ENABLED", "NO");
  const CPLStringList options = FinalOptions(driver, format, picture);
  DatasetPtr copy(driver->CreateCopy(CheckedPath(path).c_str(), &working, FALSE, options.List(),
                                     tqimage::GoOnUnlessStopped, nullptr));
  const bool whole = copy != nullptr;
  copy.reset();
  if (whole && !scope.Failed() && !QuietWorkers::Failed()) return true;
  error = scope.Failed() ? scope.Message() : "not enough memory or room for its compression";
  return false;
}

}  // namespace

struct MosaicWriter::Impl {
  std::string outDir;
  std::string workDir;
  MosaicFormat format;
  std::string paths[3];
  DatasetPtr mosaic;
  DatasetPtr source;
  DatasetPtr quality;
  const GIntBig cacheBefore = GDALGetCacheMax64();

  /// In a process that has not bounded GDAL's cache it grows with the machine's memory, and fills:
  /// files are far larger than it.
  Impl() { GDALSetCacheMax64(std::min(cacheBefore, GIntBig{tqimage::kRasterCacheBytes})); }
  ~Impl() {
    GDALSetCacheMax64(cacheBefore);
    const GdalScope scope;
    // Working files go away: what of them is in memory only need not be written any more.
    for (const DatasetPtr* working : {&mosaic, &source, &quality}) {
      if (*working) (*working)->MarkSuppressOnClose();
    }
    mosaic.reset();
    source.reset();
    quality.reset();
    for (const std::string& path : paths) {
      if (!path.empty()) DiscardFile(path);
    }
  }
};

MosaicWriter::MosaicWriter() : impl_(std::make_unique<Impl>()) {}
MosaicWriter::~MosaicWriter() = default;

bool MosaicWriter::Start(const std::string& outDir, const std::string& workDir,
                         const MosaicGrid& grid, const MosaicFormat& format, std::string& error) {
  GdalScope scope;
  impl_->outDir = outDir;
  impl_->workDir = workDir;
  impl_->format = format;
  for (int i = 0; i < 3; ++i) impl_->paths[i] = StagedPath(workDir + "/" + kNames[i] + ".tif");
  (void)tqfd::PathHelper::MakeParentDirectory(impl_->paths[0]);
  (void)tqfd::PathHelper::MakeParentDirectory(outDir + "/mosaic.tif");
  impl_->mosaic = CreateWorking(impl_->paths[0], grid, 4, GDT_Byte);
  impl_->source = CreateWorking(impl_->paths[1], grid, 1, GDT_UInt16);
  impl_->quality = CreateWorking(impl_->paths[2], grid, 1, GDT_Byte);
  if (impl_->mosaic && impl_->source && impl_->quality) return true;
  error = workDir + ": cannot be written to; " + scope.Message();
  return false;
}

bool MosaicWriter::Write(const MosaicTile& tile) {
  GdalScope scope;
  auto* pixels = const_cast<std::uint8_t*>(tile.pixels);
  int bands[3] = {1, 2, 3};
  const auto band = [&](GDALDataset& dataset, int number, const void* data, GDALDataType type) {
    return dataset.GetRasterBand(number)->RasterIO(
               GF_Write, tile.firstCol, tile.firstRow, tile.cols, tile.rows,
               const_cast<void*>(data), tile.cols, tile.rows, type, 0, 0, nullptr) == CE_None;
  };
  return impl_->mosaic->RasterIO(GF_Write, tile.firstCol, tile.firstRow, tile.cols, tile.rows,
                                 pixels, tile.cols, tile.rows, GDT_Byte, 3, bands, 3,
                                 static_cast<GSpacing>(3) * tile.cols, 1, nullptr) == CE_None &&
         band(*impl_->mosaic, 4, tile.alpha, GDT_Byte) &&
         band(*impl_->source, 1, tile.source, GDT_UInt16) &&
         band(*impl_->quality, 1, tile.quality, GDT_Byte) && !scope.Failed();
}

bool MosaicWriter::Finish(const std::vector<std::pair<int, std::string>>& photoTable,
                          const std::vector<std::pair<std::string, std::string>>& notes,
                          std::string& error) {
  GdalScope scope;
  for (const auto& [key, value] : notes) {
    impl_->mosaic->SetMetadataItem(key.c_str(), value.c_str());
  }
  char key[32];
  for (const auto& [number, name] : photoTable) {
    std::snprintf(key, sizeof key, "PHOTO_%05d", number);
    impl_->source->SetMetadataItem(key, name.c_str());
  }
  impl_->source->GetRasterBand(1)->SetNoDataValue(0);
  impl_->quality->SetMetadataItem("VALUES", "0 nothing, 1 seen, 2 seen by one photo, 3 filled");
  GDALDataset* const datasets[3] = {impl_->mosaic.get(), impl_->source.get(), impl_->quality.get()};
  bool ready = true;
  for (int i = 0; i < 3; ++i) {
    datasets[i]->FlushCache(false);
    // JPEG has its alpha taken off on the way, and the working file's overviews with it.
    const bool picture = i == 0;
    ready = ready && (IsJpeg(impl_->format, picture) ||
                      AddOverviews(*datasets[i], impl_->format, ResamplingOf(picture)));
  }
  for (const std::string& path : impl_->paths) ready = ready && WriteFaultOf(path) == 0;
  if (!ready || scope.Failed()) {
    error = impl_->workDir + ": cannot be written to; is the disk full? " + scope.Message();
    return false;
  }
  // All three before the first gets its name: the products of two runs are never mixed.
  std::string targets[3];
  std::string staged[3];
  bool whole = true;
  for (int i = 0; i < 3 && whole; ++i) {
    targets[i] = impl_->outDir + "/" + kNames[i] + ".tif";
    staged[i] = StagedPath(targets[i]);
    whole = WriteCog(*datasets[i], staged[i], impl_->format, i == 0, error);
    if (!whole) error.insert(0, targets[i] + ": cannot be written; is the disk full? ");
  }
  for (int i = 0; i < 3 && whole; ++i) {
    whole = PublishFile(staged[i], targets[i]);
    if (!whole) error = targets[i] + ": cannot be given its name; is it in use?";
  }
  for (const std::string& path : staged) {
    if (!whole && !path.empty()) DiscardFile(path);
  }
  return whole;
}

}  // namespace tqtortho::host
