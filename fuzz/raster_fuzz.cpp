// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "check/input_check.h"
#include "fuzz/require.h"
#include "geo/InputPolicy.h"
#include "geo/RasterTools.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

using namespace tqtortho::fuzz;
using namespace tqtortho::host;

// Rasters of any header, as a surface and as a photo: described and checked, or refused in one
// line. What is small enough is also read. The first byte chooses the name.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const tqtortho::testing::TempDir dir;
  static const bool policy = (geo::UseLocalFilesOnly(), true);
  (void)policy;
  constexpr const char* kNames[] = {"r.tif", "r.png", "r.jpg", "r.vrt", "r.asc"};
  const std::string path = dir.Write(kNames[data[0] % 5], std::string(Text(data + 1, size - 1)));
  geo::RasterSummary summary;
  std::string error;
  if (!geo::DescribeRaster(path, summary, error)) {
    RequireReason(error);
    return 0;
  }
  Require(summary.width > 0 && summary.height > 0 && summary.bands > 0);
  const double cells = double(summary.width) * summary.height * summary.bands;
  if (cells > 1e6) return 0;  // time, not faults
  DsmFacts facts;
  std::vector<Finding> findings;
  CheckDsm(path, facts, findings);
  for (const Finding& finding : findings) RequireReason(finding.text);
  tqorkit::PhotoInfo photo;
  tqimage::GeoCoefficients place;
  if (!tqimage::TqImage::QuickReadImage(path, photo, &place)) return 0;
  Require(photo.width == summary.width && photo.height == summary.height);
  Require(photo.data.size() >= static_cast<std::size_t>(photo.width) * photo.height);
  return 0;
}
