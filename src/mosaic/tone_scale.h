// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace tqtortho {

/// A scale of brightness on which photos of one ground that were exposed differently lie apart by
/// the same distance everywhere:
///
///     tone(v) = ln u - ln(1 - u^k) / k,    u = v / 255
///
/// (a generalised logistic; Richards 1959). In shadows and mid-tones a step on it is a factor, as a
/// longer exposure is. Towards white it becomes smaller and smaller, as cameras bend their curves
/// there, so that no step leads beyond white. The shoulder k says where the bend begins: at 1 in
/// the mid-tones, at 16 just below white, where the scale is the plain logarithm.
class ToneScale {
 public:
  /// @param shoulder  k, above 0
  explicit ToneScale(double shoulder);

  /// Tone of a grey value of 0 to 255; values below 1/2 and above 254.75 count as these.
  [[nodiscard]] double ToneOf(double value) const;
  /// The same from a table, straight between whole grey values; of 0 to 255 only.
  [[nodiscard]] float ToneBetween(float value) const {
    const auto whole = static_cast<std::size_t>(value);
    const float rest = value - static_cast<float>(whole);
    return rest == 0 ? tones_[whole] : tones_[whole] + rest * (tones_[whole + 1] - tones_[whole]);
  }
  /// Grey value of a tone, to a hundredth; safe for every number, NaN gives 0.
  [[nodiscard]] float ValueOf(float tone) const;

 private:
  static constexpr float kDarkest = -6.5F;  ///< below the tone of 1/2 on every scale
  static constexpr float kStep = 1.0F / 512;

  double shoulder_;
  std::array<float, 256> tones_{};
  std::vector<float> values_;  ///< at steps of kStep from kDarkest on
};

}  // namespace tqtortho
