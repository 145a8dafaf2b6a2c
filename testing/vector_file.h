// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ogrsf_frmts.h>

#include <memory>
#include <string>

namespace tqtortho::testing {

/// A file of vector layers as another program opens it; its reader links GDAL::GDAL. Null when it
/// cannot be opened.
inline std::unique_ptr<GDALDataset> OpenVectors(const std::string& path) {
  return std::unique_ptr<GDALDataset>(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR));
}

}  // namespace tqtortho::testing
