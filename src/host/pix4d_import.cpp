// SPDX-License-Identifier: Apache-2.0
#include "host/pix4d_import.h"

namespace tqtortho::host {

bool LooksLikePix4d(const std::string& /*path*/) { return false; }

std::optional<Survey> ImportPix4d(const ImportRequest& request, std::string& error) {
  error = request.path + ": Pix4D parameters cannot be read yet";
  return std::nullopt;
}

}  // namespace tqtortho::host
