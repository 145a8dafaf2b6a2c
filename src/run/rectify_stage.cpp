// SPDX-License-Identifier: Apache-2.0
#include "run/rectify_stage.h"

#include <omp.h>

#include <set>

#include "run/photo_outcomes.h"
#include "stage/job_faults.h"
#include "stage/mask_maker.h"
#include "stage/photo_files.h"
#include "stage/photo_records.h"
#include "tqfd/PathHelper.h"
#include "tqorkit/TqFSManager.h"
#include "tqraster/tqRasterTorMsk.h"

namespace tqtortho::host {
namespace {

/// Why the library's job came to nothing.
std::string JobFailure(const JobPaths& paths) {
  constexpr std::int64_t kLittle = 1 << 20;
  const std::int64_t room = FreeSpace(paths.work);
  if (room >= 0 && room < kLittle) return paths.work + ": cannot be written to; the disk is full";
  return "no photo sees the DSM (or the area); check coordinate systems, heights and the order of "
         "the angles (omega phi kappa, radians). Details: " +
         paths.data + "/log/tqtortho.log";
}

}  // namespace

JobSettings::JobSettings(JobRun& run) {
  tqfd::PathHelper::SetProgramDataDirectory(run.paths.data);
  tqorkit::TqFSManager::SetOutputTmpFilePath(run.paths.tmp);
  if (run.options.threads > 0) omp_set_num_threads(run.options.threads);
  if (!run.options.sizingOnly) SetPhotoRecords(&run.state);
  if (run.options.occlusion == Occlusion::kSight) SetOcclusionMaskMaker(&sightMasks_);
  // The mosaic stage makes the pixel-to-photo map; one made before it would be overwritten.
  ownMaker_ = !TqRaster::tqRasterTorMsk::HasMaker();
  if (ownMaker_) {
    TqRaster::tqRasterTorMsk::SetMaker([](auto&&...) { return true; });
  }
}

JobSettings::~JobSettings() {
  SetPhotoRecords(nullptr);
  SetOcclusionMaskMaker(nullptr);
  if (ownMaker_) TqRaster::tqRasterTorMsk::SetMaker({});
}

RunStatus RectifyPhotos(JobRun& run) {
  const JobPaths& paths = run.paths;
  double heightPair[2] = {run.report.gsd, run.options.startHeight};
  std::set<PhotoKey> withoutFootprint;
  run.progress.onRectify = [&] {
    withoutFootprint = PhotosWithoutFootprint(run.job.Blocks());
    // The job rewrites its parameter file with measured footprints; the plan is what a block can be
    // repeated from.
    (void)tqfd::PathHelper::CopyFile2(ParamFilePath(), paths.plan);
  };
  const bool ok = run.job.TrueOrthoPhotoProc(
      paths.dsm.c_str(), paths.cameras.c_str(), paths.photos.c_str(), heightPair,
      paths.ortho.c_str(), run.area.empty() ? nullptr : &run.area, run.options.resampling,
      run.options.reducedCopies, run.options.sizingOnly, &JobProgress::Callback, &run.progress);
  run.progress.onRectify = nullptr;
  if (run.progress.Stopped()) return run.EndEarly();
  run.report.photosKept = run.state.PhotosKept();
  if (!AllDone(paths.work, run.error)) return run.EndEarly();
  if (!ok) {
    run.error = JobFailure(paths);
    return run.EndEarly();
  }
  run.report.gsd = heightPair[0];
  CollectOutcomes(run, withoutFootprint);
  run.progress.End();
  if (!run.options.sizingOnly) {
    std::set<std::string> orthos;
    for (const auto& photo : run.report.photos) orthos.insert(photo.orthoPath);
    run.state.RemoveOthers(orthos);
  }
  return run.progress.Stopped() ? run.EndEarly() : RunStatus::kDone;
}

}  // namespace tqtortho::host
