// SPDX-License-Identifier: Apache-2.0
//
// The production loop in batches of cells, for processors with AVX2.
//
// Every row is worked off in batches: heights, positions, lens, photo samples, z-buffer, each as
// one loop over small arrays that stay in the first-level cache. Operations and their order are
// those of the scalar way, cell by cell; nothing is fused (FMA stays off) and nothing is hoisted
// but what depends on the column or the row alone, so all bytes agree. The one expression that
// differs is the photo blend; BlendPixels says why its result cannot.
//
// Vector types carry the usual operators (GCC, Clang), so formulas read as in the scalar code.
#include "rectify/ortho_run.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "core/numeric.h"

#define TQT_AVX2 __attribute__((target("avx2")))
#define TQT_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace tqtortho {
namespace {

constexpr int kBatch = 256;

/// What depends on the column alone.
struct ColumnTable {
  explicit ColumnTable(const OrthoTask& task) {
    const int cols = task.grid.cols;
    const int tileCols = task.tile.heights.cols;
    dX.resize(cols + 4);  // the last vector of a row reads past its end
    tileCol.resize(cols);
    wholeCol.resize(cols);
    for (int col = 0; col < cols; ++col) {
      const double groundX = task.grid.X(col);
      dX[col] = groundX - task.camera.centre.x;
      tileCol[col] = task.tile.ColumnOf(groundX);
      wholeCol[col] = TruncToInt(tileCol[col]);
      // Columns grow from west to east, so the blended ones are one range.
      if (tileCol[col] + 1 < tileCols && tileCol[col] - 1 > 0) {
        firstBlended = std::min(firstBlended, col);
        endBlended = col + 1;
      }
    }
  }

  std::vector<double> dX;       ///< ground X minus the projection centre's
  std::vector<double> tileCol;  ///< position in the tile
  std::vector<int> wholeCol;    ///< the same, truncated
  int firstBlended = std::numeric_limits<int>::max();
  int endBlended = 0;
};

enum LaneState : std::int32_t { kLaneOutside = 0, kLaneRim = 1, kLaneInner = -1 };

/// The arrays of one batch. The first group has a lane per cell of the batch, the second one per
/// cell that lies in the frame.
struct Batch {
  alignas(32) double height[kBatch];
  alignas(32) double col[kBatch];  // ideal position in the photo
  alignas(32) double up[kBatch];
  alignas(32) double distance[kBatch];

  int count = 0;
  alignas(32) std::int32_t lane[kBatch + 4];
  alignas(32) float photoCol[kBatch + 8];  // recorded position
  alignas(32) float photoUp[kBatch + 8];
  alignas(32) double colFraction[kBatch + 4];
  alignas(32) double rowFraction[kBatch + 4];
  alignas(16) std::int32_t pixelCol[kBatch + 4];
  alignas(16) std::int32_t pixelRow[kBatch + 4];
  alignas(16) std::int32_t state[kBatch + 4];

