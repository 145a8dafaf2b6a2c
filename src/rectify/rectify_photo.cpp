// SPDX-License-Identifier: Apache-2.0
//
// One photo onto one tile: the members that unpack records, run the kernels and pack the result.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "camera/camera_model.h"
#include "camera/photo_camera.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "rectify/footprint.h"
#include "rectify/ortho_kernel.h"
#include "rectify/valid_rect.h"
#include "stage/call_guard.h"
#include "tqorkit/TqGPC.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

using tqorkit::PhotoInfo;
using Rect = tqfd::Rect2_T<double>;

/// The photo's camera with the rotation matrix that the object holds, which callers may have built
/// from another orientation than the one it holds now.
PhotoCamera MakeCamera(const tqorkit::tqIntOri& interior, const tqorkit::tqExtOri& exterior,
                       const double* rotation) {
  PhotoCamera camera = CameraOf(interior, exterior);
  std::copy_n(rotation, 9, camera.rotation);
  return camera;
}

/// The surface of a tile record; empty when its data are shorter than its size says.
SurfaceTile MakeTile(const PhotoInfo& dsm) {
  SurfaceTile tile;
  tile.minX = dsm.geoRect[0];
  tile.minY = dsm.geoRect[1];
  tile.maxX = dsm.geoRect[2];
  tile.maxY = dsm.geoRect[3];
  tile.cell = dsm.resX;
  tile.cellY = dsm.resY;
  tile.noData = dsm.noData;
  tile.defaultZ = dsm.defaultZ;
  const GridView<const float> heights(reinterpret_cast<const float*>(dsm.data.data()), dsm.height,
                                      dsm.width);
  if (dsm.data.size() / sizeof(float) >= heights.CellCount()) tile.heights = heights;
  return tile;
}

/// The raster of a photo record; without bands when its data are shorter than its size says.
PhotoRaster MakeRaster(const PhotoInfo& photo) {
  if (photo.width <= 0 || photo.height <= 0 || photo.bands <= 0) return {};
  const std::size_t pixels =
      static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(photo.height);
  if (photo.data.size() / static_cast<std::size_t>(photo.bands) < pixels) return {};
  return {photo.data.data(), photo.width, photo.height, photo.bands};
}

Rect RectOf(const PhotoInfo& info) {
  return {info.geoRect[0], info.geoRect[1], info.geoRect[2], info.geoRect[3]};
}

void SetRect(PhotoInfo& info, const Rect& rect) {
  info.geoRect[0] = rect.minX;
  info.geoRect[1] = rect.minY;
  info.geoRect[2] = rect.maxX;
  info.geoRect[3] = rect.maxY;
}

bool FailWithoutSize(PhotoInfo& output) {
  output.width = 0;
  output.height = 0;
  output.bands = 0;
  return false;
}

bool FailWithoutSizeAndType(PhotoInfo& output) {
  output.dataType = 0;
  return FailWithoutSize(output);
}

/// Whether the photo's footprint shares an area with the polygon.
///
/// Kept: the footprint's four vertices take X from its first two stored values (minX, minY) and Y
/// from the last two (maxX, maxY). In projected coordinates that quadrilateral is nowhere near the
/// photo, so callers that mean the area cut to the polygon themselves and pass none here.
bool MeetsArea(const double* g, const std::vector<tqfd::Point2_T<double>>& area) {
  const double footprintX[4] = {g[0], g[0], g[1], g[1]};
  const double footprintY[4] = {g[2], g[3], g[3], g[2]};
  std::vector<double> areaX;
  std::vector<double> areaY;
  for (const tqfd::Point2_T<double>& point : area) {
    areaX.push_back(point.x);
    areaY.push_back(point.y);
  }
  using tqorkit::TqGPC;
  tqorkit::TqPolygon* areaPolygon =
      TqGPC::CreatePoly(areaX.data(), areaY.data(), static_cast<int>(area.size()));
  tqorkit::TqPolygon* footprint = TqGPC::CreatePoly(footprintX, footprintY, 4);
  const bool meets = TqGPC::BooleanPoly(footprint, areaPolygon, tqorkit::kPolyIntersection);
  TqGPC::RemovePoly(areaPolygon);
  TqGPC::RemovePoly(footprint);
  return meets;
}

