// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/grid_view.h"
#include "core/stop_flag.h"

namespace tqtortho::host {

/// How the border mask marks the borders of tall buildings and the ground between them. The value
/// 200 steers the choice between z-buffer and ray tracing, 255 only where orthos are smoothed.
enum class BorderCode {
  kTall,             ///< borders 200, all other cells 0: photos with many borders are traced there
  kTraceEverywhere,  ///< borders 255, all other cells with a height 200: every photo is traced,
                     ///< everywhere. Depth alone finds a sixth of the hidden cells of a town,
                     ///< tracing beside borders half of them, tracing everywhere five sixths
  kSmoothOnly,       ///< borders 255, all other cells 0: no photo is traced
};

/// What counts as the border of a tall building. Heights and lengths in the DSM's unit.
struct BorderMaskOptions {
  double stepM = 2.5;  ///< steps higher than this are borders; positive
  /// Width over which a step is looked for, so that the softened walls of fine image-matching DSMs
  /// count too; never less than 3 cells of the mask, which 1 means for cells from 0.34 on.
  double reachM = 1.0;
  /// A step counts by what it exceeds the rise beside it, times this: it needs a level upper and a
  /// level lower side. 1 takes away what a slope going on explains, more is stricter with rough
  /// surfaces; 0 counts any height difference within the reach, for a clean DSM of flat ground.
  double slopeFactor = 2;
  bool median = true;       ///< 3 x 3 median before all else
  int minBorderCells = 12;  ///< borders of fewer connected cells (8 neighbours) are dropped
  /// Cells by which borders are widened on every side at the end. Ray tracing looks at every cell
  /// of a border, and photos are told to hold tall buildings by the number of its cells.
  int widenCells = 0;
  BorderCode code = BorderCode::kTall;
  std::int64_t stripCells = 1 << 22;  ///< of the mask, worked on at a time; decides memory only
  const StopFlag* stop = nullptr;     ///< of MarkTallBorders: polled once a row; null: nobody asks
};

/// How much of a DSM became border.
struct BorderMaskReport {
  std::int64_t cells = 0;        ///< of the mask
  std::int64_t heightCells = 0;  ///< with a height
  std::int64_t borderCells = 0;
};

/// Halves a DSM: each cell the mean of its up to four cells with a height, NaN where there is none.
///
/// @param heights  rows x cols; cells within the no-data tolerance of `noData` and cells that are
///                 not finite have no height
/// @param half     (rows + 1) / 2 x (cols + 1) / 2
void HalveHeights(GridView<const float> heights, double noData, GridView<float> half);

/// Marks tall borders: 200 where the surface steps, 0 elsewhere.
///
/// Vegetation, hills and noise have height differences too, but no step between two level sides,
/// and a photo must not be called one of tall buildings for their sake. So the step of a cell is
/// measured along the four directions of its neighbourhood as
///
///     |h(+r) - h(-r)| - slopeFactor * max(|h(+3r) - h(+r)|, |h(-r) - h(-3r)|)
///
/// with r half the reach: zero on any plane, on the flank and at the foot of a cone and at a spike,
/// the full height of a wall between level sides three cells wide. Where h(3r) is missing, twice
/// the rise to h(2r) stands in; where that is missing too the direction says nothing.
///
/// @param heights   cell heights, NaN = none; none is never a border
/// @param cellSize  of a cell
/// @param mask      as large as `heights`
///
/// Throws WorkStopped when asked to stop.
void MarkTallBorders(GridView<const float> heights, double cellSize,
                     const BorderMaskOptions& options, GridView<std::uint8_t> mask);

/// Writes the border mask of a DSM: a byte raster of twice the cell size whose first cell covers
/// the DSM's first 2 x 2 cells, with the DSM's CRS.
///
/// Works in strips that overlap so far that the result does not depend on them; memory is that of a
/// strip, some ten bytes per cell. Directories of `outPath` are made. Given up when the process is
/// to stop.
/// @param progress  told the share that is done, 0 to 1, after every strip; false stops
/// @return false, with one line in `error`, when the DSM cannot be read, has more than
///         kMostSurfaceCells, no georeference that
/// is
///         north-up, an option makes no sense, or the mask cannot be written.
bool WriteBorderMask(const std::string& dsmPath, const std::string& outPath,
                     const BorderMaskOptions& options, std::string& error,
                     BorderMaskReport* report = nullptr,
                     const std::function<bool(double)>& progress = {});

}  // namespace tqtortho::host
