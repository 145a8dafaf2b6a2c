// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tqtortho {

/// Photos per work block: five, or one thread's share when the job has fewer than five photos per
/// thread, at least one. The cut decides which photos share a DSM tile, so a few bytes at tile
/// borders depend on `threadCount`, the machine's.
[[nodiscard]] int GroupSize(int photoCount, int threadCount);

/// Reduction of the reduced ortho copies for an output of width x height cells: whole numbers, so
/// that the job comes out at about 30 cells (50 in a sizing run) on its longer side; at least 1.
[[nodiscard]] double ReductionScale(int width, int height, bool sizingRun);

}  // namespace tqtortho
