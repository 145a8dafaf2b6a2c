// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mosaic/mosaic_blend.h"
#include "mosaic/mosaic_layer.h"

namespace tqtortho::host {

/// How product rasters are stored.
struct MosaicFormat {
  std::string compression = "auto";  ///< auto (ZSTD if there is, else DEFLATE), zstd, deflate, jpeg
  int jpegQuality = 90;
  int threads = 0;  ///< 0: all cores
};

/// Values of quality.tif.
enum CellQuality : std::uint8_t {
  kQualityNone = 0,
  kQualitySeen = 1,
  kQualitySeenOnce = 2,
  kQualityFilled = 3,
};

/// The cells of one tile of the product, without gaps.
struct MosaicTile {
  int firstCol = 0;
  int firstRow = 0;
  int cols = 0;
  int rows = 0;
  const std::uint8_t* pixels = nullptr;  ///< three bands interleaved
  const std::uint8_t* alpha = nullptr;   ///< 255 in the product, 0 not
  const std::uint16_t* source = nullptr;
  const std::uint8_t* quality = nullptr;
};

/// The three rasters of a product: mosaic.tif, source.tif and quality.tif, cloud-optimised.
///
/// Tiles go into working files; Finish makes the final files of them, beside their names, and
/// renames each when it is whole. Without Finish nothing appears. One thread at a time.
class MosaicWriter {
 public:
  MosaicWriter();
  ~MosaicWriter();

  bool Start(const std::string& outDir, const std::string& workDir, const MosaicGrid& grid,
             const MosaicFormat& format, std::string& error);
  bool Write(const MosaicTile& tile);
  /// @param photoTable  metadata of source.tif: number and photo name
  bool Finish(const std::vector<std::pair<int, std::string>>& photoTable,
              const std::vector<std::pair<std::string, std::string>>& notes, std::string& error);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tqtortho::host
