// SPDX-License-Identifier: Apache-2.0
#include "run/photo_outcomes.h"

#include <algorithm>
#include <filesystem>

#include "core/rect_ops.h"
#include "prepare/dsm_prepare.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

/// Why a photo has no ortho image, from what it left behind.
std::string FailureReason(const tqorkit::tqPhotoCategory& block, const tqorkit::tqExtOri& photo,
                          const std::string& orthoDir, bool hadFootprint) {
  const std::string path = block.GetPhotoPath() + "/" + photo.GetPhotoName();
  if (!hadFootprint) return "sees no cell of the DSM (or of the area); left out";
  tqorkit::PhotoInfo image;
  if (!tqimage::TqImage::QuickReadImage(path, image, nullptr)) {
    return "its pixels cannot be read; the file may be truncated: " + path;
  }
  const std::int64_t room = FreeSpace(orthoDir);
  if (room >= 0 && room < static_cast<std::int64_t>(image.data.size())) {
    return "its ortho image could not be written; the disk is nearly full: " + orthoDir;
  }
  return "no cell of the DSM shows a pixel of it; check its position and angles";
}

double HiddenShare(const std::string& orthoName, std::int64_t& cells) {
  tqorkit::PhotoInfo mask;
  if (!tqimage::TqImage::QuickReadImage(ObscuredMaskName(orthoName), mask, nullptr)) return 0;
  cells = static_cast<std::int64_t>(mask.width) * mask.height;
  const auto hidden = std::count(mask.data.begin(), mask.data.end(), 255);
  return cells > 0 ? static_cast<double>(hidden) / static_cast<double>(cells) : 0;
}

}  // namespace

std::set<PhotoKey> PhotosWithoutFootprint(const std::vector<tqorkit::tqPhotoCategory>& blocks) {
  std::set<PhotoKey> none;
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    const auto& photos = blocks[b].GetPhotos();
    for (std::size_t i = 0; i < photos.size(); ++i) {
      if (!HasArea(photos[i].GetGeoRect())) none.emplace(b, i);
    }
  }
  return none;
}

void CollectOutcomes(JobRun& run, const std::set<PhotoKey>& withoutFootprint) {
  const std::vector<tqorkit::tqPhotoCategory>& blocks = run.job.Blocks();
  RunReport& report = run.report;
  std::vector<PhotoKey> places;
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    for (std::size_t i = 0; i < blocks[b].GetPhotos().size(); ++i) places.emplace_back(b, i);
  }
  report.photos.resize(places.size());
  run.progress.Begin("check outputs");
  int finished = 0;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t k = 0; k < places.size(); ++k) {
    const auto& block = blocks[places[k].first];
    const auto& photo = block.GetPhotos()[places[k].second];
    PhotoOutcome& out = report.photos[k];
    out.name = photo.GetPhotoName();
    out.block = photo.GetImgBlkId();
    out.orthoPath = OrthoName(run.paths.ortho, out.name, out.block);
    out.done = HasArea(photo.GetGeoRect()) && (run.options.sizingOnly || fs::exists(out.orthoPath));
    if (out.done && !run.options.sizingOnly) {
      out.hiddenShare = HiddenShare(out.orthoPath, out.cells);
    } else if (!out.done) {
      out.reason =
          FailureReason(block, photo, run.paths.ortho, withoutFootprint.count(places[k]) == 0);
    }
#pragma omp critical(tqtortho_host_outcome)
    {
      (void)run.progress.Update(100.0 * ++finished / static_cast<double>(places.size()));
      if (!out.done) run.observer.Warn("photo " + out.name + ": " + out.reason);
    }
  }
  for (const auto& out : report.photos) {
    report.cells += out.cells;
    if (!out.done) report.leftOut.push_back(out.name);
  }
}

void PrepareOrthos(JobRun& run) {
  RunReport& report = run.report;
  // The outermost rim is continued past the raster, so cells there need the blanking as well.
  const bool blank = report.dsm.trueCells + report.dsm.filledCells < report.dsm.cells;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t k = 0; k < report.photos.size(); ++k) {
    PhotoOutcome& out = report.photos[k];
    if (!out.done) continue;
    std::string error;
    if (run.state.RestoreOriginals(out.orthoPath, error) &&
        (!blank || BlankWithoutHeight(out.orthoPath, run.paths.origin, error))) {
      run.state.KeepAsOriginal(out.orthoPath);
      continue;
    }
    out.done = false;
    out.reason = error;
#pragma omp critical(tqtortho_host_outcome)
    run.observer.Warn("photo " + out.name + ": " + out.reason);
  }
}

}  // namespace tqtortho::host
