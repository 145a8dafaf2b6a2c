// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "survey/source_lens.h"

namespace tqtortho::host {

/// Reads calibrations from YAML or JSON text: a map from a camera's name to its fields, or the
/// fields of a single camera, which then has the empty name. Fields:
///
/// - `type` (or `projection_type`): pinhole, perspective, brown, opencv, simple_radial, radial;
/// - `im_size: [width, height]` (or `width`, `height`): the raster in pixels;
/// - `focal_len`: one number or [x, y]; in the unit of `sensor_size: [width, height]` where that is
///   given, else in units of the raster's longer side (or `focal`, `focal_x`, `focal_y` in those);
/// - `cx`, `cy` (or `c_x`, `c_y`): principal point from the raster's middle, right and down, in
///   units of the longer side;
/// - or in pixels: `fx`, `fy` (fy defaults to fx), and `cx`, `cy` then count from the upper left
///   pixel, whole numbers being pixel centres, as in OpenCV; they default to the middle;
/// - `k1`, `k2`, `k3`, `p1`, `p2`: Brown's model with p1, p2 in OpenCV's order.
///
/// A camera with anything that cannot be expressed (fisheyes, k4 and higher, thin prisms) gets a
/// fault. Texts over 16 MiB or nested deeper than 64 levels are refused, and so are anchors.
///
/// @return nothing, with one line in `error`, when the text is no such file.
[[nodiscard]] std::optional<std::map<std::string, SourceCamera>> ParseCalibrations(
    std::string_view text, std::string& error);

}  // namespace tqtortho::host
