// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "report/report_layers.h"
#include "report/report_page.h"

namespace tqtortho::host {

/// The photos that have ground, with their numbers, cameras and files.
[[nodiscard]] std::vector<GroundPhoto> PhotosOnGround(const MosaicInput& input);

/// All of a report but its pictures, as the page's viewer reads it.
[[nodiscard]] nlohmann::json ReportData(const ReportInput& input, const ReportLayers& layers,
                                        const std::vector<GroundPhoto>& photos);

}  // namespace tqtortho::host