/// Moves the block rows [firstRow, + rows) x columns [firstCol, + cols) of a raster with
/// `cellBytes` bytes per cell to its front, in place, and cuts the rest off.
void CropInPlace(std::vector<std::uint8_t>& raster, int rasterCols, int cellBytes, int firstRow,
                 int firstCol, int rows, int cols) {
  const std::size_t from = static_cast<std::size_t>(rasterCols) * cellBytes;
  const std::size_t to = static_cast<std::size_t>(cols) * cellBytes;
  const std::size_t skip = static_cast<std::size_t>(firstCol) * cellBytes;
  for (int row = 0; row < rows; ++row) {
    std::memmove(raster.data() + row * to, raster.data() + (firstRow + row) * from + skip, to);
  }
  raster.resize(rows * to);
}

}  // namespace

void tqTORectify::CreateRotateMatrix() {
  double pose[6];
  exterior_.GetPos(pose);
  RotationFromAngles(pose[3], pose[4], pose[5], rotation_);
}

void tqTORectify::CalcCollinearityEquation(double groundX, double groundY, double groundZ,
                                           double& x, double& y) const {
  const tqfd::Point2_T<double> image =
      ImageFromGround(MakeCamera(interior_, exterior_, rotation_), groundX, groundY, groundZ);
  x = image.x;
  y = image.y;
}

void tqTORectify::CalcInvCollinearityEquation(double x, double y, double groundZ, double& groundX,
                                              double& groundY) const {
  const tqfd::Point2_T<double> ground =
      GroundFromImage(MakeCamera(interior_, exterior_, rotation_), x, y, groundZ);
  groundX = ground.x;
  groundY = ground.y;
}

tqfd::Point2_T<float> tqTORectify::PixelDistortionCorrect(tqfd::Point2_T<float> ideal) const {
  return RecordedFromIdeal(LensOf(interior_), ideal);
}

bool tqTORectify::DoTORectfy(PhotoInfo& photo, PhotoInfo& dsm, const tqorkit::tqIntOri& interior,
                             const tqorkit::tqExtOri& exterior, int method, double* parameters,
                             std::vector<tqfd::Point2_T<double>>* areaPolygon,
                             const Rect& requestedRect, PhotoInfo& output, bool estimate,
                             std::vector<std::uint8_t>* occlusion, tqfd::ProgressCallback progress,
                             void* user) {
  static_cast<void>(progress);  // one photo is too short to report on
  static_cast<void>(user);
  interior_ = interior;
  exterior_ = exterior;
  CreateRotateMatrix();
  if (parameters == nullptr || !IsUsable(MakeCamera(interior_, exterior_, rotation_))) {
    return FailWithoutSize(output);
  }

  if (estimate) {
    CalcGeoParas(photo, dsm, parameters);
  } else {
    SetRect(photo, exterior_.GetGeoRect());
  }
  if (areaPolygon != nullptr && !MeetsArea(photo.geoRect, *areaPolygon)) {
    return FailWithoutSize(output);
  }
  if (OverlapsStrictly(RectOf(photo), requestedRect)) {
    SetRect(photo, Intersection(RectOf(photo), requestedRect));
  }
  return estimate ? DoRectifyingRect(photo, dsm, method, parameters, output)
                  : DoRectifyingPixels(photo, dsm, method, parameters, output, occlusion);
}

void tqTORectify::CalcGeoParas(PhotoInfo& photo, const PhotoInfo& dsm, double* parameters) {
  SetRect(photo, GroundFootprint(MakeCamera(interior_, exterior_, rotation_), MakeTile(dsm),
                                 photo.width, photo.height, parameters[1]));
}

