// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"
#include "town/town_camera.h"
#include "town/town_scene.h"

namespace tqtortho::host {

/// Cells of the truth and of the DSM: cell (row, column) of a raster lies at
/// x = (column + 0.5) * cellM, y = sizeM - (row + 0.5) * cellM in the town frame.
struct TownRaster {
  double sizeM = 0;
  double cellM = 0;
  int cells = 0;  ///< per side

  [[nodiscard]] double X(int column) const { return (column + 0.5) * cellM; }
  [[nodiscard]] double Y(int row) const { return cells * cellM - (row + 0.5) * cellM; }
};

inline constexpr std::uint8_t kTruthSeen = 0;
inline constexpr std::uint8_t kTruthOutside = 128;
inline constexpr std::uint8_t kTruthHidden = 255;

/// Each renders one row; rows are independent, so a caller may share them out between threads.
///
/// A pixel is the mean of a 2 x 2 grid of exact samples, of a 4 x 4 grid where those four meet
/// different objects: surfaces are painted smoothly, outlines are not.
void RenderPhotoRow(const TownScene& scene, const TownCamera& camera, int row, int width,
                    std::uint8_t* rgb);
void RenderTruthRow(const TownScene& scene, const TownRaster& raster, int row, std::uint8_t* rgb);
/// Heights and classes belong to the cell's centre.
void SampleHeightRow(const TownScene& scene, const TownRaster& raster, int row, float* heights);
void SampleClassRow(const TownScene& scene, const TownRaster& raster, int row,
                    std::uint8_t* classes);
/// What the photo sees of each cell's centre: kTruthSeen, kTruthHidden or kTruthOutside.
void VisibilityRow(const TownScene& scene, const TownRaster& raster, const TownCamera& camera,
                   int row, std::uint8_t* visibility);

}  // namespace tqtortho::host
