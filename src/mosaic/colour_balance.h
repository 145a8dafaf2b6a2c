// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
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

/// The adjustment of a whole job, on a scale of tones (see tone_scale.h): a brightness and a
/// contrast per photo and band, and the vignetting of each camera. A tone t becomes slope * t +
/// offset.
struct ColourModel {
  struct Vignette {
    int camera = 0;
    std::array<double, 2> terms{};  ///< tone = terms[0] * r^2 + terms[1] * r^4
  };
  struct Band {
    double brightness = 0;  ///< how far the photo's tones lie above the job's at the pivot
    double contrast = 0;    ///< how much steeper they rise than the job's, 0: as steep
  };
  double shoulder = 16;  ///< of the scale, see ToneScale
  std::array<double, 3> pivot{};
  std::vector<std::array<Band, 3>> photos;
  std::vector<Vignette> vignettes;

  [[nodiscard]] double Slope(std::size_t photo, int band) const;
  /// At `radius` (0 in the middle of the photo, 1 in the corner).
  [[nodiscard]] double Offset(std::size_t photo, int camera, int band, double radius) const;
};

struct ColourBalanceOptions {
  /// Weight of "no adjustment", in blocks: photos that share little with others keep their colours.
  double prior = 0.2;
  /// The same for the contrast, at blocks that lie one unit of tone from the pivot.
  double contrastPrior = 1;
  /// At most so many comparisons are used, evenly spread.
  std::size_t mostComparisons = 1'000'000;
};

/// Finds the adjustments that make photos agree where they see the same block.
///
/// Least squares on the differences of tones, with weights that fade where a block does not fit
/// (moving things, gloss), by conjugate gradients. Brightness and contrast are relative: their
/// means over the photos are kept at none, so that neither the colour nor the contrast of the whole
/// drifts. Of several scales of tone, from a camera's bent curve to the plain logarithm, the one is
/// taken on which the adjusted photos differ by the fewest grey values.
[[nodiscard]] ColourModel BalanceColours(const std::vector<PhotoColours>& photos,
                                         const ColourBalanceOptions& options);

}  // namespace tqtortho
