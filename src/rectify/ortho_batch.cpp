// SPDX-License-Identifier: Apache-2.0
//
// From ground cells to positions in the recorded photo, in batches; see ortho_kernel_avx2.cpp.
#if defined(__x86_64__)

#include "rectify/ortho_batch.h"

#include <cfloat>

namespace tqtortho::avx2 {
namespace {

/// Four heights of one tile row, from the columns of `index` on.
TQT_AVX2_INLINE __m256d Gather(const float* row, const int* index) {
  return _mm256_cvtps_pd(_mm_setr_ps(row[index[0]], row[index[1]], row[index[2]], row[index[3]]));
}

TQT_AVX2_INLINE __m128 Narrow(__m256d value) {
  const __m256d largest = Splat(FLT_MAX);
  // Saturated like NarrowToFloat; positions that need it are outside any frame. NaN passes.
  return _mm256_cvtpd_ps(_mm256_max_pd(Splat(-FLT_MAX), _mm256_min_pd(largest, value)));
}

/// Model 3, in place; see lens_distortion.cpp for the formulas.
TQT_AVX2 void DistortForward(const LensDistortion& lens, Batch& batch) {
  const __m256d unit = Splat(lens.focalPixels * lens.pixelSize);
  const __m256d pixelSize = Splat(lens.pixelSize);
  const __m256d two = Splat(2);
  for (int i = 0; i < batch.count; i += 4) {
    const __m256d col = _mm256_cvtps_pd(_mm_load_ps(batch.photoCol + i));
    const __m256d up = _mm256_cvtps_pd(_mm_load_ps(batch.photoUp + i));
    const __m256d x = ((col - Splat(lens.centreCol)) / unit) * pixelSize;
    const __m256d y = ((Splat(lens.height) - up - Splat(lens.centreUp)) / unit) * pixelSize;
    const __m256d r2 = x * x + y * y;
    const __m256d r4 = r2 * r2;
    const __m256d radial = Splat(lens.k1) * r2 + Splat(lens.k2) * r4 + Splat(lens.k3) * (r4 * r2);
    const __m256d xd =
        x + radial * x + Splat(lens.p2) * (two * x * x + r2) + Splat(2.0 * lens.p1) * x * y;
    const __m256d yd =
        y + radial * y + Splat(lens.p1) * (two * y * y + r2) + Splat(2.0 * lens.p2) * x * y;
    const __m256d focal = Splat(lens.focalPixels);
    _mm_store_ps(batch.photoCol + i, Narrow(xd * focal + Splat(lens.centreCol)));
    _mm_store_ps(batch.photoUp + i,
                 Narrow(Splat(lens.height) - (yd * focal + Splat(lens.centreUp))));
  }
}

/// Model 1, in place: eight cells at a time until the last of them has settled.
TQT_AVX2 void InvertCorrection(const LensDistortion& lens, Batch& batch) {
  const __m256d two = Splat(2);
  const __m256d settledAt = Splat(kLensSettled);
  for (int i = 0; i < batch.count; i += 8) {
    __m256d idealCol[2], idealUp[2], dx[2], dy[2], resultCol[2], resultUp[2], open[2];
    for (int k = 0; k < 2; ++k) {
      resultCol[k] = idealCol[k] = _mm256_cvtps_pd(_mm_load_ps(batch.photoCol + i + 4 * k));
      resultUp[k] = idealUp[k] = _mm256_cvtps_pd(_mm_load_ps(batch.photoUp + i + 4 * k));
      dx[k] = dy[k] = _mm256_setzero_pd();
      open[k] = _mm256_castsi256_pd(_mm256_set1_epi64x(-1));
    }
    for (int pass = 0; pass <= kLensPassLimit; ++pass) {
      for (int k = 0; k < 2; ++k) {
        const __m256d col = idealCol[k] - dx[k];
        const __m256d up = idealUp[k] - dy[k];
        const __m256d x = col - Splat(lens.centreCol);
        const __m256d y = up - Splat(lens.centreUp);
        const __m256d r2 = x * x + y * y;
        const __m256d r4 = r2 * r2;
        const __m256d radial =
            Splat(lens.k1) * r2 + Splat(lens.k2) * r4 + Splat(lens.k3) * (r4 * r2);
        const __m256d nextDx = Splat(lens.p1) * (two * x * x + r2) + radial * x +
                               Splat(2.0 * lens.p2) * x * y + Splat(lens.b1) * x +
                               Splat(lens.b2) * y;
        const __m256d nextDy =
            Splat(lens.p2) * (two * y * y + r2) + radial * y + Splat(2.0 * lens.p1) * x * y;
        const __m256d settled =
            _mm256_and_pd(Compare<_CMP_LE_OQ>(Magnitude(nextDx - dx[k]), settledAt),
                          Compare<_CMP_LE_OQ>(Magnitude(nextDy - dy[k]), settledAt));
        const __m256d taken = _mm256_and_pd(open[k], settled);
        resultCol[k] = _mm256_blendv_pd(resultCol[k], col, taken);
        resultUp[k] = _mm256_blendv_pd(resultUp[k], up, taken);
        open[k] = _mm256_andnot_pd(settled, open[k]);
        dx[k] = nextDx;
        dy[k] = nextDy;
      }
      if (_mm256_movemask_pd(_mm256_or_pd(open[0], open[1])) == 0) break;
    }
    for (int k = 0; k < 2; ++k) {
      _mm_store_ps(batch.photoCol + i + 4 * k, Narrow(resultCol[k]));
      _mm_store_ps(batch.photoUp + i + 4 * k, Narrow(resultUp[k]));
    }
  }
}

}  // namespace

TQT_AVX2 void FillHeights(const SurfaceTile& tile, const ColumnTable& table, double tileRow,
                          int first, int count, double* height) {
  const int row = TruncToInt(tileRow);
  const bool rowBlends = tileRow + 1 < tile.heights.rows && tileRow - 1 > 0;
  int begin = rowBlends ? std::clamp(table.firstBlended - first, 0, count) : count;
  int end = rowBlends ? std::clamp(table.endBlended - first, begin, count) : count;
  end = begin + (end - begin) / 4 * 4;
  const auto one = [&](int i) { height[i] = CellHeight(tile, table.tileCol[first + i], tileRow); };
  for (int i = 0; i < begin; ++i) one(i);
  if (begin < end) {
    const float* upper = tile.heights.Row(row);
    const float* lower = tile.heights.Row(row + 1);
    const double fy = tileRow - row;
    const __m256d noData = Splat(tile.noData);
    const __m256d tolerance = Splat(kRectifyNoDataTolerance);
    for (int i = begin; i < end; i += 4) {
      const int* index = table.wholeCol.data() + first + i;
      const __m256d fx =
          _mm256_loadu_pd(table.tileCol.data() + first + i) -
          _mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(index)));
      const __m256d v0 = Gather(upper, index);
      const __m256d v1 = Gather(upper + 1, index);
      const __m256d v2 = Gather(lower, index);
      const __m256d v3 = Gather(lower + 1, index);
      const __m256d valid =
          _mm256_and_pd(_mm256_and_pd(Compare<_CMP_GT_OQ>(Magnitude(v0 - noData), tolerance),
                                      Compare<_CMP_GT_OQ>(Magnitude(v1 - noData), tolerance)),
                        _mm256_and_pd(Compare<_CMP_GT_OQ>(Magnitude(v2 - noData), tolerance),
                                      Compare<_CMP_GT_OQ>(Magnitude(v3 - noData), tolerance)));
      const __m256d ex = Splat(1) - fx;
      const __m256d ey = Splat(1 - fy);
      const __m256d blend = ex * ey * v0 + fx * ey * v1 + ex * Splat(fy) * v2 + fx * Splat(fy) * v3;
      const __m256d lost = Compare<_CMP_LT_OQ>(Magnitude(blend - noData), tolerance);
      _mm256_storeu_pd(height + i, blend);
      if (_mm256_movemask_pd(_mm256_andnot_pd(lost, valid)) != 15) {
        for (int k = i; k < i + 4; ++k) one(k);
      }
    }
  }
  for (int i = end; i < count; ++i) one(i);
}

