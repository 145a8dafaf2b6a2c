// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace tqtortho {

/// Mean colour of one photo over one block of the mosaic grid that it sees completely.
struct ColourSample {
  std::uint32_t block = 0;              ///< number of the block; samples of a photo grow by it
  std::array<std::uint16_t, 3> mean{};  ///< 256ths of a grey value, 0 is not used
  std::uint16_t radius = 0;  ///< 65535ths of the largest distance from the middle of the photo
};

struct PhotoColours {
  int camera = 0;
  std::vector<ColourSample> samples;
};

/// The adjustment of a whole job: a gain per photo and band, and the vignetting of each camera.
struct ColourModel {
  struct Vignette {
    int camera = 0;
    std::array<double, 2> terms{};  ///< log brightness = terms[0] * r^2 + terms[1] * r^4
  };
  std::vector<std::array<double, 3>> logGain;  ///< log of the photo's brightness, per band
  std::vector<Vignette> vignettes;

  /// What a colour of the photo is multiplied with at `radius` (0 in the middle, 1 in the corner).
  [[nodiscard]] double Factor(std::size_t photo, int camera, int band, double radius) const;
};

struct ColourBalanceOptions {
  /// Weight of "no adjustment", in blocks: photos that share little with others keep their colours.
  double prior = 2;
  /// At most so many comparisons are used, evenly spread.
  std::size_t mostComparisons = 1'000'000;
};

/// Finds the gains and vignettes that make photos agree where they see the same block.
///
/// Least squares on the differences of log brightness, with weights that fade where a block does
/// not fit (moving things, gloss), by conjugate gradients. Gains are relative: their mean over the
/// photos is kept at none, so that the colour of the whole does not drift.
[[nodiscard]] ColourModel BalanceColours(const std::vector<PhotoColours>& photos,
                                         const ColourBalanceOptions& options);

}  // namespace tqtortho
