// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "camera/camera_model.h"
#include "core/stop_flag.h"
#include "rectify/samplers.h"
#include "rectify/surface_tile.h"
#include "rectify/valid_rect.h"

namespace tqtortho {

/// Which implementation runs. All give the same bytes.
enum class OrthoKernel {
  kAuto,    ///< the fastest that the processor and the input allow
  kScalar,  ///< one cell after the other, as the operation is defined
  kAvx2,    ///< batches of cells with AVX2; scalar where that is not available
};

/// The kernel that the environment asks for: TQTORTHO_KERNEL=scalar, else kAuto.
[[nodiscard]] OrthoKernel OrthoKernelFromEnvironment();

/// Name of the implementation that `wanted` comes down to on this processor: "scalar" or "avx2".
[[nodiscard]] const char* OrthoKernelName(OrthoKernel wanted);

/// What one production pass works on. The views must outlive the call.
struct OrthoTask {
  PhotoCamera camera;
  SurfaceTile tile;
  PhotoRaster photo;  ///< may differ from the camera's frame; outside it samples are invalid
  GroundGrid grid;
  Resampling method = Resampling::kNearest;
  bool markHidden = false;         ///< run the z-buffer
  const StopFlag* stop = nullptr;  ///< polled once a row; null: nobody asks
};

/// Start value of the smallest column and row. Kept: grids with more columns or rows than this keep
/// it as their minimum.
inline constexpr int kNoMinimum = 1'000'000;

/// The whole grid, before it is cut to the cells that hold data.
struct OrthoCells {
  std::vector<std::uint8_t> pixels;  ///< interleaved bands per cell; 0 no data, 1 invalid
  std::vector<std::uint8_t> hidden;  ///< 255 hidden, 0 otherwise; empty without markHidden
  int minCol = kNoMinimum;           ///< cells whose first band is not 0
  int minRow = kNoMinimum;
  int maxCol = 0;
  int maxRow = 0;
};

/// Resamples every ground cell of a grid from the photo and, on request, marks the cells that share
/// a photo pixel with a nearer one.
///
/// A cell keeps 0 when the tile has no height there or the frame does not hold it. A cell whose
/// sample has a first band of 0 is stored, but neither counts for the bounds nor takes part in
/// the z-buffer.
///
/// One thread. Memory: the grid, and with markHidden one byte and 4 bytes per cell and up to 4
/// bytes per photo pixel (see ZBuffer). Throws std::bad_alloc, and WorkStopped when asked to stop.
/// The views must hold as many elements as their sizes say; nothing else is required: NaN, infinite
/// and huge numbers only give cells without data.
void RectifyCells(const OrthoTask& task, OrthoKernel kernel, OrthoCells& out);

}  // namespace tqtortho