TQT_AVX2 void Project(const PhotoCamera& camera, const double* dXs, double dYs, bool wantDistance,
                      int count, Batch& batch) {
  const double* m = camera.rotation;
  const __m256d b1 = Splat(m[3] * dYs);
  const __m256d b2 = Splat(m[4] * dYs);
  const __m256d b3 = Splat(m[5] * dYs);
  const __m256d minusFocal = Splat(-camera.focal);
  const __m256d pixelSize = Splat(camera.pixelSize);
  for (int i = 0; i < count; i += 4) {
    const __m256d dX = _mm256_loadu_pd(dXs + i);
    const __m256d dZ = _mm256_load_pd(batch.height + i) - Splat(camera.centre.z);
    const __m256d den = Splat(m[2]) * dX + b3 + Splat(m[8]) * dZ;
    const __m256d x = minusFocal * (Splat(m[0]) * dX + b1 + Splat(m[6]) * dZ) / den;
    const __m256d y = minusFocal * (Splat(m[1]) * dX + b2 + Splat(m[7]) * dZ) / den;
    _mm256_store_pd(batch.col + i,
                    (x + Splat(camera.offsetX)) / pixelSize + Splat(camera.width * 0.5));
    _mm256_store_pd(batch.up + i,
                    (y + Splat(camera.offsetY)) / pixelSize + Splat(camera.height * 0.5));
    if (wantDistance) {
      const __m256d square = dX * dX + Splat(dYs * dYs) + dZ * dZ;
      _mm256_store_pd(batch.distance + i, Splat(kDistanceScale) * _mm256_sqrt_pd(square));
    }
  }
}

