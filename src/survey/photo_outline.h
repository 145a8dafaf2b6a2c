// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "camera/camera_model.h"
#include "survey/survey.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// A photo's camera as rectification sees it.
[[nodiscard]] PhotoCamera CameraOfSurvey(const SurveyCamera& camera, const SurveyPhoto& photo);

/// What a photo shows of the plane of height `groundZ`: its frame's border followed through the
/// lens, `perSide` points to a side, each once. Empty when a part of the border does not look down
/// (rays less than about six degrees below the horizon), or the lens cannot be inverted there.
///
/// @param rasterCols, rasterRows  size of the photo where it is not the camera's frame, else 0; the
///                                photo then is the upper left part of the frame
[[nodiscard]] std::vector<tqfd::Point2_T<double>> PhotoOutline(const PhotoCamera& camera,
                                                               int rasterCols, int rasterRows,
                                                               double groundZ, int perSide = 4);

/// Whether a point lies in a polygon (even-odd rule).
[[nodiscard]] bool Contains(const std::vector<tqfd::Point2_T<double>>& ring, double x, double y);

}  // namespace tqtortho::host