bool tqTORectify::DoRectifyingRect(PhotoInfo& photo, const PhotoInfo& dsm, int method,
                                   double* parameters, PhotoInfo& output) {
  static_cast<void>(method);  // no pixels, no resampling
  if (!HasArea(Intersection(RectOf(photo), RectOf(dsm)))) return FailWithoutSizeAndType(output);
  if (parameters[0] == 0) parameters[0] = dsm.resX;
  const double cell = parameters[0];
  const SurfaceTile tile = MakeTile(dsm);
  const auto grid = GridOnTile(RectOf(photo), tile, cell, photo.bands);
  if (!grid) return FailWithoutSizeAndType(output);

  const Rect covered = CoveredRect(MakeCamera(interior_, exterior_, rotation_), tile, *grid);
  const int cols = CellsAlong(covered.minX, covered.maxX, cell);
  const int rows = CellsAlong(covered.minY, covered.maxY, cell);
  if (cols < 2 || rows < 2) return FailWithoutSizeAndType(output);
  output.width = cols;
  output.height = rows;
  output.bands = photo.bands;
  output.resX = cell;
  output.resY = -cell;
  SetRect(output, covered);
  SetRect(photo, covered);
  return true;
}

bool tqTORectify::DoRectifyingPixels(PhotoInfo& photo, const PhotoInfo& dsm, int method,
                                     double* parameters, PhotoInfo& output,
                                     std::vector<std::uint8_t>* occlusion) {
  if (!HasArea(Intersection(RectOf(photo), RectOf(dsm)))) return FailWithoutSize(output);
  if (std::fabs(parameters[0]) < kResolutionTolerance) parameters[0] = dsm.resX;
  const double cell = parameters[0];
  OrthoTask task;
  task.camera = MakeCamera(interior_, exterior_, rotation_);
  task.tile = MakeTile(dsm);
  task.photo = MakeRaster(photo);
  task.method = method == 1 ? Resampling::kBilinear : Resampling::kNearest;
  task.markHidden = occlusion != nullptr;
  task.stop = &processStop;
  const auto grid = GridOnTile(RectOf(photo), task.tile, cell, photo.bands);
  if (!grid || task.photo.bands == 0) return FailWithoutSize(output);
  task.grid = *grid;

  OrthoCells cells;
  const bool made = Guarded([&] {
    RectifyCells(task, OrthoKernelFromEnvironment(), cells);
    if (cells.minCol < cells.maxCol && occlusion != nullptr) {
      GiveUpIfRaised(&processStop);
      RefineOcclusion(cells.hidden.data(), grid->cols, grid->rows);
    }
    return true;
  });
  if (!made) return FailWithoutSize(output);  // out of memory, or stopped
  // Kept: without + 1, so the last column and row that hold data are cut off.
  const int width = cells.maxCol - cells.minCol;
  const int height = cells.maxRow - cells.minRow;
  if (width <= 0 || height <= 0) return FailWithoutSizeAndType(output);

  if (occlusion != nullptr) {
    CropInPlace(cells.hidden, grid->cols, 1, cells.minRow, cells.minCol, height, width);
    *occlusion = std::move(cells.hidden);
  }
  CropInPlace(cells.pixels, grid->cols, photo.bands, cells.minRow, cells.minCol, height, width);
  output.data = std::move(cells.pixels);
  output.width = width;
  output.height = height;
  output.bands = photo.bands;
  output.dataType = 1;
  output.resX = cell;
  output.resY = -cell;
  Rect rect;
  rect.minX = grid->minX + cells.minCol * cell;
  rect.minY = grid->minY + (grid->rows - cells.maxRow) * cell;
  rect.maxX = rect.minX + width * cell;
  rect.maxY = rect.minY + height * cell;
  SetRect(output, rect);
  return true;
}

bool tqTORectify::DoRectifyingPixelsEx(PhotoInfo& photo, const PhotoInfo& dsm, int method,
                                       double* parameters, PhotoInfo& output,
                                       std::vector<std::uint8_t>* occlusion) {
  return DoRectifyingPixels(photo, dsm, method, parameters, output, occlusion);
}

}  // namespace tqtortho
