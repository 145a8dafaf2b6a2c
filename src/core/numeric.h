// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>

namespace tqtortho {

// Results must not depend on how a compiler keeps intermediates (x87 would).
static_assert(FLT_EVAL_METHOD == 0);

/// Below this magnitude a double counts as zero.
inline constexpr double kZeroTolerance = 1e-5;
/// A ground resolution below this magnitude counts as "not given".
inline constexpr double kResolutionTolerance = 1e-10;
/// Heights closer than this to the no-data value are no data, in rectification ...
inline constexpr double kRectifyNoDataTolerance = 0.001;
/// ... and in ray tracing.
inline constexpr double kTraceNoDataTolerance = 1e-6;
/// One degree in radians.
inline constexpr double kDegree = std::numbers::pi / 180;
/// No-data value of heights whose file names an unusable one.
inline constexpr double kDefaultNoData = -9999.0;

/// Truncation toward zero, defined for every double: out-of-range values saturate and NaN gives
/// the smallest int, so that an index test on the result rejects them. A plain cast would be
/// undefined there, and the empty rectangle holds 1.8e308.
inline int TruncToInt(double value) {
  if (!(value > -2147483649.0)) return std::numeric_limits<int>::min();
  if (value >= 2147483648.0) return std::numeric_limits<int>::max();
  return static_cast<int>(value);
}

/// What TruncToInt64 saturates at. Far beyond every size that can be held, and small enough that
/// sums and differences of a few saturated sizes still fit 64 bits.
inline constexpr std::int64_t kHugeSize = std::int64_t{1} << 60;

/// As TruncToInt, for sizes and positions that are added up before they are checked.
inline std::int64_t TruncToInt64(double value) {
  if (!(value > -static_cast<double>(kHugeSize))) return -kHugeSize;
  if (value >= static_cast<double>(kHugeSize)) return kHugeSize;
  return static_cast<std::int64_t>(value);
}

/// Floor as int with the same treatment of what does not fit.
inline int FloorToInt(double value) { return TruncToInt(std::floor(value)); }

/// Narrowing to single precision, spelled out where bytes depend on it. Values beyond the float
/// range saturate (the plain conversion is undefined there); NaN stays NaN.
inline float NarrowToFloat(double value) {
  if (value > static_cast<double>(FLT_MAX)) return std::isinf(value) ? HUGE_VALF : FLT_MAX;
  if (value < -static_cast<double>(FLT_MAX)) return std::isinf(value) ? -HUGE_VALF : -FLT_MAX;
  return static_cast<float>(value);
}

}  // namespace tqtortho
