// SPDX-License-Identifier: Apache-2.0
#include "host/metashape_import.h"

namespace tqtortho::host {

bool LooksLikeMetashape(const std::string& /*path*/) { return false; }

std::optional<Survey> ImportMetashape(const ImportRequest& request, std::string& error) {
  error = request.path + ": Metashape cameras cannot be read yet";
  return std::nullopt;
}

}  // namespace tqtortho::host
