// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "report/naive_mosaic.h"
#include "report/report_grid.h"

namespace tqtortho::host {

/// The pictures and maps of a job on one grid; each is empty when its files are missing.
struct ReportLayers {
  ReportGrid grid;
  std::vector<std::uint8_t> mosaic;   ///< three bytes per cell
  std::vector<std::uint8_t> alpha;    ///< 255 where the mosaic has a cell
  std::vector<std::uint16_t> source;  ///< photo numbers
  std::vector<std::uint8_t> quality;
  std::vector<float> heights;        ///< NaN where there is none
  std::vector<std::uint8_t> relief;  ///< shades, 0 where there is no height
  std::vector<std::uint8_t> naive;   ///< three bytes per cell
  PhotoCoverage coverage;
};

/// Where the layers' files lie.
struct ReportFiles {
  std::string mosaic;
  std::string source;
  std::string quality;
  std::string dsm;
};

/// Makes all layers that the files allow, reduced: no raster is held at its full size.
///
/// @param photos  those with ground
/// @param cell    cell size to show where there is no mosaic
[[nodiscard]] ReportLayers MakeReportLayers(const ReportFiles& files,
                                            const std::vector<GroundPhoto>& photos, double cell);

/// A layer as the page carries it.
struct EncodedLayer {
  std::string name;
  std::string kind;  ///< "jpeg", or "plane": numbers, row by row, little-endian, as a zlib stream
  int bits = 8;      ///< of a plane's numbers
  std::string bytes;
};

/// The layers in few bytes: pictures share `budget` bytes, at a quality that keeps to it, or the
/// lowest.
[[nodiscard]] std::vector<EncodedLayer> EncodeLayers(const ReportLayers& layers,
                                                     std::size_t budget);

}  // namespace tqtortho::host
