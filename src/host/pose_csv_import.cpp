// SPDX-License-Identifier: Apache-2.0
#include "host/pose_csv_import.h"

namespace tqtortho::host {

bool LooksLikePoseCsv(const std::string& /*path*/) { return false; }

std::optional<Survey> ImportPoseCsv(const ImportRequest& request, std::string& error) {
  error = request.path + ": tables of poses cannot be read yet";
  return std::nullopt;
}

}  // namespace tqtortho::host
