// SPDX-License-Identifier: Apache-2.0
#include "rectify/sidecar.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/c_locale.h"
#include "core/limits.h"
#include "core/numeric.h"
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
  const std::string beside = UnfinishedSidecarName(path);
  const CLocaleScope decimalPoints;
  std::FILE* file = std::fopen(beside.c_str(), "wt");
  if (file == nullptr) return false;
  bool written = std::fprintf(file, "%lf\n%lf\n%lf\n%lf\n%lf\n%lf\n", sidecar.a, sidecar.d,
                              sidecar.b, sidecar.e, sidecar.c, sidecar.f) > 0;
  if (lines == SidecarLines::kEight) {
    written = written && std::fprintf(file, "%d\n%d\n", sidecar.rows, sidecar.cols) > 0;
  }
  // A full disk shows only when the buffer is flushed.
  written = (std::fclose(file) == 0) && written;
  std::error_code error;
  if (written) std::filesystem::rename(beside, path, error);
  if (written && !error) return true;
  std::filesystem::remove(beside, error);
  return false;
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
