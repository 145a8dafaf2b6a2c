// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqtortho::testing {

/// A photo that looks straight down from (x, y, z).
inline tqorkit::tqExtOri PhotoAt(double x, double y, double z,
                                 const tqfd::Rect2_T<double>& footprint = {},
                                 const std::string& name = "", int cameraId = 1, int block = 0) {
  tqorkit::tqExtOri::EXTORI record;
  record.photoName = name;
  record.position[0] = x;
  record.position[1] = y;
  record.position[2] = z;
  record.cameraId = cameraId;
  record.geoRect = footprint;
  record.imageBlockId = block;
  tqorkit::tqExtOri photo;
  photo.Set(record);
  return photo;
}

/// A camera without distortion, its principal point in the middle.
inline tqorkit::tqIntOri PlainCamera(int id, int width, int height, double focalLength,
                                     double pixelSize) {
  tqorkit::tqIntOri::INTORI record;
  record.cameraId = id;
  record.imageWidth = width;
  record.imageHeight = height;
  record.focalLength = focalLength;
  record.pixelSize = pixelSize;
  tqorkit::tqIntOri camera;
  camera.Set(record);
  return camera;
}

}  // namespace tqtortho::testing
