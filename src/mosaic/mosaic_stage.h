// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "mosaic/mosaic_writer.h"
#include "tqfd/Geometry.h"
#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho::host {

/// The rectified photos of a job.
struct MosaicInput {
  std::vector<tqorkit::tqPhotoCategory> blocks;  ///< in job order, footprints as measured
  std::map<int, tqorkit::tqIntOri> cameras;
  std::string orthoPrefix;  ///< of the ortho images' names
  double gsd = 0;
};

/// Which cells that no photo sees get colours from around.
enum class HoleFilling {
  kNone,
  kSmall,  ///< where what no photo sees is at most MosaicOptions::fillWidth wide
  kAll,
};

struct MosaicOptions {
  std::string outDir;   ///< receives mosaic.tif, source.tif, quality.tif
  std::string workDir;  ///< the job's: holds dsm.tif, dsm_origin.tif, tmp/ot
  MosaicFormat format;
  HoleFilling fill = HoleFilling::kSmall;
  double fillWidth = 1;  ///< ground units
  bool balanceColours = true;
  int feather = 4;  ///< cells on each side of a seam
  /// Polygon to cut the product to, on the ground; empty: everything.
  std::vector<tqfd::Point2_T<double>> area;
  int tileSide = 1024;  ///< cells; memory grows with its square times the photos over a place
  /// Bytes for what is kept of the photos; four times as many for their pixels. The rest goes to
  /// working files or is read again.
  std::size_t layerMemory = 128U << 20;
};

struct MosaicReport {
  std::int64_t cells = 0;  ///< of the grid
  std::int64_t seen = 0;
  std::int64_t seenByOne = 0;
  std::int64_t filled = 0;
  std::int64_t neverCovered = 0;  ///< in some photo's frame, seen by none, and left empty
  double seamLength = 0;          ///< on the ground
  double colourStepBefore = 0;    ///< mean grey values across seams, as photographed
  double colourStepAfter = 0;     ///< the same after balancing, before blending
  /// Cells that each photo supplies, by photo number; [0]: none.
  std::vector<std::int64_t> supplied;
  std::vector<std::string> leftOut;  ///< photos that could not take part, a line each
  struct Stage {
    std::string name;
    double seconds = 0;
  };
  std::vector<Stage> stages;
};

/// Called with the stage's name and its share done, 0 to 100; false stops the work.
using MosaicProgress = std::function<bool(const char* stage, double percent)>;

/// Makes the mosaic of a job's ortho images: chooses the photo for each cell, balances colours,
/// blends along seams, fills what no photo sees.
///
/// Writes OUT/mosaic.tif, source.tif and quality.tif, and for later passes WORK/tmp/ot/pix_map.bin
/// (photo number of each cell) and WORK/tmp/ot/textures.tif (the mosaic's colours) on the same
/// grid. Photos that cannot take part are left out and reported. Uses OpenMP's thread number.
///
/// @return false with one line in `error`; after a stop by `progress` the line is "interrupted".
[[nodiscard]] bool MakeMosaic(const MosaicInput& input, const MosaicOptions& options,
                              const MosaicProgress& progress, MosaicReport& report,
                              std::string& error);

/// Writes OUT/mosaic.tif, source.tif and quality.tif of a finished mosaic anew, as `options.format`
/// says and cell for cell the same: colours come from WORK/tmp/ot/textures.tif, which nothing lossy
/// has touched, the rest from the three files themselves. They stay until the new ones are whole.
///
/// @param seen  cells that a photo sees, as the mosaic's report tells
/// @return false with one line in `error`; after a stop by `progress` the line is "interrupted".
[[nodiscard]] bool CompressMosaic(const MosaicInput& input, const MosaicOptions& options,
                                  const MosaicProgress& progress, std::int64_t seen,
                                  std::string& error);

/// The grid of a job's mosaic: the fold of the footprints, first to last cell centre. False with
/// one line in `error` when the job has none that a mosaic can be made of.
[[nodiscard]] bool FindMosaicGrid(const MosaicInput& input, const std::string& workDir,
                                  MosaicGrid& grid, std::string& error);
/// What the files of a mosaic say of themselves: numbers and names of the job's photos, and notes.
[[nodiscard]] bool FinishMosaic(const MosaicInput& input, std::int64_t seen, MosaicWriter& product,
                                std::string& error);

/// The same input from what a job left in its work directory: WORK/ortho_data/orParam.txt, and
/// WORK/photos.txt for the order of the photos, which decides their numbers.
[[nodiscard]] bool LoadMosaicInput(const std::string& workDir, MosaicInput& input,
                                   std::string& error);

}  // namespace tqtortho::host
