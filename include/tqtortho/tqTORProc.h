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

 protected:
  friend struct TestPeer;

  /// The rectification part of the job, arguments as TrueOrthoPhotoProc.
  bool OrthoRectiProc(const char* dsmPath, const char* cameraFile, const char* photoListFile,
                      double* heightPair, const char* outputDir,
                      std::vector<tqfd::Point2_T<double>>* areaPolygon, int rectifyOption,
                      bool flagA, bool flagB, tqfd::ProgressCallback progress, void* user);
  /// Builds the masks that decide which photo supplies each part of the mosaic.
  bool MosaicMskProc(tqfd::ProgressCallback progress, void* user);

  std::vector<tqorkit::tqPhotoCategory> photoBlocks;   ///< in photo-list order
  std::map<int, tqorkit::tqIntOri> cameras;            ///< by camera id
  std::map<std::uint64_t, std::vector<std::uint64_t>> photoNeighbours;
  std::vector<tqfd::Point2_T<int>> extentPoints;
  tqfd::Rect2_T<double> globalRect;                    ///< ground extent of the mosaic
  double globalResX = 0;  ///< ground size of a mosaic cell; below 1e-5 in magnitude = unset
  double globalResY = 0;
};

}  // namespace tqtortho
