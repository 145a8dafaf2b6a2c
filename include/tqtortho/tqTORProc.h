// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"
#include "tqfd/Progress.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

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
  /// @return false (logged) when a stage fails or is stopped, and when no photo got an ortho image,
  ///         or a sidecar in a sizing run. A photo that fails alone is named in the log with its
  ///         cause and fails nothing. Relative paths, also those in the photo list, are looked up
  ///         in the process's working directory.
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
  /// @return false when the file cannot be opened, its scale is below 1 (logged) or the block is
  ///         not in it; true otherwise, whatever became of the photos.
  bool BlockObs(const char* paramPath, int blockNumber);

  /// Makes the job's fill texture ("<temporary output>/ot/textures.tif": three bands of bytes, 0 in
  /// all of them = no colour) and its final pixel-to-photo map ("ot/pix_map.bin") from the ortho
  /// images and their "_obs.tif" masks. Call it on the object of a finished job, before the ortho
  /// images are updated: what an update has filled in would count as seen.
  ///
  /// Both files have the size and georeference of GetGeoCoeff and the CRS of the orthos. Of the
  /// photos that see a cell the best supplies it: steepest view, clear of hidden cells and of the
  /// frame's edge. Colours are the photos' own, mixed over four cells beside seams. Cells that
  /// photos cover and none sees, and gaps of up to 100 cells in what they cover, take colours from
  /// around, from the same height level where the job's surface model can be read; the map says 0
  /// there. Photos whose ortho or mask cannot be read, or whose camera is unknown, supply nothing.
  ///
  /// Made in blocks of 1,024 cells on OpenMP's threads; memory is that of a block per thread, about
  /// 7 MB for each photo over it. The files replace earlier ones when both are complete.
  ///
  /// @param orthoDir  prefix of the ortho images' names, as given to TrueOrthoPhotoProc
  /// @return false without photos, parameter file or resolution, for more than 65,535 photos, when
  ///         no ortho image can be read (logged), a file cannot be written, and after a stop.
  bool GennerateFillTexture(std::string orthoDir, tqfd::ProgressCallback progress,
                            void* user);  // name is fixed by callers
  /// Puts the job's fill texture into every ortho image wherever the texture has a colour, cells
  /// that the photo does not see above all. Call it on the object of a finished job, once texture
  /// ("<temporary output>/ot/textures.tif") and photo map ("ot/pix_map.bin") exist for the same
  /// grid. Replaces each photo's ownership mask by one made from the map.
  ///
  /// Kept: both steps of a photo count as a whole one, so a complete run ends at 200 percent.
  ///
  /// @param ignored    not used
  /// @param orthoDir   prefix of the ortho images' names, as given to TrueOrthoPhotoProc
  /// @return false without photos, parameter file, resolution or texture (logged), and after a
  ///         stop. A photo that cannot be read and a map that is missing (logged) are no failure,
  ///         nor is it when no ortho image at all can be read (logged).
  bool UpdateOrthoImages(std::string ignored, std::string orthoDir, tqfd::ProgressCallback progress,
                         void* user);
  /// The sparing update: puts the texture into hidden cells (FillImgObscure) and holes
  /// (FillImgInvalidHoles) of every ortho image. All other cells keep their bytes, and ownership
  /// masks and map are neither read nor written. Repeating it changes nothing.
  ///
  /// Goes from region to region (ImageRegionPartition), photos of a region in parallel, each with
  /// the texture under its own ortho in memory. One step of progress per photo.
  ///
  /// @param ignored, orthoDir  as for UpdateOrthoImages
  /// @return false without photos, parameter file, resolution or texture (logged), when no ortho
  ///         image can be read (logged), and after a stop. A photo that cannot be read or written
  ///         is no failure; it stays and reports no progress.
  bool UpdateOrthoImagesEx(std::string ignored, std::string orthoDir,
                           tqfd::ProgressCallback progress, void* user);
  /// Sets to 0 the cells of every ortho image that the photo must not supply: outside its ownership
  /// mask, or hidden. The alternative to UpdateOrthoImages for hosts that mosaic by themselves.
  ///
  /// Kept: an answer of 0 from the callback does not stop it.
  ///
  /// @return false without photos, parameter file or resolution; true otherwise, whatever photo
  ///         could not be read.
  bool UpdateOrthoImagesMarkOcc(std::string ignored, std::string orthoDir,
                                tqfd::ProgressCallback progress, void* user);
  /// A hook for hosts that balance colours themselves; does nothing and returns true.
  bool ColorCompensation();

 protected:
  /// The rectification part of the job, arguments as TrueOrthoPhotoProc.
  bool OrthoRectiProc(const char* dsmPath, const char* cameraFile, const char* photoListFile,
                      double* heightPair, const char* outputDir,
                      std::vector<tqfd::Point2_T<double>>* areaPolygon, int rectifyOption,
                      bool flagA, bool flagB, tqfd::ProgressCallback progress, void* user);
  /// Builds the masks that decide which photo supplies each part of the mosaic. Unless a host has
  /// put in a maker of its own, false (logged) when no photo has a footprint.
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
  /// cells and towards the nadir. A photo without a readable occlusion mask gets none and reports
  /// no progress, so that the last percentage stays below 100.
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

  /// Reads the mosaic's ground extent and resolution back from the parameter file and the photos'
  /// footprints. With both vectors it also cuts the mosaic into strips of 5,000 rows, from south to
  /// north: the photos of each strip and their bounding rectangle. Photos without a footprint take
  /// no part.
  ///
  /// @return false without a readable parameter file, for a scale below 1 (logged) and, when strips
  ///         are asked for, without a resolution
  bool GetGlobalGeoInfoFromFile(tqfd::Rect2_T<double>& rect, double& resolution,
                                std::vector<std::vector<tqfd::Point2_T<int>>>* stripPhotos,
                                std::vector<tqfd::Rect2_T<double>>* stripRects);
  /// Size and georeference of the mosaic that globalRect and the resolutions describe; 0 and
  /// default coefficients when a resolution is unset.
  int GetGlobalWidth() const;
  int GetGlobalHeight() const;
  tqimage::GeoCoefficients GetGeoCoeff() const;
  /// Fills photoOverlaps from the photos of photoList.
  void CheckOverlaps();
  /// Cuts the mosaic into regions of at most about 1 GB of colour, from north to south; every photo
  /// goes to the first one that it overlaps.
  ///
  /// @param regions       bounding rectangles of the regions' photos
  /// @param ignored       not used
  /// @param regionPhotos  by index of the region; other entries stay
  bool ImageRegionPartition(
      std::vector<tqfd::Rect2_T<double>>& regions, double ignored,
      std::map<std::uint64_t, std::vector<tqfd::Point2_T<int>>>& regionPhotos);
  /// One block of the fill texture, as GennerateFillTexture writes it. Needs the photos, cameras,
  /// global rectangle and resolution of this object; changes nothing, so blocks may be made at
  /// once.
  ///
  /// The result for a cell depends on what lies within 128 cells of it, not on how blocks are cut
  /// (fills more than some tens of cells wide may differ by a grey value).
  ///
  /// @param cells    columns and rows of the mosaic, exclusive ends
  /// @param colours  three bands interleaved, 0 in all of them = no colour
  /// @param numbers  of the photos that supply the cells, 0 = none or filled
  /// @return false when the block is empty or reaches outside the mosaic; outputs are then
  /// unchanged
  bool GenTextureByBlock(const std::string& orthoDir, const tqfd::Rect2_T<int>& cells,
                         std::vector<std::uint8_t>& colours,
                         std::vector<std::uint16_t>& numbers) const;
  /// Gives colours to cells of a block that no photo sees, from seen cells around: first from those
  /// that a path of equal height (steps below one height unit) leads to, then from any; at most 60
  /// cells far, the same again for the latter.
  ///
  /// @param wanted   not 0: give the cell a colour; cols x rows cells, as the next two
  /// @param numbers  0 where the cell has no colour of its own; others are never changed
  /// @param heights  NaN where unknown; empty when nothing is known
  /// @param colours  three bands interleaved
  /// @return false, with nothing changed, when the sizes do not fit
  static bool FillBlkTexture(int cols, int rows, const std::vector<std::uint8_t>& wanted,
                             const std::vector<std::uint16_t>& numbers,
                             const std::vector<float>& heights, std::vector<std::uint8_t>& colours);
  /// Copies the texture's cells over those of an ortho image that its photo does not see (255 in
  /// the mask), exactly and without a feather. Cells stay where the texture has no colour and where
  /// the ortho is empty (0 or 1 in all bands). Safe for different orthos at once.
  ///
  /// @param hidden, texture  byte rasters as large as the ortho, one band and any number of them
  /// @return false, with nothing changed, when a record does not fit
  static bool FillImgObscure(const tqorkit::PhotoInfo& hidden, const tqorkit::PhotoInfo& texture,
                             tqorkit::PhotoInfo& ortho);
  /// Copies the texture's cells over the holes of an ortho image: empty cells (0: no data, 1: an
  /// invalid photo pixel, in all bands) that cells with data enclose. The empty corners between the
  /// photo's frame and its raster stay. Otherwise as FillImgObscure.
  static bool FillImgInvalidHoles(const tqorkit::PhotoInfo& texture, tqorkit::PhotoInfo& ortho);
  /// What the update passes start with: fills photoList, photoOverlaps, globalRect and the
  /// resolutions. Null pointers as in GetGlobalGeoInfoFromFile.
  bool PlaceMosaic(std::vector<std::vector<tqfd::Point2_T<int>>>* stripPhotos,
                   std::vector<tqfd::Rect2_T<double>>* stripRects);

  std::vector<tqorkit::tqPhotoCategory> photoBlocks;  ///< in photo-list order
  std::map<int, tqorkit::tqIntOri> cameras;           ///< by camera id
  std::map<std::uint64_t, std::vector<std::uint64_t>> photoNeighbours;
  std::vector<tqfd::Point2_T<int>> extentPoints;
  tqfd::Rect2_T<double> globalRect;  ///< ground extent of the mosaic
  double globalResX = 0;  ///< ground size of a mosaic cell; below 1e-5 in magnitude = unset
  double globalResY = 0;  ///< negative, north-up
  /// Photos that take part in the update, in job order: x = block, y = photo in the block.
  std::vector<tqfd::Point2_T<int>> photoList;
  /// By index in photoList: those that cover more than 30 % of that photo.
  std::map<std::size_t, std::vector<std::size_t>> photoOverlaps;
};

}  // namespace tqtortho
