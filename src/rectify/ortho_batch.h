// SPDX-License-Identifier: Apache-2.0
#pragma once

// Shared by the parts of the AVX2 production loop; not for others. Only on x86-64.
//
// Vector types carry the usual operators (GCC, Clang), so formulas read as in the scalar code. All
// vector code sits in functions marked TQT_AVX2, so that nothing else is compiled for a processor
// that may not be there.

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "core/numeric.h"
#include "rectify/ortho_run.h"

#define TQT_AVX2 __attribute__((target("avx2")))
#define TQT_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace tqtortho::avx2 {

inline constexpr int kBatch = 256;

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

/// Heights of the cells `first` ... `first + count - 1` of a row, NaN where there is none.
void FillHeights(const SurfaceTile& tile, const ColumnTable& table, double tileRow, int first,
                 int count, double* height);

/// Ideal photo positions, and distances for the z-buffer, of a batch whose heights are known.
/// @param dXs  ground X minus the projection centre's, per cell; readable to a multiple of four
void Project(const PhotoCamera& camera, const double* dXs, double dYs, bool wantDistance, int count,
             Batch& batch);

/// Gathers the cells whose ideal position lies in the frame, narrowed to float. False when a
/// cell lies exactly on the upper frame border: the scalar way has a rule of its own for it.
[[nodiscard]] bool KeepInFrame(const PhotoCamera& camera, int count, Batch& batch);

/// Recorded positions of the kept cells, in place.
void CorrectForLens(const LensDistortion& lens, Batch& batch);

}  // namespace tqtortho::avx2
