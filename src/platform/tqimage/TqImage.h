// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"

namespace tqimage {

/// Sample type codes of raster files.
enum DataType : int {
  kByte = 1,
  kUInt16 = 2,
  kInt16 = 3,
  kUInt32 = 4,
  kInt32 = 5,
  kFloat32 = 6,
  kFloat64 = 7,
};

/// File format codes; everything the library writes is 17, GeoTIFF (tiled, compressed, BigTIFF when
/// needed), whatever the extension of its name.
enum DriverType : int { kGeoTiff = 17 };

/// A raster file. Format by content on reading, GeoTIFF on writing.
///
/// Written files appear under their name only when complete: Create works on a file beside the
/// target and Close renames it into place; a TqImage destroyed without Close leaves no file.
///
/// Heights: in rasters of floating-point samples, a no-data value that is NaN, infinite or larger
/// than 1e6 in magnitude reads as -9999 (GetNoDataValue and cells alike), and every NaN or infinite
/// cell reads as the no-data value (-9999 when the file names none).
///
/// One object serves one thread; different objects are independent, also on the same file.
class TQTORTHO_API TqImage {
 public:
  TqImage();
  ~TqImage();
  TqImage(const TqImage&) = delete;
  TqImage& operator=(const TqImage&) = delete;

  /// Opens for reading (`readOnly` true) or update. False when the file is missing or no raster.
  bool Open(const std::string& path, bool readOnly);
  /// Starts a new file; `overwrite` false fails when the target exists. Sizes are checked, missing
  /// parent directories are made.
  bool Create(const std::string& path, int width, int height, int bands, int dataType,
              int driverType, bool overwrite);
  /// Ends the work. True when everything written is on disk under its final name.
  bool Close();

  [[nodiscard]] int GetWidth() const;
  [[nodiscard]] int GetHeight() const;
  [[nodiscard]] int GetBandCount() const;
  /// Sample type of the first band.
  [[nodiscard]] int GetDataType() const;
  /// Centre-registered georeference with the file's CRS. A file without one has origin (0, 0) and
  /// resolution (1, -1).
  [[nodiscard]] GeoCoefficients GetGeoCoefficients() const;
  /// True when the file itself carries a georeference.
  [[nodiscard]] bool HasGeoreference() const;
  bool SetGeoCoefficients(const GeoCoefficients& coefficients);
  /// No-data value of a band (counted from 0), 0 when the file names none.
  [[nodiscard]] double GetNoDataValue(int band) const;
  [[nodiscard]] bool HasNoDataValue(int band) const;
  bool SetNoDataValue(int band, double value);

  /// Reads the cells of `rect` (inclusive first, EXCLUSIVE last column and row: minX, minY, maxX,
  /// maxY) of `band` (counted from 0) as `dataType` samples into `buffer`, row-major. Cells outside
  /// the raster are filled with the no-data value (0 in byte rasters). False on an empty
  /// rectangle or a read error.
  bool ReadImage(int band, const tqfd::Rect2_T<int>& rect, int dataType, void* buffer) const;
  /// Reads heights: as ReadImage, but every cell without a height, and every cell outside the
  /// raster, is `noData`. A cell has no height when it is NaN, infinite or the file's no-data
  /// value; in a file that names none, when it is -9999. This is the one rule for surface models
  /// that name no no-data value; who works by the file's own words passes GetNoDataValue (then 0),
  /// who must keep ground at height 0 passes -9999.
  bool ReadHeights(int band, const tqfd::Rect2_T<int>& rect, float noData, float* heights) const;
  /// Writes `buffer` over the cells of `rect` (exclusive last column and row, inside the raster).
  bool WriteImage(int band, const tqfd::Rect2_T<int>& rect, int dataType, const void* buffer);

  /// Reads a whole raster into a record: size, bands (interleaved), data type, georeference fields
  /// and no-data value. Palette images are expanded to RGB; 16-bit and float samples keep their
  /// type (float: one band as 32-bit floats, the heights rule above). Orientation tags turn
  /// nothing. The record's rectangle runs from the centre of the first cell to the centre of the
  /// last one. A file that ends early, or claims more pixels than the machine's memory holds, is a
  /// failure.
  /// @param coefficients receives the georeference, may be null
  /// @param firstBand    first band to read
  /// @param bandCount    in: number of bands to read when not null and positive; out: bands read
  static bool QuickReadImage(const std::string& path, tqorkit::PhotoInfo& image,
                             GeoCoefficients* coefficients, int firstBand = 0,
                             int* bandCount = nullptr);
  /// Writes a whole record (dataType 0 counts as byte); with a null georeference the file has none,
  /// one without a cell size is a failure. Floats carry the record's no-data value unless it is 0.
  static bool QuickWriteImage(const std::string& path, const tqorkit::PhotoInfo& image,
                              const GeoCoefficients* coefficients, bool overwrite);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tqimage
