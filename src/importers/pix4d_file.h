// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "survey/rotation.h"
#include "survey/source_lens.h"

namespace tqtortho::host {

/// One line of "..._calibrated_external_camera_parameters.txt".
struct Pix4dPose {
  std::string name;
  Vector3 position{};
  Matrix3 cameraToGround{};  ///< columns: right, up, backward
};

/// One section of "..._calibrated_internal_camera_parameters.cam": millimetres, as the file has
/// them. The principal point counts from the upper left corner of the sensor, downward.
struct Pix4dCamera {
  double sensorWidth = 0, sensorHeight = 0;
  double focal = 0;
  double principalX = 0, principalY = 0;
  double k1 = 0, k2 = 0, k3 = 0, t1 = 0, t2 = 0;
};

/// One photo of "..._calibrated_camera_parameters.txt", which states the calibration of each in
/// pixels.
struct Pix4dCalibratedPhoto {
  std::string name;
  SourceLens lens;
};

/// Whether a text begins like a table of external parameters ("imageName X Y Z Omega Phi Kappa").
[[nodiscard]] bool IsPix4dExternalText(std::string_view start);
/// ... or like internal parameters in millimetres with a header of their own.
[[nodiscard]] bool IsPix4dInternalText(std::string_view start);

/// Reads poses: name, position, omega, phi, kappa in degrees (about X, then Y, then Z).
/// @return nothing, with one line in `error` that begins with the line number.
[[nodiscard]] std::optional<std::vector<Pix4dPose>> ParsePix4dExternal(std::string_view text,
                                                                       std::string& error);
/// Reads the sections of a camera file, one for each camera.
[[nodiscard]] std::optional<std::vector<Pix4dCamera>> ParsePix4dInternal(std::string_view text,
                                                                         std::string& error);
/// Reads the calibrations photo by photo: a line "name width height", then K, radial and tangential
/// coefficients; position and rotation are skipped.
[[nodiscard]] std::optional<std::vector<Pix4dCalibratedPhoto>> ParsePix4dCalibrated(
    std::string_view text, std::string& error);
/// Reads the three numbers of "..._offset.xyz".
[[nodiscard]] std::optional<Vector3> ParsePix4dOffset(std::string_view text);

/// The camera for photos of a size in pixels. Nothing, with a line in `error`, when the pixels
/// would not be square: the photos are not those of the calibration.
[[nodiscard]] std::optional<SourceLens> LensOfPix4d(const Pix4dCamera& camera, int width,
                                                    int height, std::string& error);

}  // namespace tqtortho::host
