// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "tqfd/Export.h"
#include "tqimage/GeoCoefficients.h"

namespace tqorkit {

/// A large raster of whole numbers that is written and read block by block, such as the map that
/// tells the photo of every mosaic cell.
///
/// On disk it is a tiled, compressed GeoTIFF of one band, whatever its name's extension, so any
/// viewer of rasters shows it. Tiles never written, or written with zeros only, take no space and
/// read as 0. A new file appears under its name when Close has succeeded, not before.
///
/// One object serves one thread; different objects are independent, also on the same file.
class TQTORTHO_API tqBinaryData {
 public:
  tqBinaryData();
  ~tqBinaryData();
  tqBinaryData(const tqBinaryData&) = delete;
  tqBinaryData& operator=(const tqBinaryData&) = delete;

  /// Starts a new file of zeros in place of an earlier one.
  /// @param bytesPerCell  1, 2 or 4; cells are unsigned
  bool Create(const std::string& path, int width, int height, int bytesPerCell = 2);
  /// Opens a finished file for reading; the path is wide, as hosts hold it. False when it is
  /// missing or holds anything but one band of unsigned whole numbers.
  bool Open(const std::wstring& path);
  /// Places the raster on the ground, for viewers; of a new file only.
  bool SetGeoCoefficients(const tqimage::GeoCoefficients& coefficients);

  [[nodiscard]] int GetWidth() const;
  [[nodiscard]] int GetHeight() const;
  [[nodiscard]] int GetBytesPerCell() const;
  [[nodiscard]] tqimage::GeoCoefficients GetGeoCoefficients() const;

  /// Writes width x height cells, row-major, from (firstCol, firstRow) on. False outside the raster
  /// and when the disk refuses; a file that lacks cells is not kept by Close.
  bool SaveBlkData(int firstCol, int firstRow, int width, int height, const void* data);
  /// Reads the cells from (firstCol, firstRow) up to, and without, column endCol and row endRow.
  ///
  /// Beware: SaveBlkData takes a size where this takes ends.
  /// @param buffer  (endCol - firstCol) * (endRow - firstRow) cells; undefined after a failure
  /// @return false for an empty block, one that reaches outside the raster, and without a file
  bool ReadBlkData(int firstCol, int firstRow, int endCol, int endRow, void* buffer) const;
  /// Ends the work. True when everything written is on disk under its final name.
  bool Close();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tqorkit
