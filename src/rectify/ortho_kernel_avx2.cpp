// SPDX-License-Identifier: Apache-2.0
//
// The production loop in batches of cells, for processors with AVX2.
//
// Every row is worked off in batches: heights, positions, lens, photo samples, z-buffer, each as
// one loop over small arrays that stay in the first-level cache. Operations and their order are
// those of the scalar way, cell by cell; nothing is fused (FMA stays off) and nothing is hoisted
// but what depends on the column or the row alone, so all bytes agree. The one expression that
// differs is the photo blend; BlendPixels says why its result cannot.
#include "rectify/ortho_run.h"

#if defined(__x86_64__)

#include <algorithm>
#include <cstring>

#include "rectify/ortho_batch.h"

namespace tqtortho {
namespace avx2 {
namespace {

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
  CorrectForLens(camera.lens, batch);
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
    GiveUpIfRaised(task.stop);
    const int tileRow = TruncToInt(task.tile.RowOf(task.grid.Y(row)));
    if (tileRow < 0 || tileRow >= task.tile.heights.rows) continue;
    for (int first = 0; first < task.grid.cols; first += kBatch) {
      RectifyBatch<kBands>(run, table, row, first, std::min(kBatch, task.grid.cols - first), batch);
    }
  }
}

}  // namespace
}  // namespace avx2

bool HasAvx2Kernel() { return __builtin_cpu_supports("avx2") != 0; }

void RectifyRowsAvx2(const OrthoRun& run) {
  switch (run.task.photo.bands) {
    case 1:
      return avx2::RectifyRows<1>(run);
    case 3:
      return avx2::RectifyRows<3>(run);
    case 4:
      return avx2::RectifyRows<4>(run);
    default:
      return avx2::RectifyRows<0>(run);
  }
}

}  // namespace tqtortho

#else  // another processor family: the scalar way serves it

namespace tqtortho {
bool HasAvx2Kernel() { return false; }
void RectifyRowsAvx2(const OrthoRun&) {}
}  // namespace tqtortho

#endif
