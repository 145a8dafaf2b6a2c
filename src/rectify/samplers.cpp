// SPDX-License-Identifier: Apache-2.0
#include "rectify/samplers.h"

#include <cmath>
#include <cstring>

#include "core/numeric.h"

namespace tqtortho {
namespace {

/// The one inside test of both blends: a position with a whole 2 x 2 block that keeps off the first
/// column and row. NaN fails it.
bool BlendsAt(double column, double row, int width, int height) {
  return column + 1 < width && row + 1 < height && column - 1 > 0 && row - 1 > 0;
}

bool HasNearest(double column, double row, int width, int height) {
  return column >= 0 && column + 0.5 < width && row >= 0 && row + 0.5 < height;
}

/// Values in the order upper left, upper right, lower left, lower right.
double Blend(const double values[4], double fx, double fy) {
  return (1 - fx) * (1 - fy) * values[0] + fx * (1 - fy) * values[1] + (1 - fx) * fy * values[2] +
         fx * fy * values[3];
}

}  // namespace

double SurfaceNearest(const SurfaceTile& tile, double column, double row) {
  if (!HasNearest(column, row, tile.heights.cols, tile.heights.rows)) return tile.noData;
  return tile.heights.At(TruncToInt(row + 0.5), TruncToInt(column + 0.5));
}

double SurfaceBilinear(const SurfaceTile& tile, double column, double row) {
  if (!BlendsAt(column, row, tile.heights.cols, tile.heights.rows)) {
    return SurfaceNearest(tile, column, row);
  }
  const int c = TruncToInt(column);
  const int r = TruncToInt(row);
  const float* upper = tile.heights.Row(r) + c;
  const float* lower = tile.heights.Row(r + 1) + c;
  double values[4] = {upper[0], upper[1], lower[0], lower[1]};
  bool valid[4];
  int count = 0;
  for (int i = 0; i < 4; ++i) {
    valid[i] = std::fabs(values[i] - tile.noData) > kRectifyNoDataTolerance;
    count += valid[i] ? 1 : 0;
  }
  if (count < 3) return tile.noData;
  // Kept: the sum includes the no-data value itself, so next to a single missing cell the height
  // is drawn towards it (thousands of units for -9999).
  const double fill = (values[0] + values[1] + values[2] + values[3]) / count;
  for (int i = 0; i < 4; ++i) {
    if (!valid[i]) values[i] = fill;
  }
  return Blend(values, column - c, row - r);
}

void PhotoNearest(const PhotoRaster& photo, double column, double row, std::uint8_t* out) {
  const auto bands = static_cast<std::size_t>(photo.bands);
  if (HasNearest(column, row, photo.width, photo.height)) {
    std::memcpy(out, photo.At(TruncToInt(row + 0.5), TruncToInt(column + 0.5)), bands);
  } else {
    std::memset(out, kInvalidSample, bands);
  }
}

void PhotoBilinear(const PhotoRaster& photo, double column, double row, std::uint8_t* out) {
  if (!BlendsAt(column, row, photo.width, photo.height)) {
    PhotoNearest(photo, column, row, out);
    return;
  }
  const int c = TruncToInt(column);
  const int r = TruncToInt(row);
  const std::uint8_t* upper = photo.At(r, c);
  const std::uint8_t* lower = photo.At(r + 1, c);
  for (int band = 0; band < photo.bands; ++band) {
    const int block[4] = {upper[band], upper[band + photo.bands], lower[band],
                          lower[band + photo.bands]};
    int count = 0;
    for (const int value : block) count += value != kInvalidSample ? 1 : 0;
    if (count < 3) {
      out[band] = kInvalidSample;
      continue;
    }
    const int fill = (block[0] + block[1] + block[2] + block[3]) / count;
    double values[4];
    for (int i = 0; i < 4; ++i) values[i] = block[i] == kInvalidSample ? fill : block[i];
    out[band] = static_cast<std::uint8_t>(TruncToInt(Blend(values, column - c, row - r)));
  }
}

void SamplePhoto(const PhotoRaster& photo, Resampling method, double column, double row,
                 std::uint8_t* out) {
  if (method == Resampling::kBilinear) {
    PhotoBilinear(photo, column, row, out);
  } else {
    PhotoNearest(photo, column, row, out);
  }
}

}  // namespace tqtortho
