// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "geo/ScaledRead.h"
#include "mosaic/mosaic_stage.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using tqimage::TqImage;

/// The cells of a finished mosaic, a tile at a time.
class FinishedMosaic {
 public:
  explicit FinishedMosaic(const MosaicOptions& options)
      : mosaicPath_(options.outDir + "/mosaic.tif"),
        paths_{options.workDir + "/tmp/ot/textures.tif", options.outDir + "/source.tif",
               options.outDir + "/quality.tif"} {}

  /// False, with the file in `error`, when one of them does not fit the grid.
  bool Open(const MosaicGrid& grid, std::string& error) {
    for (std::size_t i = 0; i < 3; ++i) {
      if (files_[i].Open(paths_[i], true) && files_[i].GetWidth() == grid.cols &&
          files_[i].GetHeight() == grid.rows) {
        continue;
      }
      error = paths_[i] + ": is not the mosaic's any more; run the job again with --fresh";
      return false;
    }
    return true;
  }

  bool Read(const tqfd::Rect2_T<int>& rect) {
    const int cols = rect.maxX - rect.minX, rows = rect.maxY - rect.minY;
    const auto count = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
    std::vector<std::uint8_t> band(count);
    pixels.assign(3 * count, 0);
    source.resize(count);
    quality.resize(count);
    const geo::ScaledWindow window{static_cast<double>(rect.minX),
                                   static_cast<double>(rect.minY),
                                   static_cast<double>(cols),
                                   static_cast<double>(rows),
                                   cols,
                                   rows};
    // Band 0: by alpha or mask, whichever the earlier form has.
    if (!geo::ReadScaled(mosaicPath_, 0, window, geo::Scaling::kNearest, alpha) ||
        !files_[1].ReadImage(0, rect, tqimage::kUInt16, source.data()) ||
        !files_[2].ReadImage(0, rect, tqimage::kByte, quality.data())) {
      return false;
    }
    for (std::size_t b = 0; b < 3; ++b) {
      if (!files_[0].ReadImage(static_cast<int>(b), rect, tqimage::kByte, band.data())) {
        return false;
      }
      // The texture goes on beyond the area that a product is cut to.
      for (std::size_t i = 0; i < count; ++i) {
        if (alpha[i] != 0) pixels[3 * i + b] = band[i];
      }
    }
    return true;
  }

  std::vector<std::uint8_t> pixels;
  std::vector<std::uint8_t> alpha;
  std::vector<std::uint16_t> source;
  std::vector<std::uint8_t> quality;

 private:
  std::string mosaicPath_;
  std::string paths_[3];
  TqImage files_[3];
};

}  // namespace

bool CompressMosaic(const MosaicInput& input, const MosaicOptions& options,
                    const MosaicProgress& progress, std::int64_t seen, std::string& error) {
  MosaicGrid grid;
  if (!FindMosaicGrid(input, options.workDir, grid, error)) return false;
  FinishedMosaic mosaic(options);
  MosaicWriter product;
  if (!mosaic.Open(grid, error) ||
      !product.Start(options.outDir, options.workDir + "/tmp/ot", grid, options.format, error)) {
    return false;
  }
  const int side = std::max(options.tileSide, 64);
  for (int row = 0; row < grid.rows; row += side) {
    if (!progress("compress", 100.0 * row / grid.rows)) {
      error = "interrupted";
      return false;
    }
    for (int col = 0; col < grid.cols; col += side) {
      const tqfd::Rect2_T<int> rect{col, row, std::min(col + side, grid.cols),
                                    std::min(row + side, grid.rows)};
      if (!mosaic.Read(rect)) {
        error = options.outDir + "/mosaic.tif: cannot be read back; run the job with --fresh";
        return false;
      }
      if (!product.Write({col, row, rect.maxX - col, rect.maxY - row, mosaic.pixels.data(),
                          mosaic.alpha.data(), mosaic.source.data(), mosaic.quality.data()})) {
        error = options.workDir + ": cannot be written to; is the disk full?";
        return false;
      }
    }
  }
  if (!FinishMosaic(input, seen, product, error)) return false;
  (void)progress("compress", 100);
  return true;
}

}  // namespace tqtortho::host
