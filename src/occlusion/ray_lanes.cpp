// SPDX-License-Identifier: Apache-2.0
#include "occlusion/ray_lanes.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "occlusion/filtered_march.h"

// Vectors travel between inlined functions only.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace tqtortho {
namespace {

constexpr int kGroup = 8;
/// Rays that move less than this many cells per step along one axis are left undecided.
constexpr double kSlant = 2e-5;

#define TQT_INLINE inline __attribute__((always_inline))
#define TQT_LANE_TYPES(lanes)                                                      \
  constexpr int kLanes = lanes;                                                    \
  using Real = double __attribute__((vector_size(kLanes * sizeof(double))));       \
  using Mask = std::int64_t __attribute__((vector_size(kLanes * sizeof(double)))); \
  using Int = std::int32_t __attribute__((vector_size(kLanes * sizeof(std::int32_t))))

namespace baseline {
TQT_LANE_TYPES(2);
#if defined(__x86_64__)
TQT_INLINE Real Sqrt(Real a) { return _mm_sqrt_pd(a); }
TQT_INLINE unsigned Bits(Mask m) {
  return static_cast<unsigned>(_mm_movemask_pd(reinterpret_cast<__m128d>(m)));
}
#else
TQT_INLINE Real Sqrt(Real a) { return Real{std::sqrt(a[0]), std::sqrt(a[1])}; }
TQT_INLINE unsigned Bits(Mask m) { return static_cast<unsigned>((m[0] & 1) | (m[1] & 2)); }
#endif
TQT_INLINE Real Gather(const float* cells, Int index) {
  return Real{static_cast<double>(cells[index[0]]), static_cast<double>(cells[index[1]])};
}
#include "occlusion/ray_lanes_kernel.inc"
}  // namespace baseline

#if defined(__x86_64__)
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif
namespace avx2 {
TQT_LANE_TYPES(4);
TQT_INLINE Real Sqrt(Real a) { return _mm256_sqrt_pd(a); }
TQT_INLINE unsigned Bits(Mask m) {
  return static_cast<unsigned>(_mm256_movemask_pd(reinterpret_cast<__m256d>(m)));
}
TQT_INLINE Real Gather(const float* cells, Int index) {
  return _mm256_cvtps_pd(_mm_i32gather_ps(cells, reinterpret_cast<__m128i>(index), 4));
}
#include "occlusion/ray_lanes_kernel.inc"
}  // namespace avx2
#if defined(__clang__)
#pragma clang attribute pop
#pragma clang attribute push(__attribute__((target("avx512f,avx512dq,avx512vl,avx512bw"))), \
                             apply_to = function)
#else
#pragma GCC pop_options
#pragma GCC push_options
#pragma GCC target("avx512f,avx512dq,avx512vl,avx512bw")
#endif
namespace avx512 {
TQT_LANE_TYPES(8);
TQT_INLINE Real Sqrt(Real a) { return _mm512_maskz_sqrt_pd(0xff, a); }
TQT_INLINE unsigned Bits(Mask m) { return _mm512_movepi64_mask(reinterpret_cast<__m512i>(m)); }
TQT_INLINE Real Gather(const float* cells, Int index) {
  return _mm512_maskz_cvtps_pd(0xff,
                               _mm256_i32gather_ps(cells, reinterpret_cast<__m256i>(index), 4));
}
#include "occlusion/ray_lanes_kernel.inc"
}  // namespace avx512
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif

}  // namespace

const LaneKernel* LaneKernelOf(std::string_view name) {
#if defined(__x86_64__)
  if (name == "avx512") {
    const bool has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                     __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw");
    return has ? &avx512::kKernel : nullptr;
  }
  if (name == "avx2") return __builtin_cpu_supports("avx2") ? &avx2::kKernel : nullptr;
#endif
  return name == "baseline" ? &baseline::kKernel : nullptr;
}

const LaneKernel& ChooseLaneKernel() {
  const char* forced = std::getenv("TQTORTHO_KERNEL");
  for (const char* name : {forced == nullptr ? "" : forced, "avx512", "avx2"}) {
    if (const LaneKernel* kernel = LaneKernelOf(name)) return *kernel;
  }
  return baseline::kKernel;
}

}  // namespace tqtortho
