// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/camera_model.h"
#include "core/grid_view.h"
#include "mosaic/mosaic_blend.h"
#include "tqimage/GeoCoefficients.h"

namespace tqtortho {

/// A photo that may supply cells of the mosaic.
struct TexturePhoto {
  std::uint16_t number = 0;  ///< in the job, from 1
  std::string ortho;         ///< its ortho image; the occlusion mask lies beside it
  PhotoCamera camera;
  CellSpan cells;  ///< that the ortho covers, on the mosaic's grid
};

/// What the blocks of one texture share; read only.
struct TextureJob {
  tqimage::GeoCoefficients grid;  ///< of the mosaic, with its size
  std::vector<TexturePhoto> photos;
  std::string dsmPath;
  /// Stands in for heights that the surface model does not give, where nadir angles are compared.
  double startHeight = 0;
};

/// A rectangle of the mosaic.
struct TextureBlock {
  std::vector<std::uint8_t> colours;   ///< three bands interleaved, 0 = nothing
  std::vector<std::uint16_t> numbers;  ///< of the photo that supplies the cell; 0 none, or filled
};

/// Makes the fill texture of some cells from ortho images and occlusion masks.
///
/// Each cell goes to the photo that sees it best (nadir angle, distance to hidden cells and to the
/// end of the photo's data); patches of fewer than 100 cells go to a neighbour that sees them;
/// photos are mixed over four cells beside seams. Colours are the orthos' own, without balancing.
/// Cells that photos cover and none sees, and gaps of at most 100 cells in what they cover, are
/// filled from around (FillUnseen).
///
/// The result depends on what lies within 128 cells of a cell only, so that blocks cut in whatever
/// way fit together without a step; an exception are fills wider than a few tens of cells, which
/// may differ by a grey value.
///
/// An ortho or mask that cannot be read, or is not of the size that its footprint says, supplies
/// nothing. Memory: about four bytes per cell (with 128 more on each side) and photo. Safe from
/// several threads.
///
/// @param cells  inside the grid
void MakeTextureBlock(const TextureJob& job, const CellSpan& cells, TextureBlock& block);

/// Fills `wanted` cells from seen ones around: of the same level first, where heights are given.
///
/// @param numbers  0 where the cell is not seen
/// @param heights  NaN where unknown; empty: all cells are of one level
/// @param colours  three bands interleaved
void FillUnseen(GridView<const std::uint8_t> wanted, GridView<const std::uint16_t> numbers,
                GridView<const float> heights, GridView<std::uint8_t> colours);

}  // namespace tqtortho
