// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tqfd/Export.h"
#include "tqfd/Geometry.h"
#include "tqfd/Progress.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Rectification of photos onto a DSM.
///
/// An object carries the geometry of one photo at a time (camera, orientation, rotation matrix), so
/// photos processed in parallel need one object each. Operations return true on success and let no
/// exception out. Method names are fixed by callers, misspellings included.
class TQTORTHO_API tqTORectify {
 public:
  tqTORectify();
  ~tqTORectify();

  /// Rectifies one work block of a parameter file (numbers start at 1).
  ///
  /// False when the file cannot be opened, its scale is below 1 (logged) or the block is missing;
  /// a photo that fails is logged and does not fail the block. Different blocks may run on
  /// different objects at once.
  bool BlockOR(const char* paramPath, int blockNumber);

  /// Rectifies the work blocks 1 to `blockCount` of the job's parameter file in one OpenMP loop.
  ///
  /// Only `blockCount`, `progress` and `user` are used; everything else comes from the file. The
  /// callback gets 100/N more after every finished block, never from two threads at once; its 0
  /// lets no further block start and makes the result false.
  bool ShellOrthoRectify(std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                         std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                         double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                         int rectifyOption, const char* outputDir, int blockCount, bool flagA,
                         bool flagB, tqfd::ProgressCallback progress, void* user);

  /// Writes the parameter file: job settings, then the photos cut into work blocks of one camera.
  ///
  /// @param heightPair  two doubles: ground resolution and start height of the job
  /// @param scale       reduction of the reduced copies, at least 1
  /// @param blockCount  receives the number of work blocks
  /// @return false when the file cannot be created.
  bool UpdateParams(const char* path, std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                    std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                    double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                    int rectifyOption, const char* outputDir, double scale, int& blockCount,
                    bool flagA, bool flagB);

  /// Estimates every photo's footprint on one job-wide lattice and the size of the whole output.
  ///
  /// Footprints are snapped to the lattice of step heightPair[0] (0: the DSM's cell size, written
  /// back) anchored on a DSM cell centre; their height is a hair short of a whole number of
  /// cells, so that an ortho's rows fall on the lattice. A photo that misses the DSM (or lies
  /// outside `areaPolygon`) gets the empty footprint and does not fail the others. Oblique photos
  /// whose centre lies outside their own footprint are served.
  ///
  /// @param photoBlocks      footprints are stored in its photos; their GSD pair when it was unset
  /// @param areaPolygon      ground polygon of the area to produce, or null
  /// @param width, height    receive the output size in cells
  /// @param flagB            sizing run
  /// @param photoNeighbours  receives, per photo (block index << 32 | photo index), the photos
  /// whose
  ///                         footprints overlap its own
  /// @param extentPoints     receives the corners of the job's extent in cells of its lattice
  /// @return false (logged) when the DSM cannot be read or no photo meets it, or after a stop.
  bool OrthoRectifyEstSize(std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                           std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                           double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                           int rectifyOption, const char* outputDir, int& width, int& height,
                           bool flagB,
                           std::map<std::uint64_t, std::vector<std::uint64_t>>& photoNeighbours,
                           std::vector<tqfd::Point2_T<int>>& extentPoints,
                           tqfd::ProgressCallback progress, void* user);

 private:
  bool PrepareParams(const char* path, std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                     std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                     double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                     int rectifyOption, const char* outputDir, double scale, int& blockCount,
                     bool flagA, bool flagB);

  // Extent estimation.
  bool ReadAndStrechDSM(const char* dsmPath, int maxCells, tqorkit::PhotoInfo& dsm);
  static void ZoomNeighbor(const tqorkit::PhotoInfo& in, double factor, tqorkit::PhotoInfo& out);

  // Camera geometry.
  void CreateRotateMatrix();
  void CalcCollinearityEquation(double groundX, double groundY, double groundZ, double& x,
                                double& y) const;
  void CalcInvCollinearityEquation(double x, double y, double groundZ, double& groundX,
                                   double& groundY) const;
  [[nodiscard]] tqfd::Point2_T<float> PixelDistortionCorrect(tqfd::Point2_T<float> ideal) const;