  int entering = 0;  // cells for the z-buffer
  std::int32_t enteringLane[kBatch];
  std::size_t enteringPixel[kBatch];
};

TQT_AVX2_INLINE __m256d Splat(double value) { return _mm256_set1_pd(value); }
TQT_AVX2_INLINE __m256d Magnitude(__m256d value) {
  return _mm256_andnot_pd(_mm256_set1_pd(-0.0), value);
}
template <int kPredicate>
TQT_AVX2_INLINE __m256d Compare(__m256d a, __m256d b) {
  return _mm256_cmp_pd(a, b, kPredicate);
}

/// Four heights of one tile row, from the columns of `index` on.
TQT_AVX2_INLINE __m256d Gather(const float* row, const int* index) {
  return _mm256_cvtps_pd(_mm_setr_ps(row[index[0]], row[index[1]], row[index[2]], row[index[3]]));
}

/// Heights of the cells `first` ... `first + count - 1` of a row, NaN where there is none.
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

/// Ideal photo positions, and distances for the z-buffer, of a batch whose heights are known.
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

/// Gathers the cells whose ideal position lies in the frame, narrowed to float. False when a
/// cell lies exactly on the upper frame border: the scalar way has a rule of its own for it.
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

/// Splits recorded positions into pixel and fraction, and sorts them: outside the frame, inside a
/// part of the raster where BlendPixels works, or anything else.
TQT_AVX2 void Locate(const OrthoTask& task, Batch& batch) {
  const __m256d zero = _mm256_setzero_pd();
  const __m256d width = Splat(task.camera.width);
  const __m256d height = Splat(task.camera.height);
  const __m128i one = _mm_set1_epi32(1);
  // BlendPixels reads eight bytes from a pixel on: the row after the block must exist, and hold
  // some.
  const bool bilinear = task.method == Resampling::kBilinear && task.photo.width >= 8;
  const __m128i endCol = _mm_set1_epi32(bilinear ? task.photo.width - 1 : 0);
  const __m128i endRow = _mm_set1_epi32(
      bilinear ? std::min(task.photo.height, static_cast<int>(task.camera.height)) - 2 : 0);
  for (int i = 0; i < batch.count; i += 4) {
    const __m256d col = _mm256_cvtps_pd(_mm_load_ps(batch.photoCol + i));
    const __m256d row = height - _mm256_cvtps_pd(_mm_load_ps(batch.photoUp + i));
    const __m256d inside = _mm256_and_pd(
        _mm256_and_pd(Compare<_CMP_GE_OQ>(col, zero), Compare<_CMP_LT_OQ>(col, width)),
        _mm256_and_pd(Compare<_CMP_GE_OQ>(row, zero), Compare<_CMP_LT_OQ>(row, height)));
    const __m128i pixelCol = _mm256_cvttpd_epi32(col);
    const __m128i pixelRow = _mm256_cvttpd_epi32(row);
    _mm_store_si128(reinterpret_cast<__m128i*>(batch.pixelCol + i), pixelCol);
    _mm_store_si128(reinterpret_cast<__m128i*>(batch.pixelRow + i), pixelRow);
    _mm256_store_pd(batch.colFraction + i, col - _mm256_cvtepi32_pd(pixelCol));
    _mm256_store_pd(batch.rowFraction + i, row - _mm256_cvtepi32_pd(pixelRow));
    const __m128i inner = _mm_and_si128(
        _mm_and_si128(_mm_cmpgt_epi32(pixelCol, one), _mm_cmpgt_epi32(endCol, pixelCol)),
        _mm_and_si128(_mm_cmpgt_epi32(pixelRow, one), _mm_cmpgt_epi32(endRow, pixelRow)));
    const __m128i in32 = _mm_castps_si128(
        _mm_shuffle_ps(_mm_castpd_ps(_mm256_castpd256_pd128(inside)),
                       _mm_castpd_ps(_mm256_extractf128_pd(inside, 1)), _MM_SHUFFLE(2, 0, 2, 0)));
    // all ones where inner, 1 on the rim, 0 outside
    const __m128i state = _mm_and_si128(in32, _mm_or_si128(inner, one));
    _mm_store_si128(reinterpret_cast<__m128i*>(batch.state + i), state);
  }
}

TQT_AVX2_INLINE __m256d Widen(__m128i bytes) {
  return _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(bytes));
}

/// Bilinear blend of one pixel of 1, 3 or 4 bands. Returns its first band, or -1 with nothing
/// written when the 2 x 2 block holds an invalid value.
///
/// The order of operations does not matter here, so the cheapest is taken. From the third pixel
/// on a float position has at most 22 fraction bits (the row, a whole number minus a float, too);
/// weights then have 44 and their products with a byte 52, which a double holds exactly, whatever
/// the order: there is no rounding before the truncation. Locate() keeps the first two pixels out.
template <int kBands>
TQT_AVX2_INLINE int BlendPixels(const std::uint8_t* at, std::size_t stride, double colFraction,
                                double rowFraction, std::uint8_t* out) {
  const __m128i upper = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
  const __m128i lower = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at + stride));
  constexpr int kUsed = (1 << 2 * kBands) - 1;
  const __m128i invalid =
      _mm_cmpeq_epi8(_mm_unpacklo_epi64(upper, lower), _mm_set1_epi8(kInvalidSample));
  if ((_mm_movemask_epi8(invalid) & (kUsed | kUsed << 8)) != 0) return -1;
  const __m256d fx = Splat(colFraction);
  const __m256d v0 = Widen(upper);
  const __m256d v2 = Widen(lower);
  const __m256d top = v0 + (Widen(_mm_srli_si128(upper, kBands)) - v0) * fx;
  const __m256d bottom = v2 + (Widen(_mm_srli_si128(lower, kBands)) - v2) * fx;
  const __m128i value = _mm256_cvttpd_epi32(top + (bottom - top) * Splat(rowFraction));
  const __m128i pick = _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
  const auto packed = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi8(value, pick)));
  std::memcpy(out, &packed, kBands);
  return static_cast<int>(packed & 0xff);
}

/// Asks for the photo pixels of the cell that comes `kAhead` cells later: a turned photo is crossed
/// line by line, and every line is a new place in memory.
inline void PrefetchBlock(const PhotoRaster& photo, std::size_t stride, const Batch& batch, int i) {
  constexpr int kAhead = 24;
  if (i + kAhead >= batch.count || batch.state[i + kAhead] != kLaneInner) return;
  const std::uint8_t* at = photo.At(batch.pixelRow[i + kAhead], batch.pixelCol[i + kAhead]);
  __builtin_prefetch(at);
  __builtin_prefetch(at + stride);
}

