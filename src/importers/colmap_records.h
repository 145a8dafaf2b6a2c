// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <vector>

#include "importers/colmap_file.h"

namespace tqtortho::host {

/// A camera as either form of a COLMAP model states it.
struct ColmapCamera {
  std::string id;
  std::string model;
  double width = 0, height = 0;
  std::vector<double> parameters;
};

using ColmapCameras = std::map<std::string, SourceCamera>;

/// Number of parameters of the lens model that the binary form gives this number; 0 when unknown.
[[nodiscard]] std::size_t ColmapParameterCount(std::uint64_t model);
[[nodiscard]] const char* ColmapModelName(std::uint64_t model);

/// Adds a camera in the terms of all sources. False, with a line in `error`, when it is there.
[[nodiscard]] bool AddColmapCamera(const ColmapCamera& stated, ColmapCameras& cameras,
                                   std::string& error);
/// Adds a photo; `pose` is quaternion (w, x, y, z) of any length and translation, the camera sees
/// R X + t. False, with a line in `error`, when the pose is not finite.
[[nodiscard]] bool AddColmapPhoto(std::string name, std::string camera,
                                  const std::array<double, 7>& pose,
                                  std::vector<ColmapPhoto>& photos, std::string& error);

[[nodiscard]] bool ReadColmapCamerasText(std::istream& in, ColmapCameras& cameras,
                                         std::string& error);
[[nodiscard]] bool ReadColmapPhotosText(std::istream& in, std::vector<ColmapPhoto>& photos,
                                        std::string& error);
[[nodiscard]] bool IsColmapCamerasText(std::istream& in);

/// The binary form is little-endian.
[[nodiscard]] bool ReadColmapCamerasBinary(std::istream& in, ColmapCameras& cameras,
                                           std::string& error);
[[nodiscard]] bool ReadColmapPhotosBinary(std::istream& in, std::vector<ColmapPhoto>& photos,
                                          std::string& error);
[[nodiscard]] bool IsColmapCamerasBinary(std::istream& in);

}  // namespace tqtortho::host