  // One photo.
  bool DoTORectfy(tqorkit::PhotoInfo& photo, tqorkit::PhotoInfo& dsm,
                  const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior, int method,
                  double* parameters, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                  const tqfd::Rect2_T<double>& requestedRect, tqorkit::PhotoInfo& output,
                  bool estimate, std::vector<std::uint8_t>* occlusion,
                  tqfd::ProgressCallback progress, void* user);
  void CalcGeoParas(tqorkit::PhotoInfo& photo, const tqorkit::PhotoInfo& dsm, double* parameters);
  bool DoRectifyingRect(tqorkit::PhotoInfo& photo, const tqorkit::PhotoInfo& dsm, int method,
                        double* parameters, tqorkit::PhotoInfo& output);
  bool DoRectifyingPixels(tqorkit::PhotoInfo& photo, const tqorkit::PhotoInfo& dsm, int method,
                          double* parameters, tqorkit::PhotoInfo& output,
                          std::vector<std::uint8_t>* occlusion);
  bool DoRectifyingPixelsEx(tqorkit::PhotoInfo& photo, const tqorkit::PhotoInfo& dsm, int method,
                            double* parameters, tqorkit::PhotoInfo& output,
                            std::vector<std::uint8_t>* occlusion);

  // One block of photos.
  bool OrthoRectifyImagery(std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                           std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                           double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                           int rectifyOption, double scale, int reducedCopy, const char* outputDir,
                           bool flagB, tqfd::ProgressCallback progress, void* user);
  struct BlockJob;
  enum class PhotoOutcome { kDone, kNoOrtho, kNotWritten, kBadScale };
  PhotoOutcome RectifyBlockPhoto(BlockJob& job, const std::string& photoPath,
                                 tqorkit::tqExtOri& photo, const std::string& orthoName);
  bool RefineTOR(tqorkit::PhotoInfo& ortho, tqorkit::PhotoInfo& weightMask);
  bool RefineROI(tqorkit::PhotoInfo& ortho, tqorkit::PhotoInfo& mask);

  // Occlusion masks.
  void RefineOcclusion(std::uint8_t* mask, int width, int height);
  bool FilterSpeckles(const std::string& maskPath);
  bool AdjustOcclusion(const std::string& maskPath);
  bool CheckTallBuilding(const tqfd::Rect2_T<double>& rect);
  bool OcculusionJutAdjust(const std::string& maskPath, int first, int second, int third);

  /// Which cells of a ground lattice a photo cannot see, by projecting the surface model into it.
  ///
  /// @param rect          first to last cell CENTRE of the lattice, its first cell at (minX, maxY):
  ///                      trunc((maxX - minX) / gsd + 0.5) + 1 columns, rows likewise
  /// @param outsideValue  for cells that are not in the photo's frame
  /// @param mask          receives rows x cols bytes: 255 hidden, 0 seen or without a height
  /// @return false when the surface cannot be read or does not meet the rectangle, or when the
  ///         rectangle, gsd or camera make no sense; then nothing is said about the outputs.
  ///
  /// Touches no state of the object; safe from several threads.
  static bool GenOcclusion(const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior,
                           const char* dsmPath, const tqfd::Rect2_T<double>& rect, double gsd,
                           std::uint8_t outsideValue, std::vector<std::uint8_t>& mask, int& cols,
                           int& rows);
  /// The same into a mask file with georeference and the surface model's CRS, made in parts so that
  /// memory does not grow with the mask. A failed call leaves no file.
  static bool GenOcclusionEx(const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior,
                             const char* dsmPath, const tqfd::Rect2_T<double>& rect, double gsd,
                             std::uint8_t outsideValue, const char* outPath);
  /// Reads the surface model under a ground rectangle and under everything that can hide it: toward
  /// the camera as far as sight lines run below the highest surface, a margin of three cells, and a
  /// border of no data where the file ends.
  ///
  /// @param surface       receives floats; its rectangle runs from first to last cell centre
  /// @param coefficients  receives the part's centre-registered georeference with the file's CRS
  /// @return false when the file cannot be read, is not north-up, does not meet the rectangle, or
  ///         the part exceeds 1e9 cells.
  static bool LoadSubDEM(const char* dsmPath, const tqfd::Rect2_T<double>& rect,
                         const tqfd::Point3_T<double>& camera, tqorkit::PhotoInfo& surface,
                         tqimage::GeoCoefficients& coefficients);

  double rotation_[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // row-major: a1 a2 a3, b1 b2 b3, c1 c2 c3
  tqorkit::tqIntOri interior_;
  tqorkit::tqExtOri exterior_;
};

}  // namespace tqtortho
