// SPDX-License-Identifier: Apache-2.0
#include "mosaic/mosaic_layer.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "core/grid_view.h"
#include "core/numeric.h"
#include "mosaic/measured_cell.h"
#include "mosaic/view_rating.h"
#include "rectify/samplers.h"
#include "stage/call_guard.h"
#include "tqimage/TqImage.h"
#include "visibility/photo_visibility.h"
#include "visibility/step_surface.h"
#include "visibility/surface_visibility.h"

namespace tqtortho::host {
namespace {

using tqimage::GeoCoefficients;
using tqimage::TqImage;
using tqorkit::PhotoInfo;

/// Cells whose surface quad is a wall, or this many quads beside one, are taken from the photo
/// again: blends of heights reach over one quad, and the refinement of orthos along borders
/// further.
constexpr int kWallReach = 1;

/// What is known while one layer is made.
struct Layer {
  PhotoInfo ortho;
  VisibilityLattice lattice;
  std::vector<std::uint8_t> rating;
  std::vector<float> heights;
  std::vector<std::uint8_t> atWall;    ///< 1 where the cell lies in or beside a wall
  std::vector<std::uint8_t> replaced;  ///< 1 where the pixels are not the ortho's any more

  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(lattice.cols) +
           static_cast<std::size_t>(col);
  }
  [[nodiscard]] double X(int col) const { return lattice.firstX + col * lattice.step; }
  [[nodiscard]] double Y(int row) const { return lattice.firstY - row * lattice.step; }
};

bool ReadOrtho(const MosaicGrid& grid, MosaicPhoto& photo, Layer& layer, std::string& error) {
  GeoCoefficients at;
  if (!TqImage::QuickReadImage(photo.orthoPath, layer.ortho, &at)) {
    error = photo.orthoPath + ": cannot be read; the photo is left out of the mosaic";
    return false;
  }
  const auto origin = at.GetOrigin();
  const auto cell = at.GetResolution();
  const double col = (origin.x - grid.minX) / grid.step;
  const double row = (grid.maxY - origin.y) / grid.step;
  const bool onGrid =
      std::fabs(cell.x / grid.step - 1) < 1e-6 && std::fabs(cell.y / grid.step + 1) < 1e-6 &&
      std::fabs(col - std::round(col)) < 0.05 && std::fabs(row - std::round(row)) < 0.05;
  if (!onGrid || layer.ortho.dataType != tqimage::kByte || layer.ortho.bands < 1) {
    error = photo.orthoPath + ": is no 8-bit raster on the job's grid; run the job again";
    return false;
  }
  photo.firstCol = TruncToInt(std::round(col));
  photo.firstRow = TruncToInt(std::round(row));
  photo.cols = layer.ortho.width;
  photo.rows = layer.ortho.height;
  layer.lattice = {grid.minX + photo.firstCol * grid.step, grid.maxY - photo.firstRow * grid.step,
                   grid.step, photo.rows, photo.cols};
  return true;
}

/// What the photo sees by its occlusion mask.
bool ReadMask(const MosaicPhoto& photo, Layer& layer, std::string& error) {
  constexpr std::uint8_t kHidden = 255;
  PhotoInfo mask;
  if (!TqImage::QuickReadImage(photo.maskPath, mask, nullptr)) {
    error = photo.maskPath + ": cannot be read; the photo is left out of the mosaic";
    return false;
  }
  if (mask.width != photo.cols || mask.height != photo.rows || mask.bands != 1 ||
      mask.dataType != tqimage::kByte) {
    error = photo.maskPath + ": is no mask of the size of its ortho image; run the job again";
    return false;
  }
  layer.rating.resize(mask.data.size());
  std::transform(mask.data.begin(), mask.data.end(), layer.rating.begin(),
                 [](std::uint8_t cell) { return cell == kHidden ? kHiddenView : std::uint8_t{0}; });
  return true;
}

/// Cells without data count as outside: 0 in all bands, or 1 where the photo's pixels are invalid.
void DropEmptyCells(Layer& layer) {
  const int bands = layer.ortho.bands;
  const std::uint8_t* p = layer.ortho.data.data();
  for (std::uint8_t& rating : layer.rating) {
    const bool empty = std::all_of(p, p + bands, [](std::uint8_t v) { return v == 0; }) ||
                       std::all_of(p, p + bands, [](std::uint8_t v) { return v == 1; });
    if (empty) rating = kOutsideView;
    p += bands;
  }
}

/// Heights of all cells, and where walls are.
void FindHeights(const StepSurface& surface, const SurfacePlacement& placement, double known,
                 Layer& layer) {
  // Walls are known to a measured cell, on half cells as well.
  const int reach = kWallReach * (known > 1.5 * placement.cellX ? 2 : 1);
  const int quadRows = surface.QuadRows();
  const int quadCols = surface.QuadCols();
  std::vector<std::uint8_t> nearWall(
      static_cast<std::size_t>(std::max(quadRows, 0)) * std::max(quadCols, 0), 0);
  const GridView<std::uint8_t> walls(nearWall.data(), quadRows, quadCols);
  for (int r = 0; r < quadRows; ++r) {
    const StepSurface::Quad* quads =
        surface.Quads() + static_cast<std::size_t>(r) * static_cast<std::size_t>(quadCols);
    for (int c = 0; c < quadCols; ++c) {
      if (StepSurface::KindOf(quads[c]) != StepSurface::kSplit) continue;
      for (int i = std::max(r - reach, 0); i <= std::min(r + reach, quadRows - 1); ++i) {
        for (int j = std::max(c - reach, 0); j <= std::min(c + reach, quadCols - 1); ++j) {
          walls.At(i, j) = 1;
        }
      }
    }
  }
  const VisibilityLattice& lattice = layer.lattice;
  layer.heights.resize(layer.rating.size());
  layer.atWall.assign(layer.rating.size(), 0);
  // Where the columns lie among the quads is the same in all rows.
  std::vector<double> across(static_cast<std::size_t>(lattice.cols));
  std::vector<int> quadAcross(across.size());
  for (int col = 0; col < lattice.cols; ++col) {
    across[col] = (layer.X(col) - placement.originX) / placement.cellX;
    quadAcross[col] = FloorToInt(across[col]);
  }
  for (int row = 0; row < lattice.rows; ++row) {
    GiveUpIfRaised(&processStop);
    const double v = (placement.originY - layer.Y(row)) / placement.cellY;
    const int quadRow = FloorToInt(v);
    float* heights = layer.heights.data() + layer.Index(row, 0);
    surface.HeightsAt(v, across, heights);
    if (quadRow < 0 || quadRow >= quadRows) continue;
    std::uint8_t* out = layer.atWall.data() + layer.Index(row, 0);
    const std::uint8_t* wall = walls.Row(quadRow);
    for (int col = 0; col < lattice.cols; ++col) {
      const int quadCol = quadAcross[col];
      if (quadCol >= 0 && quadCol < quadCols) out[col] = wall[quadCol];
    }
  }
}

/// Takes the cells beside walls from the photo again.
void ResampleWalls(const MosaicPhoto& photo, int orthoBands, Layer& layer) {
  layer.replaced.assign(layer.rating.size(), 0);
  const auto wanted = [&layer](std::size_t i) {
    return layer.atWall[i] != 0 && layer.rating[i] == 0;
  };
  std::size_t first = 0;
  while (first < layer.rating.size() && !wanted(first)) ++first;
  if (first == layer.rating.size()) return;
  PhotoInfo image;
  if (!TqImage::QuickReadImage(photo.photoPath, image, nullptr) ||
      image.dataType != tqimage::kByte || image.bands != orthoBands) {
    return;  // the ortho's own colours stay
  }
  const PhotoRaster raster{image.data.data(), image.width, image.height, image.bands};
  std::vector<std::uint8_t> sample(static_cast<std::size_t>(image.bands));
  for (int row = 0; row < layer.lattice.rows; ++row) {
    GiveUpIfRaised(&processStop);
    for (int col = 0; col < layer.lattice.cols; ++col) {
      const std::size_t i = layer.Index(row, col);
      if (!wanted(i)) continue;
      double column = 0;
      double line = 0;
      if (!PhotoPosition(photo.camera, layer.X(col), layer.Y(row), layer.heights[i], column,
                         line)) {
        continue;
      }
      SamplePhoto(raster, Resampling::kBilinear, column, line, sample.data());
      if (std::all_of(sample.begin(), sample.end(),
                      [](std::uint8_t v) { return v == kInvalidSample; })) {
        continue;
      }
      for (std::size_t b = 0; b < 3; ++b) {
        layer.ortho.data[3 * i + b] = std::max<std::uint8_t>(sample[sample.size() >= 3 ? b : 0], 1);
      }
      layer.replaced[i] = 1;
    }
  }
}

/// Makes a view of a roof's edge worse where the photo also shows the wall below that edge.
///
/// An edge is known to a fraction of a surface cell. Where the wall faces the camera, being wrong
/// by a cell shows the facade; a camera on the other side sees roof or ground, whichever it is.
void AvoidWallTops(const MosaicPhoto& photo, double surfaceCell, Layer& layer) {
  constexpr double kWorse = 220;  // more than the slack of small patches, which else give it back
  constexpr float kDrop = 1;
  const VisibilityLattice& lattice = layer.lattice;
  const int reach = std::max(TruncToInt(0.6 * surfaceCell / lattice.step + 1.5), 2);
  for (int row = 0; row < lattice.rows; ++row) {
    GiveUpIfRaised(&processStop);
    for (int col = 0; col < lattice.cols; ++col) {
      const std::size_t i = layer.Index(row, col);
      if (layer.atWall[i] == 0 || !IsSeen(layer.rating[i])) continue;
      const double dX = photo.camera.centre.x - layer.X(col);
      const double dY = photo.camera.centre.y - layer.Y(row);
      const double away = std::sqrt(dX * dX + dY * dY);
      if (!(away > lattice.step)) continue;
      float lowest = layer.heights[i];
      for (int k = 1; k <= reach; ++k) {
        const int r = row - TruncToInt(std::round(k * dY / away));
        const int c = col + TruncToInt(std::round(k * dX / away));
        if (r < 0 || r >= lattice.rows || c < 0 || c >= lattice.cols) break;
        lowest = std::min(lowest, layer.heights[layer.Index(r, c)]);
      }
      const float drop = layer.heights[i] - lowest;
      if (!(drop > kDrop)) continue;
      // The facade is as wide as this many cells in the ortho.
      const double width = drop * away / (photo.camera.centre.z - layer.heights[i]) / lattice.step;
      const double worse = layer.rating[i] + kWorse * std::clamp(width, 0.0, 1.0);
      layer.rating[i] = static_cast<std::uint8_t>(std::min<double>(worse, kWorstView));
    }
  }
}

/// Mean colours of the blocks of the mosaic's grid that the photo sees completely.
void CollectColours(const MosaicGrid& grid, const MosaicPhoto& photo, const Layer& layer,
                    PhotoColours& colours) {
  colours.camera = photo.cameraId;
  colours.samples.clear();
  const int blocksAcross = (grid.cols + kColourBlock - 1) / kColourBlock;
  const int firstDown = (photo.firstRow + kColourBlock - 1) / kColourBlock;
  const int firstAcross = (photo.firstCol + kColourBlock - 1) / kColourBlock;
  for (int down = firstDown; (down + 1) * kColourBlock <= photo.firstRow + photo.rows; ++down) {
    for (int across = firstAcross; (across + 1) * kColourBlock <= photo.firstCol + photo.cols;
         ++across) {
      std::array<double, 3> sum{};
      bool whole = true;
      const int row0 = down * kColourBlock - photo.firstRow;
      const int col0 = across * kColourBlock - photo.firstCol;
      for (int r = row0; r < row0 + kColourBlock && whole; ++r) {
        for (int c = col0; c < col0 + kColourBlock; ++c) {
          const std::size_t i = layer.Index(r, c);
          if (!IsSeen(layer.rating[i])) {
            whole = false;
            break;
          }
          for (std::size_t b = 0; b < 3; ++b) {
            sum[b] += layer.ortho.data[3 * i + b];
          }
        }
      }
      if (!whole) continue;
      ColourSample sample;
      sample.block = static_cast<std::uint32_t>(down) * static_cast<std::uint32_t>(blocksAcross) +
                     static_cast<std::uint32_t>(across);
      for (std::size_t b = 0; b < 3; ++b) {
        const double mean = sum[b] / (kColourBlock * kColourBlock);
        sample.mean[b] = static_cast<std::uint16_t>(std::clamp(mean * 256, 1.0, 65535.0));
      }
      const int r = row0 + kColourBlock / 2;
      const int c = col0 + kColourBlock / 2;
      const double radius =
          PhotoRadius(photo.camera, layer.X(c), layer.Y(r), layer.heights[layer.Index(r, c)]);
      sample.radius = static_cast<std::uint16_t>(std::clamp(radius, 0.0, 1.0) * 65535);
      colours.samples.push_back(sample);
    }
  }
}

/// Makes the ortho's pixels three bands; grey becomes three times the same.
void MakeThreeBands(Layer& layer) {
  const auto bands = static_cast<std::size_t>(layer.ortho.bands);
  if (bands == 3) return;
  std::vector<std::uint8_t> pixels(3 * layer.rating.size());
  for (std::size_t i = 0; i < layer.rating.size(); ++i) {
    for (std::size_t b = 0; b < 3; ++b) {
      pixels[3 * i + b] = layer.ortho.data[i * bands + (bands > 3 ? b : 0)];
    }
  }
  layer.ortho.data.swap(pixels);
  layer.ortho.bands = 3;
}

bool Make(const MosaicGrid& grid, const std::string& dsmPath, MosaicPhoto& photo, LayerStore& store,
          PhotoColours& colours, std::string& error) {
  Layer layer;
  if (!ReadOrtho(grid, photo, layer, error) || !ReadMask(photo, layer, error)) return false;
  const VisibilityLattice& lattice = layer.lattice;
  const tqfd::Rect2_T<double> rect{lattice.firstX, layer.Y(lattice.rows - 1),
                                   layer.X(lattice.cols - 1), lattice.firstY};
  PhotoInfo heights;
  GeoCoefficients at;
  if (!ReadSurfacePart(dsmPath, rect, photo.camera.centre, heights, at)) {
    error = dsmPath + ": has no heights under photo " + photo.name + ", or cannot be read";
    return false;
  }
  const auto origin = at.GetOrigin();
  const auto cell = at.GetResolution();
  const SurfacePlacement placement{origin.x, origin.y, cell.x, -cell.y};
  const StepSurface surface(GridView<const float>(reinterpret_cast<float*>(heights.data.data()),
                                                  heights.height, heights.width),
                            heights.noData, StepSurface::DefaultWallStep(cell.x));
  const GridView<std::uint8_t> rating(layer.rating.data(), lattice.rows, lattice.cols);
  DropEmptyCells(layer);
  const int orthoBands = layer.ortho.bands;
  MakeThreeBands(layer);
  const double known = MeasuredCell(dsmPath, cell.x);
  FindHeights(surface, placement, known, layer);
  CollectColours(grid, photo, layer, colours);
  ResampleWalls(photo, orthoBands, layer);
  ViewRatingOptions options;
  options.cellSize = grid.step;
  options.stop = &processStop;
  options.hiddenMargin = 1 + known / grid.step;
  RateView(photo.camera, lattice,
           GridView<const float>(layer.heights.data(), lattice.rows, lattice.cols), options,
           rating);
  AvoidWallTops(photo, known, layer);
  if (!store.Put(static_cast<std::size_t>(photo.number), rating, layer.replaced.data(),
                 layer.ortho.data)) {
    error = store.Directory() + ": cannot be written to; is the disk full?";
    return false;
  }
  photo.usable = true;
  return true;
}

}  // namespace

