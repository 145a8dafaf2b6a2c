// SPDX-License-Identifier: Apache-2.0
#include "rectify/weighted_median.h"

#include <algorithm>

#include "stage/cv_bridge.h"

namespace tqtortho {
namespace {

/// The blend of one sample in whole numbers. With v = median * w + (255 - w) * pixel <= 65025 the
/// truncated sum of the two rounded quotients is v / 255 for every input (there are 2^24, and a
/// test visits them all), and (v + 1 + (v >> 8)) >> 8 is v / 255 without a division.
std::uint8_t Blend(unsigned median, unsigned weight, unsigned pixel) {
  const unsigned v = median * weight + (255 - weight) * pixel;
  return static_cast<std::uint8_t>((v + 1 + (v >> 8)) >> 8);
}

/// One row of `cols` pixels; `weights` starts at the first of them.
void BlendRow(std::uint8_t* pixels, const std::uint8_t* medians, const std::uint8_t* weights,
              int cols, int bands) {
  for (int col = 0; col < cols; ++col, pixels += bands, medians += bands) {
    const unsigned weight = weights[col];
    if (weight == 0 || pixels[0] == 0) continue;
    for (int band = 0; band < bands; ++band) {
      pixels[band] = Blend(medians[band], weight, pixels[band]);
    }
  }
}

}  // namespace

void BlendMedian(GridView<std::uint8_t> pixels, int bands, GridView<const std::uint8_t> weights,
                 int firstRow, int firstCol) {
  if (bands != 3) return;
  // The overlap in pixels, in 64 bits because the offset may be anywhere.
  const std::int64_t dr = firstRow;
  const std::int64_t dc = firstCol;
  const int rowBegin = static_cast<int>(std::clamp<std::int64_t>(-dr, 0, pixels.rows));
  const int rowEnd = static_cast<int>(std::clamp<std::int64_t>(weights.rows - dr, 0, pixels.rows));
  const int cols = pixels.cols / bands;
  const int colBegin = static_cast<int>(std::clamp<std::int64_t>(-dc, 0, cols));
  const int colEnd = static_cast<int>(std::clamp<std::int64_t>(weights.cols - dc, 0, cols));
  if (rowBegin >= rowEnd || colBegin >= colEnd) return;
  const auto weightsOf = [&](int row) { return weights.Row(row + firstRow) + colBegin + firstCol; };
  const int count = colEnd - colBegin;
  const auto weighty = [&](int row) {
    const std::uint8_t* w = weightsOf(row);
    return std::any_of(w, w + count, [](std::uint8_t weight) { return weight != 0; });
  };

  cv::Mat medians;
  for (int row = rowBegin; row < rowEnd; ++row) {
    if (!weighty(row)) continue;
    if (medians.empty()) cv::medianBlur(AsMat(pixels, bands), medians, 3);
    const std::size_t offset = static_cast<std::size_t>(colBegin) * bands;
    BlendRow(pixels.Row(row) + offset, medians.ptr<std::uint8_t>(row) + offset, weightsOf(row),
             count, bands);
  }
}

}  // namespace tqtortho
