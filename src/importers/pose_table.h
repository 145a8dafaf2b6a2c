// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "survey/rotation.h"

namespace tqtortho::host {

/// One photo of a table of poses.
struct PoseRow {
  std::string name;
  std::string camera;  ///< empty without such a column
  /// x, y, z, or longitude, latitude (degrees) and height.
  Vector3 position{};
  /// Columns right, up, backward; on the map for omega, phi, kappa, else in the local frame of true
  /// east, true north and up.
  Matrix3 cameraToFrame{};
  int line = 0;
};

/// A table of poses; all rows are of one kind.
struct PoseTable {
  bool geographic = false;  ///< positions are longitude and latitude
  bool trueNorth = false;   ///< rotations lead to true east, true north and up
  std::vector<PoseRow> rows;
  std::vector<std::string> notes;
};

/// Whether a text begins with a header of such a table: a column for the photo, and columns for
/// position and attitude.
[[nodiscard]] bool IsPoseTableText(std::string_view start);

/// Reads a table of poses. The first line names the columns, in any order and spelling of letter
/// case; unknown ones are passed over:
///
/// - photo: filename, file, name, image, imagename, photo, label;
/// - position: x, y, z (east, north, height ...), or longitude, latitude, altitude;
/// - attitude: omega, phi, kappa (about X, then Y, then Z, camera to map), or roll, pitch, yaw;
/// - camera: optional.
///
/// Roll, pitch, yaw are those of a body whose nose points to the top of the photo and whose belly
/// is where the camera looks: yaw clockwise from true north, then pitch (nose up), then roll (right
/// wing down); all zero looks straight down, and a pitch of 30 looks 30 degrees ahead of that.
/// Columns named gimbal..., or a pitch near -90 throughout, are those of a gimbal: zero looks ahead
/// to the horizon, a pitch of -90 straight down.
///
/// A column may state its unit in brackets or after an underscore: "omega[deg]", "yaw_rad". Angles
/// without one are degrees, which a note says. Separators are semicolon, tab, comma or blanks,
/// whichever the header has; decimal commas are read where the separator is not one.
///
/// @return nothing, with one line in `error` that begins with the line number.
[[nodiscard]] std::optional<PoseTable> ParsePoseTable(std::string_view text, std::string& error);

}  // namespace tqtortho::host
