// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "importers/photo_agreement.h"

namespace tqtortho::host {

/// A ground control point marked in a photo.
struct ControlMark {
  Vector3 ground{};         ///< in the list's coordinate system
  double col = 0, row = 0;  ///< pixels of the photo, row downward
  std::string photo;        ///< file name
};

/// A list of ground control as OpenDroneMap takes it (gcp_list.txt): a line that names the
/// coordinate system, then east, north, height, column, row and photo on each.
struct ControlList {
  std::string crs;  ///< "EPSG:n" or a PROJ text
  std::vector<ControlMark> marks;
};

/// Nothing when the first line names no system or no line holds a mark; comments (#) and lines that
/// hold none are passed over.
[[nodiscard]] std::optional<ControlList> ParseControlList(std::string_view text);

/// A photo's lens and place under a hypothesis; nothing for photos that are not in the project.
struct ControlView {
  SourceLens lens;
  CameraPlace first, second;
};
using FindControlView = std::function<std::optional<ControlView>(const std::string& photo)>;

/// How far control, on the map of the places, lies from its marks under either hypothesis.
struct ControlResidual {
  int count = 0;
  double first = 0, second = 0;  ///< median, pixels of a photo 1000 pixels long
  /// -1 the first hypothesis fits, 1 the second, 0 not told: control that fits neither (heights of
  /// another datum), or both.
  [[nodiscard]] int Decides() const;
};
[[nodiscard]] ControlResidual CompareControl(const std::vector<ControlMark>& onMap,
                                             const FindControlView& find);

}  // namespace tqtortho::host