TQT_AVX2 bool KeepInFrame(const PhotoCamera& camera, int count, Batch& batch) {
  const __m256d zero = _mm256_setzero_pd();
  const __m256d width = Splat(camera.width);
  const __m256d top = Splat(camera.height);
  const __m128i ramp = _mm_setr_epi32(0, 1, 2, 3);
  int kept = 0;
  for (int i = 0; i < count; i += 4) {
    const __m256d col = _mm256_load_pd(batch.col + i);
    const __m256d up = _mm256_load_pd(batch.up + i);
    if (_mm256_movemask_pd(Compare<_CMP_EQ_OQ>(up, top)) != 0) return false;
    const __m256d inside = _mm256_and_pd(
        _mm256_and_pd(Compare<_CMP_GE_OQ>(col, zero), Compare<_CMP_LT_OQ>(col, width)),
        _mm256_and_pd(Compare<_CMP_GE_OQ>(up, zero), Compare<_CMP_LT_OQ>(up, top)));
    const int mask = _mm256_movemask_pd(inside) & ((1 << std::min(4, count - i)) - 1);
    if (mask == 15) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(batch.lane + kept),
                       _mm_add_epi32(_mm_set1_epi32(i), ramp));
      _mm_storeu_ps(batch.photoCol + kept, _mm256_cvtpd_ps(col));
      _mm_storeu_ps(batch.photoUp + kept, _mm256_cvtpd_ps(up));
      kept += 4;
      continue;
    }
    for (int k = 0; k < 4; ++k) {
      if ((mask >> k & 1) == 0) continue;
      batch.lane[kept] = i + k;
      batch.photoCol[kept] = static_cast<float>(batch.col[i + k]);
      batch.photoUp[kept] = static_cast<float>(batch.up[i + k]);
      ++kept;
    }
  }
  batch.count = kept;
  return true;
}

void CorrectForLens(const LensDistortion& lens, Batch& batch) {
  if (lens.model == 1) InvertCorrection(lens, batch);
  if (lens.model == 3) DistortForward(lens, batch);
}

}  // namespace tqtortho::avx2

#endif