bool PhotoPosition(const PhotoCamera& camera, double x, double y, double z, double& column,
                   double& row) {
  const auto image = ImageFromGround(camera, x, y, z);
  const auto ideal = PixelFromImage(camera, image);
  const double* m = camera.rotation;
  const double depth =
      m[2] * (x - camera.centre.x) + m[5] * (y - camera.centre.y) + m[8] * (z - camera.centre.z);
  if (!(depth * camera.focal < 0)) return false;
  if (!(ideal.x >= 0 && ideal.x < camera.width && ideal.y >= 0 && ideal.y < camera.height)) {
    return false;
  }
  const auto recorded =
      RecordedFromIdeal(camera.lens, {NarrowToFloat(ideal.x), NarrowToFloat(ideal.y)});
  column = recorded.x;
  row = camera.height - recorded.y;
  return column >= 0 && column < camera.width && row >= 0 && row < camera.height;
}

double PhotoRadius(const PhotoCamera& camera, double x, double y, double z) {
  constexpr double kBeyond = 2;
  const auto ideal = PixelFromImage(camera, ImageFromGround(camera, x, y, z));
  const double dCol = ideal.x - camera.width * 0.5;
  const double dRow = ideal.y - camera.height * 0.5;
  const double radius =
      2 * std::sqrt((dCol * dCol + dRow * dRow) /
                    (camera.width * camera.width + camera.height * camera.height));
  return radius < kBeyond ? radius : kBeyond;
}

bool MakeMosaicLayer(const MosaicGrid& grid, const std::string& dsmPath, MosaicPhoto& photo,
                     LayerStore& store, PhotoColours& colours, std::string& error) {
  photo.usable = false;
  if (Guarded([&] { return Make(grid, dsmPath, photo, store, colours, error); })) return true;
  if (error.empty()) error = "photo " + photo.name + ": not enough memory for its layer";
  return false;
}

}  // namespace tqtortho::host
