// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"
#include "tqfd/Progress.h"
#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

struct TestPeer;

/// One whole true-ortho job.
///
/// The job's own state lies under tqfd::PathHelper::GetProgramDataDirectory() and
/// tqorkit::TqFSManager::GetOutputTmpFilePath(). An object is not safe for concurrent calls.
/// Operations return true on success and let no exception out; files already written stay after a
/// failure.
class TQTORTHO_API tqTORProc {
 public:
  /// An empty job. Kept: sets the precision of std::cout to 20 digits.
  tqTORProc();
  virtual ~tqTORProc();
  tqTORProc(const tqTORProc&) = delete;
  tqTORProc& operator=(const tqTORProc&) = delete;

  /// Runs the job: reads cameras and photos, estimates the extent, rectifies all photos in parallel
  /// and builds the mosaic masks. Times go to the log.
  ///
  /// @param dsmPath        georeferenced surface model
  /// @param cameraFile     text: count; per camera id, name, and one line of sixteen values
  /// @param photoListFile  text: count of blocks; per block photo count, path, one line per photo
  /// @param heightPair     ground resolution (0: the DSM's) and start height; must not be null
  /// @param outputDir      prefix of the ortho images' names, normally ending in "/"
  /// @param areaPolygon    ground polygon of the area to produce, or null
  /// @param rectifyOption  resampling: 0 nearest neighbour, 1 bilinear
  /// @param flagA          write a reduced copy of every ortho image
  /// @param flagB          sizing run: sidecars only, no rasters
  bool TrueOrthoPhotoProc(const char* dsmPath, const char* cameraFile, const char* photoListFile,
                          double* heightPair, const char* outputDir,
                          std::vector<tqfd::Point2_T<double>>* areaPolygon, int rectifyOption,
                          bool flagA, bool flagB, tqfd::ProgressCallback progress, void* user);

  /// Quick occlusion masks of one work block of a parameter file, each traced once at the DSM's own
  /// resolution, with a thumbnail of at most 300 cells beside it. Needs nothing but the file, so
  /// blocks may run in any order and at once, also in processes of their own.
  ///
  /// The cell size is the first height value of the file; a file whose value is 0 gives no masks.
  /// Kept: masks are named output directory + photo name + "_obs.tif", the name whole and without a
  /// block number.
  ///
  /// @param blockNumber  counted from 1
  /// @return false when the file cannot be opened, its scale is below 1 (logged) or the block is not
  ///         in it; true otherwise, whatever became of the photos.
  bool BlockObs(const char* paramPath, int blockNumber);

 protected:
  friend struct TestPeer;

  /// The rectification part of the job, arguments as TrueOrthoPhotoProc.
  bool OrthoRectiProc(const char* dsmPath, const char* cameraFile, const char* photoListFile,
                      double* heightPair, const char* outputDir,
                      std::vector<tqfd::Point2_T<double>>* areaPolygon, int rectifyOption,
                      bool flagA, bool flagB, tqfd::ProgressCallback progress, void* user);
  /// Builds the masks that decide which photo supplies each part of the mosaic.
  bool MosaicMskProc(tqfd::ProgressCallback progress, void* user);
  /// Traces the occlusion mask of every photo again, photos of a block in parallel. For a derived
  /// driver, between rectification and update. A photo whose trace fails keeps the mask it had.
  ///
  /// @param orthoDir  prefix of the ortho images' names
  /// @return true. Kept: also after a stop, which only leaves out the photos not yet begun.
  bool ObscuredMskProc(std::string dsmPath, std::string orthoDir, tqfd::ProgressCallback progress,
                       void* user);
  /// Makes every photo's weight mask ("_wgt.tif") from its occlusion mask, photos of a block in
  /// parallel: a byte per cell, 0 where the photo shows nothing, growing with the distance to such
  /// cells and towards the nadir. A photo without a readable occlusion mask gets none and reports no
  /// progress, so that the last percentage stays below 100.
  ///
  /// @param ignored  not used
  /// @return false without photos, and after a stop.
  bool WeightMskProc(std::string orthoDir, std::string ignored, tqfd::ProgressCallback progress,
                     void* user);
  /// Adds to an occlusion mask the borders of tall objects that lie more than 15 cells from all it
  /// hides, and closes the result. The mask stays as it is; beside it come "_refine.tif" (the
  /// result), "_border.tif" (the borders added) and "_dilate.tif" (what counts as near), each
  /// appended to `obsPath`. Borders are taken from the job's border mask; where it does not reach
  /// there are none. Safe for different photos at once.
  ///
  /// @return false, with nothing written, when the occlusion mask is no one-band byte raster or
  ///         the border mask cannot be opened.
  bool RefineOcclusion(std::string obsPath);

  std::vector<tqorkit::tqPhotoCategory> photoBlocks;   ///< in photo-list order
  std::map<int, tqorkit::tqIntOri> cameras;            ///< by camera id
  std::map<std::uint64_t, std::vector<std::uint64_t>> photoNeighbours;
  std::vector<tqfd::Point2_T<int>> extentPoints;
  tqfd::Rect2_T<double> globalRect;                    ///< ground extent of the mosaic
  double globalResX = 0;  ///< ground size of a mosaic cell; below 1e-5 in magnitude = unset
  double globalResY = 0;
};

}  // namespace tqtortho