/// Samples the photo for a batch, widens the bounds, and lists the cells for the z-buffer.
template <int kBands>
TQT_AVX2 void SampleBatch(const OrthoRun& run, int row, int first, Batch& batch) {
  const OrthoTask& task = run.task;
  const PhotoRaster& photo = task.photo;
  const std::size_t stride = static_cast<std::size_t>(photo.width) * photo.bands;
  std::uint8_t* cells = run.Cell(row, first);
  int minLane = kBatch;
  int maxLane = -1;
  batch.entering = 0;
  for (int i = 0; i < batch.count; ++i) {
    PrefetchBlock(photo, stride, batch, i);
    if (batch.state[i] == kLaneOutside) continue;
    const int lane = batch.lane[i];
    std::uint8_t* sample = cells + static_cast<std::size_t>(lane) * photo.bands;
    int firstBand = -1;
    if constexpr (kBands != 0) {
      if (batch.state[i] == kLaneInner) {
        firstBand = BlendPixels<kBands>(photo.At(batch.pixelRow[i], batch.pixelCol[i]), stride,
                                        batch.colFraction[i], batch.rowFraction[i], sample);
      }
    }
    if (firstBand < 0) {
      SamplePhoto(photo, task.method, batch.photoCol[i],
                  task.camera.height - static_cast<double>(batch.photoUp[i]), sample);
      firstBand = sample[0];
    }
    if (firstBand == 0) continue;
    minLane = std::min(minLane, lane);
    maxLane = lane;
    if (run.depth != nullptr && batch.pixelCol[i] < photo.width &&
        batch.pixelRow[i] < photo.height) {
      const std::size_t pixel =
          static_cast<std::size_t>(batch.pixelRow[i]) * photo.width + batch.pixelCol[i];
      run.depth->Prefetch(pixel);
      batch.enteringLane[batch.entering] = lane;
      batch.enteringPixel[batch.entering] = pixel;
      ++batch.entering;
    }
  }
  if (maxLane < 0) return;
  run.out.minCol = std::min(run.out.minCol, first + minLane);
  run.out.maxCol = std::max(run.out.maxCol, first + maxLane);
  run.out.minRow = std::min(run.out.minRow, row);
  run.out.maxRow = std::max(run.out.maxRow, row);
}

template <int kBands>
TQT_AVX2 void RectifyBatch(const OrthoRun& run, const ColumnTable& table, int row, int first,
                           int count, Batch& batch) {
  const OrthoTask& task = run.task;
  const PhotoCamera& camera = task.camera;
  const double groundY = task.grid.Y(row);
  FillHeights(task.tile, table, task.tile.RowOf(groundY), first, count, batch.height);
  Project(camera, table.dX.data() + first, groundY - camera.centre.y, run.depth != nullptr, count,
          batch);
  if (!KeepInFrame(camera, count, batch)) {
    for (int col = first; col < first + count; ++col) RectifyCell(run, row, col);
    return;
  }
  if (batch.count == 0) return;
  if (camera.lens.model == 1) InvertCorrection(camera.lens, batch);
  if (camera.lens.model == 3) DistortForward(camera.lens, batch);
  Locate(task, batch);
  SampleBatch<kBands>(run, row, first, batch);
  const std::size_t firstCell = run.CellNumber(row, first);
  for (int i = 0; i < batch.entering; ++i) {
    const int lane = batch.enteringLane[i];
    run.depth->Enter(batch.enteringPixel[i], static_cast<std::uint32_t>(firstCell + lane),
                     batch.distance[lane]);
  }
}

template <int kBands>
void RectifyRows(const OrthoRun& run) {
  const OrthoTask& task = run.task;
  const ColumnTable table(task);
  Batch batch{};
  for (int row = 0; row < task.grid.rows; ++row) {
    const int tileRow = TruncToInt(task.tile.RowOf(task.grid.Y(row)));
    if (tileRow < 0 || tileRow >= task.tile.heights.rows) continue;
    for (int first = 0; first < task.grid.cols; first += kBatch) {
      RectifyBatch<kBands>(run, table, row, first, std::min(kBatch, task.grid.cols - first), batch);
    }
  }
}

}  // namespace

bool HasAvx2Kernel() { return __builtin_cpu_supports("avx2") != 0; }

void RectifyRowsAvx2(const OrthoRun& run) {
  switch (run.task.photo.bands) {
    case 1:
      return RectifyRows<1>(run);
    case 3:
      return RectifyRows<3>(run);
    case 4:
      return RectifyRows<4>(run);
    default:
      return RectifyRows<0>(run);
  }
}

}  // namespace tqtortho

#else  // another processor family: the scalar way serves it

namespace tqtortho {
bool HasAvx2Kernel() { return false; }
void RectifyRowsAvx2(const OrthoRun&) {}
}  // namespace tqtortho

#endif
