// SPDX-License-Identifier: Apache-2.0
#include "run/mosaic_products.h"

#include <nlohmann/json.hpp>

#include "core/fingerprint.h"
#include "run/gis_exports.h"
#include "run/photo_outcomes.h"
#include "run/stage_records.h"
#include "stage/job_faults.h"
#include "stage/photo_files.h"

namespace tqtortho::host {
namespace {

/// What a mosaic's cells are made from: the orthos in their order, the filling and the area. How
/// they are stored is not among it.
std::string MosaicFingerprint(JobRun& run) {
  Fingerprint print;
  for (const auto& photo : run.report.photos) {
    print.Add(photo.done ? run.state.PhotoFingerprint(photo.orthoPath) : std::string("failed"));
  }
  print.Add(static_cast<int>(run.options.fill));
  for (const auto& p : run.area) print.Add(std::to_string(p.x)).Add(std::to_string(p.y));
  return print.Text();
}

/// How a mosaic is stored, as its stage's record and the report's fingerprint hold it.
std::string FormatText(const MosaicFormat& format) {
  const bool jpeg = format.compression == "jpeg";
  return format.compression + (jpeg ? " " + std::to_string(format.jpegQuality) : "");
}

/// Makes the mosaic unless an earlier run has, and stores it anew when only its compression is to
/// be another.
bool MakeOrKeepMosaic(JobRun& run, const MosaicInput& input, const std::string& fingerprint) {
  const JobPaths& paths = run.paths;
  MosaicReport& report = run.report.mosaic;
  run.report.mosaicPath = run.options.outDir + "/mosaic.tif";
  const auto said = run.state.Stage("mosaic", fingerprint);
  const bool made = said && FromRecord(*said, report);
  const std::string format = FormatText(run.options.format);
  if (made && said->contains("format") && (*said)["format"] == nlohmann::json(format)) return true;
  MosaicOptions mosaic;
  mosaic.outDir = paths.out;
  mosaic.workDir = paths.work;
  mosaic.format = run.options.format;
  mosaic.format.threads = run.options.threads;
  mosaic.area = run.area;
  mosaic.fill = run.options.fill;
  std::string stage;
  const auto progress = [&](const char* name, double percent) {
    if (stage != name) {
      stage = name;
      run.progress.Begin(stage);
    }
    return run.progress.Update(percent);
  };
  const bool done = made ? CompressMosaic(input, mosaic, progress, report.seen, run.error)
                         : MakeMosaic(input, mosaic, progress, report, run.error);
  if (!done || !AllDone(paths.work, run.error)) return false;
  nlohmann::json record = ToRecord(report);
  record["format"] = format;
  run.state.FinishStage("mosaic", fingerprint,
                        {paths.out + "/mosaic.tif", paths.out + "/source.tif",
                         paths.out + "/quality.tif", PixMapPath(), TexturePath()},
                        record);
  return true;
}

/// Fills or marks in each ortho image what its photo must not supply.
bool FinishOrthos(JobRun& run, const std::string& fingerprint) {
  ForgetFaults();  // those of the stages above are told
  if (run.options.finish == Finish::kFill) {
    (void)run.job.UpdateOrthoImagesEx(std::string(), run.paths.ortho, &JobProgress::Callback,
                                      &run.progress);
  } else if (run.options.finish == Finish::kTexture) {
    run.progress.share = 0.5;  // this update counts every photo twice
    (void)run.job.UpdateOrthoImages(std::string(), run.paths.ortho, &JobProgress::Callback,
                                    &run.progress);
  } else if (run.options.finish == Finish::kMark) {
    (void)run.job.UpdateOrthoImagesMarkOcc(std::string(), run.paths.ortho, &JobProgress::Callback,
                                           &run.progress);
  }
  run.progress.End();
  if (run.progress.Stopped() || !AllDone(run.paths.work, run.error)) return false;
  std::vector<std::string> files;
  for (const auto& ortho : run.OrthoPaths()) {
    files.insert(files.end(), {ortho, OwnershipMaskName(ortho)});
  }
  run.state.FinishStage("finish", fingerprint, files, nlohmann::json::object());
  return true;
}

}  // namespace

RunStatus MakeProducts(JobRun& run) {
  const std::string ofMosaic = MosaicFingerprint(run);
  const std::string ofFinish =
      Fingerprint().Add(ofMosaic).Add(static_cast<int>(run.options.finish)).Text();
  // The report shows the mosaic as it is stored.
  run.productsFingerprint = Fingerprint().Add(ofFinish).Add(FormatText(run.options.format)).Text();
  const bool finished = run.state.Stage("finish", ofFinish).has_value();
  if (!finished) PrepareOrthos(run);
  const MosaicInput input = run.Orthos();
  if (!MakeOrKeepMosaic(run, input, ofMosaic)) return run.EndEarly();
  ExportMosaic(run, input, ofMosaic);
  if (run.progress.Stopped()) return run.EndEarly();
  if (!finished && !FinishOrthos(run, ofFinish)) return run.EndEarly();
  for (const auto& line : run.report.mosaic.leftOut) run.observer.Warn(line);
  return RunStatus::kDone;
}

}  // namespace tqtortho::host
