// SPDX-License-Identifier: Apache-2.0
#include "rectify/border_weights.h"

#include <algorithm>
#include <vector>

#include "core/grid_view.h"
#include "stage/border_mask.h"
#include "stage/cv_bridge.h"
#include "tqimage/TqImage.h"

namespace tqtortho {
namespace {

/// Indices into a tile of `count` cells for `size` ground positions from `first` on, -1 outside.
template <class CellOf>
std::vector<int> TileIndices(int size, int count, CellOf cellOf) {
  std::vector<int> indices(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) {
    const int cell = cellOf(i);
    indices[i] = cell >= 0 && cell < count ? cell : -1;
  }
  return indices;
}

/// The value that marks borders in a tile: the line of the step where the mask tells it apart, else
/// the tall border. A mask that fills most of the tile with tall borders means ground to be traced,
/// not borders; then nothing is marked (0).
std::uint8_t BorderValue(const BorderTile& tile) {
  const auto lines = std::count(tile.cells.begin(), tile.cells.end(), kBorderLine);
  if (lines > 0) return kBorderLine;
  const auto borders = std::count(tile.cells.begin(), tile.cells.end(), kTallBorder);
  const bool sparse = 2 * static_cast<std::size_t>(borders) < tile.cells.size();
  return borders > 0 && sparse ? kTallBorder : std::uint8_t{0};
}

/// Marks the cells of `weights` whose nearest cell of the border mask holds `value`.
bool MarkBorders(const BorderTile& tile, std::uint8_t value, const tqorkit::PhotoInfo& lattice,
                 GridView<std::uint8_t> weights) {
  const auto& geo = tile.coefficients;
  const auto cols = TileIndices(weights.cols, tile.cols, [&](int col) {
    const double x = lattice.geoRect[0] + col * lattice.resX;
    return geo.World2Raster(x, lattice.geoRect[3], -1, -1).x - tile.cellRect.minX;
  });
  const auto rows = TileIndices(weights.rows, tile.rows, [&](int row) {
    const double y = lattice.geoRect[3] + row * lattice.resY;
    return geo.World2Raster(lattice.geoRect[0], y, -1, -1).y - tile.cellRect.minY;
  });
  const GridView<const std::uint8_t> borders(tile.cells.data(), tile.rows, tile.cols);
  bool any = false;
  for (int row = 0; row < weights.rows; ++row) {
    if (rows[row] < 0) continue;
    const std::uint8_t* borderRow = borders.Row(rows[row]);
    std::uint8_t* weightRow = weights.Row(row);
    for (int col = 0; col < weights.cols; ++col) {
      if (cols[col] < 0 || borderRow[cols[col]] != value) continue;
      weightRow[col] = 255;
      any = true;
    }
  }
  return any;
}

}  // namespace

tqorkit::PhotoInfo MakeBorderWeights(const tqorkit::PhotoInfo& ortho) {
  tqorkit::PhotoInfo mask;
  mask.resX = ortho.resX;
  mask.resY = ortho.resY;
  mask.geoRect[0] = ortho.geoRect[0] - kBorderFeather * ortho.resX;
  mask.geoRect[3] = ortho.geoRect[3] - kBorderFeather * ortho.resY;
  mask.geoRect[2] = ortho.geoRect[0] + (ortho.width + kBorderFeather) * ortho.resX;
  mask.geoRect[1] = ortho.geoRect[3] + (ortho.height + kBorderFeather) * ortho.resY;
  const auto tile =
      ReadBorderTile({mask.geoRect[0], mask.geoRect[1], mask.geoRect[2], mask.geoRect[3]});
  const std::uint8_t value = tile ? BorderValue(*tile) : std::uint8_t{0};
  if (value == 0) return mask;

  const int width = ortho.width + 2 * kBorderFeather;
  const int height = ortho.height + 2 * kBorderFeather;
  mask.data.resize(static_cast<std::size_t>(width) * height);
  const GridView<std::uint8_t> weights(mask.data.data(), height, width);
  if (!MarkBorders(*tile, value, mask, weights)) {
    mask.data.clear();
    return mask;
  }
  mask.width = width;
  mask.height = height;
  mask.bands = 1;
  mask.dataType = tqimage::kByte;
  // Each ring is the last one's neighbourhood, a quarter lower.
  cv::Mat image = AsMat(weights);
  cv::Mat ring;
  for (int i = 0; i < kBorderFeather; ++i) {
    Dilate3x3(image, ring);
    cv::subtract(ring, cv::Scalar(64), ring);
    cv::max(image, ring, image);
  }
  return mask;
}

}  // namespace tqtortho
