// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "mosaic/mosaic_stage.h"
#include "prepare/band_choice.h"
#include "walls/walls_choice.h"

namespace tqtortho::host {

/// What is done to the ortho images once the mosaic is made.
enum class Finish {
  kFill,     ///< hidden cells get the mosaic's colours, all others stay as they were rectified
  kTexture,  ///< every cell gets the mosaic's colours: the orthos are the mosaic, cut to the photos
  kMark,     ///< cells that the photo must not supply become 0
  kNone,     ///< they stay as they were rectified
};

/// How it is found out what a photo cannot see.
enum class Occlusion {
  kSight,  ///< lines of sight against the surface with its walls
  kRays,   ///< ray tracing through a coarse and a fine copy of the surface
  kDepth,  ///< the z-buffer of rectification
};

/// How a job is run; defaults are the command's.
struct RunOptions {
  std::string dsmPath;
  std::string outDir;         ///< products: ortho/, preview.png, orthos.vrt
  std::string workDir;        ///< the job's own state; empty: outDir/work
  std::optional<double> gsd;  ///< ground size of an output cell; 0: the DSM's; unset: the photos'
  double startHeight = 0;     ///< 0: the mean height of each DSM tile
  int resampling = 1;         ///< 0 nearest neighbour, 1 bilinear
  BandChoice bands;           ///< of the photos
  std::string areaPath;       ///< polygon file of the area to produce; empty: everything
  bool reducedCopies = false;
  Occlusion occlusion = Occlusion::kSight;
  Walls walls = Walls::kKeep;  ///< how they are made upright before the job
  Finish finish = Finish::kFill;
  HoleFilling fill = HoleFilling::kSmall;  ///< of the mosaic
  MosaicFormat format;                     ///< of the mosaic
  bool webTiles = false;                   ///< also OUT/tiles
  bool fullPaths = false;      ///< the report tells the directories of inputs and products
  bool fresh = false;          ///< forget what an earlier run in workDir finished
  bool sizingOnly = false;     ///< georeference sidecars only, no rasters
  int threads = 0;             ///< 0: all cores
  bool allowLargeJob = false;  ///< although CheckCost would refuse it
};

}  // namespace tqtortho::host
