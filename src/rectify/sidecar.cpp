// SPDX-License-Identifier: Apache-2.0
#include "rectify/sidecar.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "core/c_locale.h"
#include "core/limits.h"
#include "core/numeric.h"
#include "internal/safe_file.h"
#include "tqfd/FileInput.h"

namespace tqtortho {

Sidecar SidecarOf(const tqorkit::PhotoInfo& raster) {
  Sidecar s;
  s.a = raster.resX;
  s.e = raster.resY;
  s.c = raster.geoRect[0] - 0.5 * raster.resX;
  s.f = raster.geoRect[3] - 0.5 * raster.resY;
  s.rows = raster.height;
  s.cols = raster.width;
  return s;
}

std::string UnfinishedSidecarName(const std::string& path) { return path + ".part"; }

bool WriteSidecar(const std::string& path, const Sidecar& sidecar, SidecarLines lines) {
  const CLocaleScope decimalPoints;
  // Room for six numbers of any size; %lf writes all digits before the point.
  constexpr std::size_t kLongest = 6 * 400 + 64;
  std::vector<char> text(kLongest);
  int length = std::snprintf(text.data(), kLongest, "%lf\n%lf\n%lf\n%lf\n%lf\n%lf\n", sidecar.a,
                             sidecar.d, sidecar.b, sidecar.e, sidecar.c, sidecar.f);
  if (length > 0 && lines == SidecarLines::kEight) {
    length += std::snprintf(text.data() + length, kLongest - static_cast<std::size_t>(length),
                            "%d\n%d\n", sidecar.rows, sidecar.cols);
  }
  return length > 0 && WriteWholeFile(path, {text.data(), static_cast<std::size_t>(length)},
                                      UnfinishedSidecarName(path));
}

bool ReadSidecar(const std::string& path, Sidecar& sidecar) {
  sidecar = {};
  const CLocaleScope decimalPoints;
  if (!tqfd::FileFault(path, limits::kListBytes).empty()) return false;
  std::FILE* file = std::fopen(path.c_str(), "rt");
  if (file == nullptr) return false;
  double v[8] = {};
  int count = 0;
  while (count < 8 && std::fscanf(file, "%lf", &v[count]) == 1 && std::isfinite(v[count])) ++count;
  std::fclose(file);
  if (count < 8) return false;
  sidecar = {v[0], v[1], v[2], v[3], v[4], v[5], TruncToInt(v[6]), TruncToInt(v[7])};
  return true;
}

}  // namespace tqtortho
