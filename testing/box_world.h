// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "camera/photo_camera.h"
#include "geo/Crs.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho::testing {

/// Ground that rises to the east and three buildings with flat roofs, photographed by two cameras
/// of different frame and lens from seven places in two folders. Nothing in it is symmetric, so
/// that whatever is mirrored, exchanged or off by one shows. Photos are rendered by casting rays,
/// which shares nothing with rectification but the camera's own formulas.
///
/// Colours tell the place: the first band grows eastwards, the second northwards, the third is
/// about 90 on the ground, 160 on roofs and 230 on facades.
struct BoxWorld {
  static constexpr int kCols = 88, kRows = 62;
  static constexpr double kX0 = 352000.25, kY0 = 5412000.75, kCell = 0.5;
  static constexpr double kGround = 90, kRoof = 160, kFacade = 230;
  /// Edges of a building, in metres east and south of the centre of the first cell, and its roof.
  struct Box {
    double west, north, east, south, top;
  };
  static constexpr Box kBoxes[] = {{9.75, 6.25, 16.25, 12.75, 112},
                                   {21.25, 14.75, 30.75, 18.25, 109},
                                   {32.25, 4.75, 35.75, 7.25, 115}};
  struct Photo {
    const char* name;
    int folder, camera;
    double east, south, up, omega, phi, kappa;
  };
  static constexpr Photo kPhotos[] = {{"a.tif", 0, 1, 11.3, 9.1, 138, 0.02, -0.03, 0.11},
                                      {"b.png", 0, 1, 20.9, 8.3, 139, -0.05, 0.04, -0.07},
                                      {"c.tif", 1, 2, 31.2, 9.7, 137, 0.03, 0.02, 1.62},
                                      {"d.tif", 0, 1, 12.6, 20.4, 140, 0.09, 0.01, 3.05},
                                      {"a.tif", 1, 2, 22.7, 21.8, 138, -0.02, -0.06, -1.49},
                                      {"e.tif", 0, 1, 32.1, 20.2, 139, 0.01, 0.07, 0.05},
                                      {"f.png", 1, 2, 25.4, 14.9, 141, 0.13, -0.12, 0.4}};

  explicit BoxWorld(double noData = -9999) {
    WriteDsm(noData);
    WriteLists();
    for (const Photo& photo : kPhotos) Render(photo);
  }

  static double Ground(double east) { return 100 + 0.04 * east; }
  static bool Holds(const Box& box, double east, double south) {
    return east > box.west && east < box.east && south > box.north && south < box.south;
  }
  static double Height(double east, double south) {
    for (const Box& box : kBoxes) {
      if (Holds(box, east, south)) return box.top;
    }
    return Ground(east);
  }
  /// Metres to the nearest wall, in rows or columns, whichever is more.
  static double FromWalls(double east, double south) {
    double least = 1e9;
    for (const Box& box : kBoxes) {
      const double x = std::max(box.west - east, east - box.east);
      const double y = std::max(box.north - south, south - box.south);
      least = std::min(least, std::fabs(std::max(x, y)));
    }
    return least;
  }
  /// Whether the straight line from a point of the surface to the camera misses all buildings.
  static bool Sees(const Photo& photo, double east, double south) {
    const double z = Height(east, south);
    const double d[3] = {photo.east - east, photo.south - south, photo.up - z};
    double at = 0;
    return std::none_of(std::begin(kBoxes), std::end(kBoxes), [&](const Box& box) {
      return Holds(box, east, south) ? false : Meets(box, {east, south, z}, d, at) && at < 1;
    });
  }
  static tqorkit::tqIntOri Camera(int id) {
    tqorkit::tqIntOri::INTORI c;
    c.cameraId = id;
    c.imageWidth = id == 1 ? 160 : 126;
    c.imageHeight = id == 1 ? 120 : 150;
    c.focalLength = id == 1 ? 240 : 205;
    c.pixelSize = 1;
    c.offsetX = id == 1 ? 2.5 : -3.25;
    c.offsetY = id == 1 ? -1.5 : 4.75;
    c.distortionModel = id == 1 ? 3 : 1;
    if (id == 1) std::copy_n(std::begin({-0.05, 0.01, 0.0, 1e-3, -2e-3}), 5, c.coefficients);
    if (id == 2) std::copy_n(std::begin({2e-6, 0.0, 0.0, 1e-5, 2e-5, 1e-3}), 6, c.coefficients);
    tqorkit::tqIntOri camera;
    camera.Set(c);
    return camera;
  }
  static tqorkit::tqExtOri Pose(const Photo& photo) {
    tqorkit::tqExtOri::EXTORI p;
    p.photoName = photo.name;
    p.cameraId = photo.camera;
    const double values[] = {kX0 + photo.east, kY0 - photo.south, photo.up,
                             photo.omega,      photo.phi,         photo.kappa};
    std::copy_n(values, 6, p.position);
    tqorkit::tqExtOri pose;
    pose.Set(p);
    return pose;
  }
  [[nodiscard]] std::string Dsm() const { return dir.File("dsm.tif"); }
  [[nodiscard]] std::string Cameras() const { return dir.File("cameras.txt"); }
  [[nodiscard]] std::string Photos() const { return dir.File("photos.txt"); }

