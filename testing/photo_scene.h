// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqtortho::testing {

/// One photo over one surface tile, as the rectification takes them.
struct PhotoScene {
  tqorkit::PhotoInfo photo;
  tqorkit::PhotoInfo dsm;
  tqorkit::tqIntOri::INTORI camera;
  tqorkit::tqExtOri::EXTORI pose;
  double parameters[2] = {0, 0};

  [[nodiscard]] tqorkit::tqIntOri Interior() const {
    tqorkit::tqIntOri interior;
    interior.Set(camera);
    return interior;
  }
  [[nodiscard]] tqorkit::tqExtOri Exterior() const {
    tqorkit::tqExtOri exterior;
    exterior.Set(pose);
    return exterior;
  }
  [[nodiscard]] float* Heights() { return reinterpret_cast<float*>(dsm.data.data()); }
  float& Height(int row, int col) { return Heights()[row * dsm.width + col]; }
  std::uint8_t* Pixel(int row, int col) {
    return photo.data.data() + (static_cast<std::size_t>(row) * photo.width + col) * photo.bands;
  }
};

/// A tile of `rows` x `cols` cells of one height, its lower left corner at (minX, minY).
inline void SetFlatTile(PhotoScene& scene, int rows, int cols, double cell, double minX,
                        double minY, float height) {
  tqorkit::PhotoInfo& dsm = scene.dsm;
  dsm.width = cols;
  dsm.height = rows;
  dsm.bands = 1;
  dsm.resX = cell;
  dsm.resY = -cell;
  dsm.geoRect[0] = minX;
  dsm.geoRect[1] = minY;
  dsm.geoRect[2] = minX + cols * cell;
  dsm.geoRect[3] = minY + rows * cell;
  dsm.noData = -9999;
  dsm.defaultZ = height;
  dsm.data.resize(static_cast<std::size_t>(rows) * cols * sizeof(float));
  for (int i = 0; i < rows * cols; ++i) scene.Heights()[i] = height;
}

/// A camera of `width` x `height` pixels with pixel units (pixel size 1) and a photo that fills
/// its frame with one value.
inline void SetCamera(PhotoScene& scene, int width, int height, int bands, double focalPixels,
                      std::uint8_t value) {
  scene.camera.imageWidth = width;
  scene.camera.imageHeight = height;
  scene.camera.focalLength = focalPixels;
  scene.camera.pixelSize = 1;
  scene.photo.width = width;
  scene.photo.height = height;
  scene.photo.bands = bands;
  scene.photo.dataType = 1;
  scene.photo.data.assign(static_cast<std::size_t>(width) * height * bands, value);
}

/// A camera looking straight down from (x, y, z), image top to the north, 1 ground unit per pixel
/// on height 0 when the focal length is z pixels.
inline PhotoScene NadirScene(int size, double z, double x = 0, double y = 0) {
  PhotoScene scene;
  SetCamera(scene, size, size, 3, z, 100);
  SetFlatTile(scene, 2 * size, 2 * size, 1.0, x - size, y - size, 0);
  scene.pose.position[0] = x;
  scene.pose.position[1] = y;
  scene.pose.position[2] = z;
  return scene;
}

