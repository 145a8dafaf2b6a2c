// SPDX-License-Identifier: Apache-2.0
#include "host/measured_cell.h"

#include <filesystem>

#include "tqimage/TqImage.h"

namespace tqtortho::host {

double MeasuredCell(const std::string& dsmPath, double cell) {
  const std::filesystem::path beside =
      std::filesystem::path(dsmPath).parent_path() / "dsm_origin.tif";
  std::error_code ignored;
  tqimage::TqImage origin;
  if (!std::filesystem::exists(beside, ignored) || !origin.Open(beside.string(), true)) return cell;
  const double measured = origin.GetGeoCoefficients().GetResolution().x;
  // Nothing else than half cells is made.
  return measured > 1.5 * cell && measured < 2.5 * cell ? measured : cell;
}

}  // namespace tqtortho::host