  /// @param noData  of the file; a corner and single cells have none of the heights
  /// @param lift    added to all heights
  void WriteDsm(double noData, double lift = 0) const {
    std::vector<float> cells;
    for (int row = 0; row < kRows; ++row) {
      for (int col = 0; col < kCols; ++col) {
        const bool none = (row < 5 && col < 9) || (row * 7 + col) % 997 == 3;
        const double height = Height(col * kCell, row * kCell) + lift;
        cells.push_back(static_cast<float>(!none ? height : col % 2 == 0 ? noData : NAN));
      }
    }
    const RasterPlace place{kX0, kY0, kCell, geo::CrsToWkt("EPSG:32633")};
    EXPECT_TRUE(WriteRaster(Dsm(), tqimage::kFloat32, cells.data(), kCols, kRows, place, &noData));
  }

  TempDir dir;

 private:
  struct Point {
    double east, south, up;
  };

  /// Where a ray enters a building, as a multiple of its direction.
  static bool Meets(const Box& box, const Point& from, const double* d, double& at) {
    const double low[] = {box.west, box.north, 0}, high[] = {box.east, box.south, box.top};
    const double p[] = {from.east, from.south, from.up};
    double first = 1e-9, last = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 3; ++i) {
      const double a = (low[i] - p[i]) / d[i], b = (high[i] - p[i]) / d[i];
      first = std::max(first, std::min(a, b));
      last = std::min(last, std::max(a, b));
    }
    at = first;
    return first < last;
  }
  static std::uint8_t Grey(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 3.0, 255.0)));
  }
  void Render(const Photo& photo) const {
    const PhotoCamera camera = CameraOf(Camera(photo.camera), Pose(photo));
    const int cols = static_cast<int>(camera.width), rows = static_cast<int>(camera.height);
    std::vector<std::uint8_t> pixels;
    for (int row = 0; row < rows; ++row) {
      for (int col = 0; col < cols; ++col) {
        // The ideal position that the lens records here, to a thousandth of a pixel.
        const double u = rows - row;
        tqfd::Point2_T<double> ideal{double(col), u};
        for (int i = 0; i < 40; ++i) {
          const auto q = RecordedFromIdeal(camera.lens, {float(ideal.x), float(ideal.y)});
          ideal.x += 0.7 * (col - double{q.x});
          ideal.y += 0.7 * (u - double{q.y});
        }
        const double x = (ideal.x - 0.5 * cols) * camera.pixelSize - camera.offsetX;
        const double y = (ideal.y - 0.5 * rows) * camera.pixelSize - camera.offsetY;
        const double* m = camera.rotation;
        const double d[] = {m[0] * x + m[1] * y - m[2] * camera.focal,
                            -(m[3] * x + m[4] * y - m[5] * camera.focal),
                            m[6] * x + m[7] * y - m[8] * camera.focal};
        const Point from{photo.east, photo.south, photo.up};
        // 100 + 0.04 (east + t dx) = up + t dz
        double least = (Ground(from.east) - from.up) / (d[2] - 0.04 * d[0]);
        double kind = kGround;
        for (const Box& box : kBoxes) {
          double at = 0;
          if (!Meets(box, from, d, at) || at >= least) continue;
          least = at;
          kind = from.up + at * d[2] > box.top - 1e-6 ? kRoof : kFacade;
        }
        const double east = from.east + least * d[0], south = from.south + least * d[1];
        const auto grain = static_cast<int>(std::floor(east / 0.7) * 3 + std::floor(south)) % 5;
        pixels.insert(pixels.end(),
                      {Grey(30 + 4.5 * east), Grey(230 - 5 * south), Grey(kind + 2 * grain)});
      }
    }
    const std::string folder = dir.File(photo.folder == 0 ? "west" : "east folder");
    std::filesystem::create_directories(folder);
    EXPECT_TRUE(tqorkit::TqFSManager::SaveImageFile(pixels.data(), cols, rows, 3,
                                                    folder + "/" + photo.name, true, nullptr));
  }
  void WriteLists() const {
    std::string cameras = "2\n", photos = "2\n";
    char line[400];
    for (const int id : {1, 2}) {
      const tqorkit::tqIntOri camera = Camera(id);
      const auto& c = camera.Get();
      std::snprintf(line, sizeof line, "%d\ncamera %d\n%g %g %g %g %g %.6f %.6f %d", id, id,
                    c.imageWidth, c.imageHeight, c.focalLength, c.imageWidth, c.imageHeight,
                    0.5 * c.imageWidth + c.offsetX, 0.5 * c.imageHeight + c.offsetY,
                    c.distortionModel);
      cameras += line;
      for (const double k : c.coefficients) cameras += " " + std::to_string(k * 1e6) + "e-6";
      cameras += "\n";
    }
    for (const int folder : {0, 1}) {
      photos += folder == 0 ? "4\n" + dir.File("west") : "3\n" + dir.File("east folder");
      for (const Photo& p : kPhotos) {
        if (p.folder != folder) continue;
        std::snprintf(line, sizeof line, "\n%s %.6f %.6f %.6f %.9f %.9f %.9f %d", p.name,
                      kX0 + p.east, kY0 - p.south, p.up, p.omega, p.phi, p.kappa, p.camera);
        photos += line;
      }
      photos += "\n";
    }
    dir.Write("cameras.txt", cameras);
    dir.Write("photos.txt", photos);
  }
};

}  // namespace tqtortho::testing
