// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "mosaic/mosaic_stage.h"
#include "prepare/dsm_prepare.h"
#include "walls/wall_stage.h"

namespace tqtortho::host {

/// What stages say of themselves, as their records keep it.
[[nodiscard]] nlohmann::json ToRecord(const DsmPrepareReport& report);
[[nodiscard]] nlohmann::json ToRecord(const WallReport& report);
[[nodiscard]] nlohmann::json ToRecord(const MosaicReport& report);
/// False when the record lacks a field: it was written by another version.
[[nodiscard]] bool FromRecord(const nlohmann::json& record, DsmPrepareReport& report);
[[nodiscard]] bool FromRecord(const nlohmann::json& record, WallReport& report);
[[nodiscard]] bool FromRecord(const nlohmann::json& record, MosaicReport& report);

}  // namespace tqtortho::host
