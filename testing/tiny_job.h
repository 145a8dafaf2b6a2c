// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "testing/temp_dir.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho::testing {

/// A whole job in a directory of its own: a DSM of 80 x 60 cells of 0.5 units, photos of 96 x 72
/// pixels from 40 units above it (0.25 units per pixel, 24 x 18 units of ground), camera file,
/// photo list, and the library's two state directories. Colours tell the ground position, so a
/// pixel out of place shows: on level ground of height 0, red = 20 + 5 * (X - kX0), green = 250 - 5
/// * (kY0 - Y).
class TinyJob {
 public:
  static constexpr double kX0 = 352345.25;  ///< centre of the DSM's first cell
  static constexpr double kY0 = 5412345.75;
  static constexpr double kCell = 0.5;
  static constexpr int kCols = 80;
  static constexpr int kRows = 60;
  static constexpr double kFlight = 40;
  static constexpr float kNoData = -9999;

  TinyJob() {
    tqfd::PathHelper::SetProgramDataDirectory(dir.File("data"));
    tqorkit::TqFSManager::SetOutputTmpFilePath(dir.File("tmp"));
    std::filesystem::create_directories(dir.File("out"));
    WriteDsm([](int, int) { return 0.0F; });
    WriteCameras();
  }
  ~TinyJob() {
    tqfd::PathHelper::SetProgramDataDirectory("");
    tqorkit::TqFSManager::SetOutputTmpFilePath("");
  }

  bool WriteDsm(const std::function<float(int row, int col)>& height) const {
    std::vector<float> cells;
    for (int row = 0; row < kRows; ++row) {
      for (int col = 0; col < kCols; ++col) cells.push_back(height(row, col));
    }
    const double transform[] = {kX0, kCell, 0, kY0, 0, -kCell};
    tqimage::TqImage image;
    return image.Create(Dsm(), kCols, kRows, 1, tqimage::kFloat32, tqimage::kGeoTiff, true) &&
           image.SetGeoCoefficients({transform, kCols, kRows}) &&
           image.SetNoDataValue(0, kNoData) &&
           image.WriteImage(0, {0, 0, kCols, kRows}, tqimage::kFloat32, cells.data()) &&
           image.Close();
  }
  void WriteCameras(int model = 0) const {
    std::string text = "1\n1\nTiny\n96 72 0.64 0.384 0.288 48 36 ";
    text += std::to_string(model);
    text += " 0 0 0 0 0 0 0 0\n";
    dir.Write("cameras.txt", text);
  }
  /// Adds a photo of the level ground, looking straight down from above (kX0 + east, kY0 - south).
  void AddPhoto(const std::string& name, double east, double south, int cameraId = 1) {
    tqorkit::PhotoInfo photo;
    photo.width = 96;
    photo.height = 72;
    photo.bands = 3;
    photo.dataType = tqimage::kByte;
    for (int row = 0; row < photo.height; ++row) {
      for (int col = 0; col < photo.width; ++col) {
        const double x = east + (col - 48) * 0.25;
        const double y = -south - (row - 36) * 0.25;
        photo.data.push_back(Colour(20 + 5 * x));
        photo.data.push_back(Colour(250 + 5 * y));
        photo.data.push_back(128);
      }
    }
    std::filesystem::create_directories(dir.File("photos"));
    tqimage::TqImage::QuickWriteImage(dir.File("photos") + "/" + name, photo, nullptr, true);
    AddPose(name, east, south, 0, 0, 0, cameraId);
  }
  /// A line of the photo list alone.
  void AddPose(const std::string& name, double east, double south, double omega, double phi,
               double kappa, int cameraId = 1, double flight = kFlight) {
    char line[400];
    std::snprintf(line, sizeof line, "%s %.6f %.6f %.6f %.9f %.9f %.9f %d\n", name.c_str(),
                  kX0 + east, kY0 - south, flight, omega, phi, kappa, cameraId);
    lines_.push_back(line);
    std::string list = "1\n";
    list += std::to_string(lines_.size());
    list += "\n" + dir.File("photos") + "\n";
    for (const auto& text : lines_) list += text;
    dir.Write("photos.txt", list);
  }

  [[nodiscard]] static std::uint8_t Colour(double value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 2.0, 255.0)));
  }
  [[nodiscard]] std::string Dsm() const { return dir.File("dsm.tif"); }
  [[nodiscard]] std::string Cameras() const { return dir.File("cameras.txt"); }
  [[nodiscard]] std::string Photos() const { return dir.File("photos.txt"); }
  [[nodiscard]] std::string Out() const { return dir.File("out") + "/"; }

  TempDir dir;

 private:
  std::vector<std::string> lines_;
};

}  // namespace tqtortho::testing
