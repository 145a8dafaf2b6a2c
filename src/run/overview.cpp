// SPDX-License-Identifier: Apache-2.0
#include "run/overview.h"

#include <algorithm>
#include <cstdint>

#include "geo/RasterTools.h"
#include "geo/ScaledRead.h"
#include "stage/job_faults.h"
#include "stage/ortho_names.h"

namespace tqtortho::host {
namespace {

constexpr int kPreviewPixels = 2000;  ///< of the longer side

/// Gives a colour picture of a raster an alpha band, so that what the raster does not show is
/// transparent, not black.
bool CutOut(const std::string& raster, int width, int height, int& bands,
            std::vector<std::uint8_t>& pixels) {
  if (bands != 3) return true;
  geo::RasterSummary file;
  std::string ignored;
  std::vector<std::uint8_t> valid;
  if (!geo::DescribeRaster(raster, file, ignored)) return false;
  const auto cols = static_cast<double>(file.width), rows = static_cast<double>(file.height);
  if (!geo::ReadScaled(raster, 0, {0, 0, cols, rows, width, height}, geo::Scaling::kNearest,
                       valid)) {
    return false;
  }
  std::vector<std::uint8_t> cut(4 * valid.size());
  for (std::size_t i = 0; i < valid.size(); ++i) {
    std::copy_n(&pixels[3 * i], 3, &cut[4 * i]);
    cut[4 * i + 3] = valid[i];
  }
  pixels.swap(cut);
  bands = 4;
  return true;
}

}  // namespace

RunStatus WriteOverview(JobRun& run) {
  std::vector<std::string> orthos;
  if (!NameOrthosForPeople(run.OrthoPaths(), orthos)) {
    (void)AllDone(run.paths.work, run.error);
    return RunStatus::kFailed;
  }
  RunReport& report = run.report;
  report.vrtPath = run.options.outDir + "/orthos.vrt";
  report.previewPath = run.options.outDir + "/preview.png";
  const auto warn = [&](std::string& path) {
    run.observer.Warn(path + ": could not be made (the ortho images are complete)");
    path.clear();
  };
  const bool whole = geo::BuildVrt(report.vrtPath, orthos, 0);
  const std::string& picture = report.mosaicPath.empty() ? report.vrtPath : report.mosaicPath;
  std::vector<std::uint8_t> pixels;
  int width = 0, height = 0, bands = 0;
  if (!geo::ReadReduced(picture, kPreviewPixels, pixels, width, height, bands) ||
      !CutOut(picture, width, height, bands, pixels) ||
      !geo::WritePng(report.previewPath, pixels.data(), width, height, bands)) {
    warn(report.previewPath);
  }
  if (!whole) warn(report.vrtPath);
  return RunStatus::kDone;
}

}  // namespace tqtortho::host
