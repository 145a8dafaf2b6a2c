// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gdal_priv.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "internal/gdal_scope.h"
#include "tqimage/GeoCoefficients.h"

namespace tqimage {

struct GdalCloser {
  void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using DatasetPtr = std::unique_ptr<GDALDataset, GdalCloser>;

/// GDAL's type of a DataType code; GDT_Unknown for a code that is none.
[[nodiscard]] GDALDataType ToGdalType(int dataType);
/// The DataType code of a GDAL type; 0 for complex and 64-bit integer samples.
[[nodiscard]] int FromGdalType(GDALDataType type);
/// Bytes of one sample, 0 for a code that is none.
[[nodiscard]] std::size_t SampleSize(int dataType);
/// True when width * height * bands samples are a raster that this machine can hold in memory.
[[nodiscard]] bool FitsInMemory(std::int64_t width, std::int64_t height, std::int64_t bands,
                                std::size_t sampleSize);

/// Opens an existing raster file with at least one band, of a kind that internal/open_policy.h
/// allows; else null, with one line in `why`.
[[nodiscard]] DatasetPtr OpenRaster(const std::string& path, bool update,
                                    std::string* why = nullptr);

/// The georeference of a file, half a cell moved to the centre of the first cell. Without one:
/// origin (0, 0), resolution (1, -1).
[[nodiscard]] GeoCoefficients ReadGeoreference(GDALDataset& dataset);
/// Writes the corner-based transform and the CRS. False for a cell size that is zero or not finite.
bool WriteGeoreference(GDALDataset& dataset, const GeoCoefficients& coefficients);

/// How the cells of one band are to be understood; see the heights rule of TqImage.
struct NoDataRule {
  bool floating = false;   ///< the heights rule applies
  bool named = false;      ///< the file names a no-data value
  double fileValue = 0;    ///< as the file names it
  double value = 0;        ///< what callers see, 0 when there is none
  double replacement = 0;  ///< of NaN and infinite cells
  double outside = 0;      ///< of cells beyond the raster
};
[[nodiscard]] NoDataRule ReadNoDataRule(GDALRasterBand& band);
/// Applies the heights rule to cells as read.
void NormaliseHeights(const NoDataRule& rule, float* cells, std::size_t count);
void NormaliseHeights(const NoDataRule& rule, double* cells, std::size_t count);

/// Whether a new file's tiles that nobody writes, or that hold zeros only, take space in it.
enum class Filling { kWhole, kSparse };

/// A raster file in the making: a tiled, compressed GeoTIFF beside `target`, renamed by Finish and
/// removed by the destructor when it was not finished.
class StagedRaster {
 public:
  StagedRaster() = default;
  ~StagedRaster() { Discard(); }
  StagedRaster(const StagedRaster&) = delete;
  StagedRaster& operator=(const StagedRaster&) = delete;

  bool Start(const std::string& target, int width, int height, int bands, int dataType,
             bool overwrite, Filling filling = Filling::kWhole);
  [[nodiscard]] GDALDataset* Dataset() const { return dataset_.get(); }
  /// Closes the file and gives it its name. False, and no file, when a byte could not be written or
  /// the process is to stop: what it holds may then come from work that was given up.
  bool Finish();
  void Discard();

 private:
  DatasetPtr dataset_;
  std::string target_;
  std::string staged_;
};

/// Moves a window between the bands of a file and memory as GDALDataset::RasterIO does, in strips
/// of whole rows of the file's blocks, so that a raster of any size is given up when the process is
/// to stop. The file's bytes are those of one call: blocks are met in the same order. False when a
/// strip failed or the work was given up.
[[nodiscard]] bool TransferStrips(GDALDataset& dataset, GDALRWFlag direction, int col, int row,
                                  int width, int height, void* cells, GDALDataType type,
                                  int bandCount, int* bandNumbers, GSpacing pixel, GSpacing line,
                                  GSpacing band);
/// The same for one band, pixels side by side.
[[nodiscard]] bool TransferStrips(GDALRasterBand& band, GDALRWFlag direction, int col, int row,
                                  int width, int height, void* cells, GDALDataType type,
                                  GSpacing line);
/// A progress function for long calls of GDAL: it ends them when the process is to stop.
int CPL_STDCALL GoOnUnlessStopped(double share, const char* message, void* user);

/// Flushes and closes; false when anything could not be written.
bool CloseChecked(DatasetPtr dataset);
[[nodiscard]] bool FileExists(const std::string& path);

}  // namespace tqimage
