// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/camera_model.h"
#include "mosaic/colour_balance.h"
#include "mosaic/layer_store.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// The grid of a whole mosaic: positions of cell centres, rows southwards.
struct MosaicGrid {
  double minX = 0;
  double maxY = 0;
  double step = 0;
  int cols = 0;
  int rows = 0;
  std::string projection;
};

/// Side of the blocks whose mean colours are compared between photos, in cells.
inline constexpr int kColourBlock = 32;

/// One photo of a mosaic.
struct MosaicPhoto {
  int number = 0;  ///< global, from 1
  std::string name;
  int cameraId = 0;
  std::string photoPath;
  std::string orthoPath;
  std::string maskPath;  ///< what the photo cannot see, on the ortho's grid
  PhotoCamera camera;
  bool usable = false;  ///< has an ortho on the grid and a layer
  int firstCol = 0;     ///< of the ortho on the grid
  int firstRow = 0;
  int cols = 0;
  int rows = 0;
};

/// Where a photo shows a ground point: a fractional column and row of its pixels. False outside the
/// frame.
[[nodiscard]] bool PhotoPosition(const PhotoCamera& camera, double x, double y, double z,
                                 double& column, double& row);

/// How far a ground point's image lies from the middle of the photo; 1 is a corner. 2 for points
/// that the photo cannot show.
[[nodiscard]] double PhotoRadius(const PhotoCamera& camera, double x, double y, double z);

/// Makes a photo's layer: the rating of its view of each of its ortho's cells (see view_rating.h),
/// and its pixels. A cell is hidden exactly where the photo's occlusion mask says so (255), and the
/// photo shows nothing where its ortho has no data. Beside walls the ortho has followed a surface
/// that leans from the foot of the wall to its top over a whole cell, and shows facades and roofs
/// in place of the ground; these cells are taken from the photo again, at heights that know walls.
///
/// @param photo   its place on the grid and `usable` are set
/// @param store   receives the layer, under the photo's number
/// @param colours receives the mean colours of blocks for balancing
/// @return false, with one line in `error`, when the photo cannot take part
bool MakeMosaicLayer(const MosaicGrid& grid, const std::string& dsmPath, MosaicPhoto& photo,
                     LayerStore& store, PhotoColours& colours, std::string& error);

}  // namespace tqtortho::host
