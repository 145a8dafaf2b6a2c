// SPDX-License-Identifier: Apache-2.0
#include "rectify/ortho_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>

#include "core/numeric.h"
#include "rectify/ortho_run.h"
#include "rectify/page_block.h"

namespace tqtortho {

double CellHeight(const SurfaceTile& tile, double tileCol, double tileRow) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  if (!tile.HasHeightAt(tileCol, tileRow)) return kNone;
  const double height = SurfaceBilinear(tile, tileCol, tileRow);
  return std::fabs(height - tile.noData) < kRectifyNoDataTolerance ? kNone : height;
}

void RectifyCell(const OrthoRun& run, int row, int col) {
  const OrthoTask& task = run.task;
  const PhotoCamera& camera = task.camera;
  const double groundX = task.grid.X(col);
  const double groundY = task.grid.Y(row);
  const double height =
      CellHeight(task.tile, task.tile.ColumnOf(groundX), task.tile.RowOf(groundY));

  // A missing height is NaN, makes every position NaN and so fails the frame test.
  tqfd::Point2_T<double> pixel =
      PixelFromImage(camera, ImageFromGround(camera, groundX, groundY, height));
  if (pixel.x >= 0 && pixel.x < camera.width && pixel.y >= 0 && pixel.y < camera.height) {
    const tqfd::Point2_T<float> recorded =
        RecordedFromIdeal(camera.lens, {NarrowToFloat(pixel.x), NarrowToFloat(pixel.y)});
    pixel = {recorded.x, recorded.y};
  }
  const double photoCol = pixel.x;
  const double photoRow = camera.height - pixel.y;
  if (!(photoCol >= 0 && photoCol < camera.width && photoRow >= 0 && photoRow < camera.height)) {
    return;
  }

  std::uint8_t* sample = run.Cell(row, col);
  SamplePhoto(task.photo, task.method, photoCol, photoRow, sample);
  if (sample[0] == 0) return;

  const int pixelCol = TruncToInt(photoCol);
  const int pixelRow = TruncToInt(photoRow);
  if (run.depth != nullptr && pixelCol < task.photo.width && pixelRow < task.photo.height) {
    const double dX = groundX - camera.centre.x;
    const double dY = groundY - camera.centre.y;
    const double dZ = height - camera.centre.z;
    const double distance = kDistanceScale * std::sqrt(dX * dX + dY * dY + dZ * dZ);
    run.depth->Enter(static_cast<std::size_t>(pixelRow) * task.photo.width + pixelCol,
                     static_cast<std::uint32_t>(run.CellNumber(row, col)), distance);
  }
  run.out.minCol = std::min(run.out.minCol, col);
  run.out.maxCol = std::max(run.out.maxCol, col);
  run.out.minRow = std::min(run.out.minRow, row);
  run.out.maxRow = std::max(run.out.maxRow, row);
}

bool SuitsBatches(const OrthoTask& task) {
  // Below this a float position from the second pixel on has at most 22 fraction bits, on which
  // the exactness of the batch blend rests.
  constexpr double kLargestFrame = 4'000'000;
  const PhotoCamera& camera = task.camera;
  return camera.width <= kLargestFrame && camera.height <= kLargestFrame &&
         std::floor(camera.height) == camera.height && task.tile.cell > 0;
}

OrthoKernel OrthoKernelFromEnvironment() {
  const char* wanted = std::getenv("TQTORTHO_KERNEL");
  return wanted != nullptr && std::string_view(wanted) == "scalar" ? OrthoKernel::kScalar
                                                                   : OrthoKernel::kAuto;
}

const char* OrthoKernelName(OrthoKernel wanted) {
  return wanted != OrthoKernel::kScalar && HasAvx2Kernel() ? "avx2" : "scalar";
}

namespace {

void ResizeToZeros(std::vector<std::uint8_t>& cells, std::size_t size) {
  constexpr std::size_t kWorthIt = 8u << 20;
  cells.reserve(size);
  if (size >= kWorthIt) PreferLargePages(cells.data(), size);
  cells.resize(size);
}

}  // namespace

void RectifyCells(const OrthoTask& task, OrthoKernel kernel, OrthoCells& out) {
  const std::size_t cells = task.grid.CellCount();
  out = OrthoCells();
  ResizeToZeros(out.pixels, cells * static_cast<std::size_t>(task.photo.bands));
  std::optional<ZBuffer> depth;
  if (task.markHidden) {
    ResizeToZeros(out.hidden, cells);
    depth.emplace(static_cast<std::size_t>(task.photo.width) * task.photo.height, cells,
                  out.hidden.data());
  }
  const OrthoRun run{task, out, depth ? &*depth : nullptr};
  if (kernel != OrthoKernel::kScalar && HasAvx2Kernel() && SuitsBatches(task)) {
    RectifyRowsAvx2(run);
    return;
  }
  for (int row = 0; row < task.grid.rows; ++row) {
    GiveUpIfRaised(task.stop);
    for (int col = 0; col < task.grid.cols; ++col) RectifyCell(run, row, col);
  }
}

}  // namespace tqtortho
