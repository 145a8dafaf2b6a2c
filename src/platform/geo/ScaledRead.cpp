// SPDX-License-Identifier: Apache-2.0
#include "geo/ScaledRead.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "core/memory_faults.h"
#include "core/numeric.h"
#include "internal/gdal_raster.h"

namespace geo {
namespace {

template <class T>
bool Read(const std::string& path, int band, const ScaledWindow& window, Scaling scaling,
          GDALDataType type, std::vector<T>& cells) {
  constexpr double kSlack = 1e-6;  // of a cell: windows are quotients of ground coordinates
  tqimage::GdalScope scope;
  const tqimage::DatasetPtr file = tqimage::OpenRaster(path, false);
  if (!file || band < 0 || band > file->GetRasterCount()) return false;
  const double fileCols = file->GetRasterXSize();
  const double fileRows = file->GetRasterYSize();
  if (!(window.cols > 0 && window.rows > 0 && window.outCols > 0 && window.outRows > 0 &&
        window.col > -kSlack && window.row > -kSlack &&
        window.col + window.cols < fileCols + kSlack &&
        window.row + window.rows < fileRows + kSlack) ||
      !tqimage::FitsInMemory(window.outCols, window.outRows, 1, sizeof(T))) {
    return false;
  }
  try {
    cells.resize(static_cast<std::size_t>(window.outCols) *
                 static_cast<std::size_t>(window.outRows));
  } catch (const std::bad_alloc&) {
    tqtortho::NoteMemoryFault();
    return false;
  }
  GDALRasterIOExtraArg how;
  INIT_RASTERIO_EXTRA_ARG(how);
  how.pfnProgress = tqimage::GoOnUnlessStopped;
  const bool shrinks = window.cols > window.outCols || window.rows > window.outRows;
  how.eResampleAlg = scaling == Scaling::kNearest ? GRIORA_NearestNeighbour
                     : shrinks                    ? GRIORA_Average
                                                  : GRIORA_Bilinear;
  how.bFloatingPointWindowValidity = TRUE;
  how.dfXOff = std::max(window.col, 0.0);
  how.dfYOff = std::max(window.row, 0.0);
  how.dfXSize = std::min(window.cols, fileCols - how.dfXOff);
  how.dfYSize = std::min(window.rows, fileRows - how.dfYOff);
  // The whole cells that hold the window; GDAL resamples from the fractional one.
  const int col = std::min(tqtortho::FloorToInt(how.dfXOff), file->GetRasterXSize() - 1);
  const int row = std::min(tqtortho::FloorToInt(how.dfYOff), file->GetRasterYSize() - 1);
  const int cols = std::max(tqtortho::TruncToInt(std::ceil(how.dfXOff + how.dfXSize)) - col, 1);
  const int rows = std::max(tqtortho::TruncToInt(std::ceil(how.dfYOff + how.dfYSize)) - row, 1);
  GDALRasterBand* const first = file->GetRasterBand(std::max(band, 1));
  GDALRasterBand* const source = band == 0 ? first->GetMaskBand() : first;
  return source->RasterIO(GF_Read, col, row, std::min(cols, file->GetRasterXSize() - col),
                          std::min(rows, file->GetRasterYSize() - row), cells.data(),
                          window.outCols, window.outRows, type, 0, 0, &how) == CE_None &&
         !scope.Failed();
}

}  // namespace

bool ReadScaled(const std::string& path, int band, const ScaledWindow& window, Scaling scaling,
                std::vector<std::uint8_t>& cells) {
  return Read(path, band, window, scaling, GDT_Byte, cells);
}
bool ReadScaled(const std::string& path, int band, const ScaledWindow& window, Scaling scaling,
                std::vector<std::uint16_t>& cells) {
  return Read(path, band, window, scaling, GDT_UInt16, cells);
}
bool ReadScaled(const std::string& path, int band, const ScaledWindow& window, Scaling scaling,
                std::vector<float>& cells) {
  return Read(path, band, window, scaling, GDT_Float32, cells);
}

}  // namespace geo
