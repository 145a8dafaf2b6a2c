// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "walls/wall_evidence.h"

namespace tqtortho {

/// How likely a cell belongs to the upper side, by its distance from the line half way up.
///
/// Surface models from image matching draw roofs too wide, by an amount that depends on the
/// matcher. Where the photos are sure, they tell it for the whole survey.
class WallPrior {
 public:
  static constexpr int kBins = 25;
  static constexpr double kBinWidth = 0.125;  ///< ground units
  /// Without photos: the line half way up, known to about a quarter of a metre.
  WallPrior();
  /// From the counts of both sides in each bin; falls outwards. Few counts leave it as it is.
  WallPrior(const std::array<std::int64_t, kBins>& upper,
            const std::array<std::int64_t, kBins>& lower);

  [[nodiscard]] float Upper(double offset) const;
  /// Where a cell is as likely on one side as on the other: how far walls stand outside (positive)
  /// or inside the line half way up.
  [[nodiscard]] double Displacement() const;
  [[nodiscard]] bool Learned() const { return learned_; }

  [[nodiscard]] static int BinOf(double offset);

 private:
  std::array<float, kBins> upper_{};
  bool learned_ = false;
};

/// The spread that colours have where all photos show the same place: what noise, sampling and
/// uneven brightness leave.
[[nodiscard]] float SpreadOfAgreement(const std::vector<std::vector<WallCell>>& parts);

/// How strongly photos favour the upper side, -1 to 1; 0 when they do not know.
///
/// Photos that look at a wall's outside show its facade, of one colour all over, wherever the cell
/// is tried behind it. So agreement on the lower side proves little, and agreement on the upper
/// side proves it only when photos from across the roof take part; disagreement always tells.
[[nodiscard]] float PhotosFavourUpper(const WallCell& cell, float agreement);

/// Adds the cells of which the photos are sure to the counts.
void CountSureCells(const std::vector<WallCell>& cells, float agreement,
                    std::array<std::int64_t, WallPrior::kBins>& upper,
                    std::array<std::int64_t, WallPrior::kBins>& lower);

}  // namespace tqtortho