/// A small random scene: any attitude up to 60 degrees and any heading, rough surface with holes,
/// photo noise with many 0 and 1, all lens models with coefficients from tame to wild, grids finer
/// and coarser than the tile, footprints partly outside it, rasters smaller than the frame.
inline PhotoScene RandomScene(std::mt19937& random) {
  const auto real = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  const auto whole = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  PhotoScene scene;
  const int width = whole(1, 4) == 1 ? whole(2, 12) : whole(8, 120);
  const int height = whole(1, 4) == 1 ? whole(2, 12) : whole(8, 120);
  const int bandChoice[] = {1, 3, 3, 3, 4, 2};
  SetCamera(scene, width, height, bandChoice[whole(0, 5)], real(0.6, 2.0) * width, 0);
  if (whole(1, 3) == 1) {  // another length unit
    const double unit = real(0.001, 0.01);
    scene.camera.pixelSize = unit;
    scene.camera.focalLength *= unit;
  }
  scene.camera.offsetX = whole(0, 1) * real(-2, 2) * scene.camera.pixelSize;
  scene.camera.offsetY = whole(0, 1) * real(-2, 2) * scene.camera.pixelSize;
  if (whole(1, 20) == 1) scene.camera.imageHeight += 0.5;
  const int models[] = {0, 1, 1, 3, 3, 2};
  scene.camera.distortionModel = models[whole(0, 5)];
  const double wild = std::pow(10.0, real(-2, whole(1, 4) == 1 ? 3 : 0));
  const double lever = scene.camera.distortionModel == 1 ? 1.0 / width : 1.0;
  double* k = scene.camera.coefficients;
  for (int i = 0; i < 3; ++i) k[i] = real(-0.3, 0.3) * wild * std::pow(lever, 2.0 * (i + 1));
  for (int i = 3; i < 5; ++i) k[i] = real(-0.05, 0.05) * wild * lever;
  for (int i = 5; i < 7; ++i) k[i] = real(-0.05, 0.05) * wild;
  if (whole(1, 8) == 1) {  // a raster that is not the camera's frame
    scene.photo.width = whole(1, width + 5);
    scene.photo.height = whole(1, height + 5);
  }
  scene.photo.data.resize(static_cast<std::size_t>(scene.photo.width) * scene.photo.height *
                          scene.photo.bands);
  const int noise = whole(0, 2);
  for (std::uint8_t& value : scene.photo.data) {
    const int v = noise == 0 ? whole(0, 3) : whole(0, 255);
    value = static_cast<std::uint8_t>(noise == 2 && v < 2 ? 2 : v);
  }

  const double corner[] = {0, real(-50, 50), real(4e5, 5e5)};
  const double minX = corner[whole(0, 2)];
  const double minY = corner[whole(0, 2)] * 10;
  const double cell = whole(0, 2) == 0 ? 0.5 : real(0.1, 3.0);
  SetFlatTile(scene, whole(2, 70), whole(2, 70), cell, minX, minY, 0);
  const double base = real(-20, 500);
  const double relief = whole(0, 1) * real(0, 30);
  const int holes = whole(0, 2) == 0 ? whole(1, 30) : 0;
  const double noDatas[] = {-9999, 0, base, -32768};
  scene.dsm.noData = noDatas[whole(0, 3)];
  scene.dsm.defaultZ = base;
  for (int i = 0; i < scene.dsm.width * scene.dsm.height; ++i) {
    const bool hole = holes > 0 && whole(0, holes) == 0;
    scene.Heights()[i] = static_cast<float>(
        hole ? scene.dsm.noData + whole(0, 1) * real(-0.002, 0.002) : base + real(-relief, relief));
  }

  const double extentX = scene.dsm.width * cell;
  const double extentY = scene.dsm.height * cell;
  const double reach = std::fmax(extentX, extentY);
  double* p = scene.pose.position;
  p[0] = minX + extentX * real(-0.2, 1.2);
  p[1] = minY + extentY * real(-0.2, 1.2);
  p[2] = base + reach * real(0.2, 2.0) + 1;
  p[3] = whole(0, 1) * real(-1.05, 1.05);
  p[4] = whole(0, 1) * real(-1.05, 1.05);
  p[5] = real(-3.2, 3.2);
  scene.pose.geoRect = {minX + extentX * real(-0.3, 0.4), minY + extentY * real(-0.3, 0.4),
                        minX + extentX * real(0.6, 1.3), minY + extentY * real(0.6, 1.3)};
  if (whole(0, 3) == 0) {  // on the tile's own lattice: indices meet cell borders
    scene.pose.geoRect = {minX + cell, minY + cell, minX + extentX - cell, minY + extentY - cell};
  }
  scene.parameters[0] = whole(0, 2) == 0 ? 0.0 : cell * real(0.3, 2.5);
  scene.parameters[1] = base;
  return scene;
}

}  // namespace tqtortho::testing
