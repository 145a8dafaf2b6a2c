// SPDX-License-Identifier: Apache-2.0
#include "run/run_job.h"

#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>

#include "core/fingerprint.h"
#include "geo/RasterTools.h"
#include "geo/ScaledRead.h"
#include "geo/Vector.h"
#include "prepare/border_mask_maker.h"
#include "prepare/photo_staging.h"
#include "rectify/sight_masks.h"
#include "run/directory_lock.h"
#include "run/job_paths.h"
#include "run/job_state.h"
#include "run/photo_outcomes.h"
#include "run/report_stage.h"
#include "run/stage_records.h"
#include "run/stage_relay.h"
#include "run/take_along.h"
#include "stage/job_faults.h"
#include "stage/ortho_names.h"
#include "stage/photo_files.h"
#include "tqfd/PathHelper.h"
#include "tqfd/Timer.h"
#include "tqorkit/TqFSManager.h"
#include "tqraster/tqRasterTorMsk.h"
#include "tqtortho/Version.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

/// The library's job with its results open to the host.
class HostJob : public tqTORProc {
 public:
  [[nodiscard]] const std::vector<tqorkit::tqPhotoCategory>& Blocks() const { return photoBlocks; }
  [[nodiscard]] const std::map<int, tqorkit::tqIntOri>& Cameras() const { return cameras; }
};

/// Process-wide settings of a job, taken back at its end.
class JobSettings {
 public:
  JobSettings(const JobPaths& paths, const RunOptions& options, JobState& state) {
    tqfd::PathHelper::SetProgramDataDirectory(paths.data);
    tqorkit::TqFSManager::SetOutputTmpFilePath(paths.tmp);
    if (options.threads > 0) omp_set_num_threads(options.threads);
    if (!options.sizingOnly) SetPhotoRecords(&state);
    if (options.occlusion == Occlusion::kSight) SetOcclusionMaskMaker(&sightMasks_);
    // The mosaic stage makes the pixel-to-photo map; one made before it would be overwritten.
    ownMaker_ = !TqRaster::tqRasterTorMsk::HasMaker();
    if (ownMaker_) {
      TqRaster::tqRasterTorMsk::SetMaker([](auto&&...) { return true; });
    }
  }
  ~JobSettings() {
    SetPhotoRecords(nullptr);
    SetOcclusionMaskMaker(nullptr);
    if (ownMaker_) TqRaster::tqRasterTorMsk::SetMaker({});
  }
  JobSettings(const JobSettings&) = delete;
  JobSettings& operator=(const JobSettings&) = delete;

 private:
  SightMasks sightMasks_;
  bool ownMaker_ = false;
};

/// What a mosaic's cells are made from: the orthos in their order, and the area. How they are
/// stored is not among it.
std::string MosaicFingerprint(const RunReport& report, JobState& state,
                              const std::vector<tqfd::Point2_T<double>>& ring) {
  Fingerprint print;
  for (const auto& photo : report.photos) {
    print.Add(photo.done ? state.PhotoFingerprint(photo.orthoPath) : std::string("failed"));
  }
  for (const auto& p : ring) print.Add(std::to_string(p.x)).Add(std::to_string(p.y));
  return print.Text();
}

/// How a mosaic is stored, as its stage's record and the report's fingerprint hold it.
std::string FormatText(const MosaicFormat& format) {
  const bool jpeg = format.compression == "jpeg";
  return format.compression + (jpeg ? " " + std::to_string(format.jpegQuality) : "");
}

/// Makes the mosaic unless an earlier run has, and stores it anew when only its compression is to
/// be another.
bool MakeOrKeepMosaic(const MosaicInput& input, const JobPaths& paths, const RunOptions& options,
                      const std::vector<tqfd::Point2_T<double>>& ring,
                      const std::string& fingerprint, JobState& state, StageRelay& relay,
                      RunReport& report, std::string& error) {
  report.mosaicPath = options.outDir + "/mosaic.tif";
  const auto said = state.Stage("mosaic", fingerprint);
  const bool made = said && FromRecord(*said, report.mosaic);
  const std::string format = FormatText(options.format);
  if (made && said->contains("format") && (*said)["format"] == nlohmann::json(format)) return true;
  MosaicOptions mosaic;
  mosaic.outDir = paths.out;
  mosaic.workDir = paths.work;
  mosaic.format = options.format;
  mosaic.format.threads = options.threads;
  mosaic.area = ring;
  std::string stage;
  const auto progress = [&](const char* name, double percent) {
    if (stage != name) {
      stage = name;
      relay.Begin(stage);
    }
    return relay.Progress(percent);
  };
  const bool done = made ? CompressMosaic(input, mosaic, progress, report.mosaic.seen, error)
                         : MakeMosaic(input, mosaic, progress, report.mosaic, error);
  if (!done || !AllDone(paths.work, error)) return false;
  nlohmann::json record = ToRecord(report.mosaic);
  record["format"] = format;
  state.FinishStage("mosaic", fingerprint,
                    {paths.out + "/mosaic.tif", paths.out + "/source.tif",
                     paths.out + "/quality.tif", PixMapPath(), TexturePath()},
                    record);
  return true;
}

/// The mosaic, and what is done with it to the ortho images.
bool MakeProducts(HostJob& job, const JobPaths& paths, const RunOptions& options, double gsd,
                  const std::vector<tqfd::Point2_T<double>>& ring, JobState& state,
                  StageRelay& relay, RunReport& report, RunObserver& observer,
                  std::string& ofProducts, std::string& error) {
  const std::string ofMosaic = MosaicFingerprint(report, state, ring);
  const std::string ofFinish =
      Fingerprint().Add(ofMosaic).Add(static_cast<int>(options.finish)).Text();
  // The report shows the mosaic as it is stored.
  ofProducts = Fingerprint().Add(ofFinish).Add(FormatText(options.format)).Text();
  const bool finished = state.Stage("finish", ofFinish).has_value();
  if (!finished) PrepareOrthos(paths, state, report, observer);
  const MosaicInput input{job.Blocks(), job.Cameras(), paths.ortho, gsd};
  if (!MakeOrKeepMosaic(input, paths, options, ring, ofMosaic, state, relay, report, error)) {
    return false;
  }
  WriteTakeAlong(input, paths, options, ofMosaic, state, relay, report, observer);
  if (relay.Stopped()) return false;
  if (finished) return true;
  ForgetFaults();  // those of the stages above are told
  if (options.finish == Finish::kFill) {
    relay.share = 0.5;
    (void)job.UpdateOrthoImages(std::string(), paths.ortho, &StageRelay::Callback, &relay);
  } else if (options.finish == Finish::kMark) {
    (void)job.UpdateOrthoImagesMarkOcc(std::string(), paths.ortho, &StageRelay::Callback, &relay);
  }
  relay.End();
  if (relay.Stopped() || !AllDone(paths.work, error)) return false;
  std::vector<std::string> orthos;
  for (const auto& photo : report.photos) {
    if (photo.done)
      orthos.insert(orthos.end(), {photo.orthoPath, OwnershipMaskName(photo.orthoPath)});
  }
  state.FinishStage("finish", ofFinish, orthos, nlohmann::json::object());
  return true;
}

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

/// One picture and one virtual raster over all orthos, so that a person can look at once.
void WriteOverview(const std::vector<std::string>& orthos, const RunOptions& options,
                   RunReport& report, RunObserver& observer) {
  report.vrtPath = options.outDir + "/orthos.vrt";
  report.previewPath = options.outDir + "/preview.png";
  std::vector<std::uint8_t> pixels;
  int width = 0, height = 0, bands = 0;
  const auto warn = [&](std::string& path) {
    observer.Warn(path + ": could not be made (the ortho images are complete)");
    path.clear();
  };
  const bool whole = geo::BuildVrt(report.vrtPath, orthos, 0);
  const std::string& picture = report.mosaicPath.empty() ? report.vrtPath : report.mosaicPath;
  if (!geo::ReadReduced(picture, 2000, pixels, width, height, bands) ||
      !CutOut(picture, width, height, bands, pixels) ||
      !geo::WritePng(report.previewPath, pixels.data(), width, height, bands)) {
    warn(report.previewPath);
  }
  if (!whole) warn(report.vrtPath);
}

bool WriteLists(Survey& survey, const JobPaths& paths, std::string& error) {
  for (auto& block : survey.blocks)
    block.path = fs::absolute(block.path).lexically_normal().string();
  if (!StagePhotos(survey, paths.staged, error)) return false;
  if (WriteCameraFile(paths.cameras, survey) && WritePhotoList(paths.photos, survey)) return true;
  error = paths.work + ": cannot be written to; choose another --work or free some space";
  return false;
}

double GsdOf(const RunOptions& options, const SurveyFacts& facts) {
  if (!options.gsd) return RoundUpTwoDigits(facts.photoResolution);
  return *options.gsd > 0 ? *options.gsd : facts.dsm.cell;
}

/// The ground resolution of the job, and a word where it asks for trouble.
double ChooseGsd(const RunOptions& options, const SurveyFacts& facts, RunObserver& observer) {
  const double photos = facts.photoResolution;
  const double gsd = GsdOf(options, facts);
  char text[200];
  if (gsd < 0.8 * photos) {
    std::snprintf(text, sizeof text,
                  "--gsd %.3g is finer than the photos (%.3g): cells share photo pixels, and masks "
                  "made by depth alone hide nearly everything",
                  gsd, photos);
    observer.Warn(text);
  } else if (gsd > 1.5 * photos) {
    std::snprintf(text, sizeof text,
                  "--gsd %.3g is coarser than the photos (%.3g): detail is dropped, and masks made "
                  "by depth alone miss hidden cells",
                  gsd, photos);
    observer.Warn(text);
  }
  return gsd;
}

bool ReadArea(const RunOptions& options, const SurveyFacts& facts,
              std::vector<tqfd::Point2_T<double>>& ring, std::string& error) {
  if (options.areaPath.empty()) return true;
  return geo::ReadPolygon(options.areaPath, facts.dsm.coefficients.GetProjection(), ring, error);
}

RunStatus Stopped(std::string& error) {
  error = "interrupted; what was finished stays, run the same command again";
  return RunStatus::kInterrupted;
}

/// Makes the walls of the working copy upright and delivers what came of it, or takes away what an
/// earlier run delivered.
bool SharpenSurface(const Survey& survey, const RunOptions& options, const JobPaths& paths,
                    StageRelay& relay, std::vector<std::string>& files, RunReport& report,
                    std::string& error) {
  const std::string surface = paths.out + "/surface.tif";
  const std::string codes = paths.out + "/walls.tif";
  std::error_code ignored;
  fs::remove(surface, ignored);
  fs::remove(codes, ignored);
  report.walls = {};
  if (options.walls == Walls::kKeep) return true;
  relay.Begin("walls");
  const auto progress = [&](double share) { return relay.Progress(100 * share); };
  if (!SharpenWalls(survey, paths.dsm, codes, options.walls, progress, report.walls, error)) {
    return false;
  }
  if (options.walls == Walls::kPhotos && !report.walls.photosTell) return true;
  if (!tqfd::PathHelper::CopyFile2(paths.dsm, surface)) {
    error = surface + ": cannot be written; is the disk full?";
    return false;
  }
  files.insert(files.end(), {surface, codes});
  return true;
}

/// A word where the photos did not decide what they were asked.
void WarnOfWalls(const RunOptions& options, const WallReport& walls, RunObserver& observer) {
  if (options.walls != Walls::kPhotos || walls.wallCells == 0) return;
  const double judged =
      100.0 * static_cast<double>(walls.judgedCells) / static_cast<double>(walls.wallCells);
  char text[200];
  if (!walls.photosTell) {
    observer.Warn(
        "walls: the photos cannot tell where walls stand; they are kept as the DSM has them "
        "(--walls surface stands them half way up)");
  } else if (judged < 50) {
    std::snprintf(text, sizeof text,
                  "walls: two photos see both sides on %.0f %% of the cells beside walls only; the "
                  "others (3 in walls.tif) follow these and the surface",
                  judged);
    observer.Warn(text);
  }
}

/// The working copy of the DSM and its border mask, unless an earlier run has made them.
bool PrepareSurface(const Survey& survey, const RunOptions& options, const JobPaths& paths,
                    JobState& state, StageRelay& relay, RunReport& report, std::string& error) {
  const std::string fingerprint = Fingerprint()
                                      .Add(TQTORTHO_VERSION)
                                      .Add(options.dsmPath)
                                      .Add(FileStamp(options.dsmPath))
                                      .Add(static_cast<int>(options.occlusion))
                                      .Add(static_cast<int>(options.walls))
                                      .Text();
  state.SetBase(fingerprint);
  const auto said = state.Stage("dsm", fingerprint);
  if (said && said->contains("walls") && FromRecord(said->at("walls"), report.walls) &&
      FromRecord(*said, report.dsm)) {
    return true;
  }
  relay.Begin("prepare DSM");
  if (!PrepareDsm(options.dsmPath, paths.dsm, paths.origin, {}, report.dsm, error)) return false;
  std::vector<std::string> files{paths.dsm, paths.origin, paths.border};
  if (!SharpenSurface(survey, options, paths, relay, files, report, error)) return false;
  relay.Begin("border mask");
  BorderMaskOptions border;
  // Ray tracing finds more the more ground it is told to look at. Otherwise the borders only say
  // where the orthos are smoothed.
  border.code = options.occlusion == Occlusion::kRays ? BorderCode::kTraceEverywhere
                                                      : BorderCode::kSmoothOnly;
  const auto progress = [&](double share) { return relay.Progress(100 * share); };
  if (!WriteBorderMask(paths.dsm, paths.border, border, error, nullptr, progress)) return false;
  if (!AllDone(paths.work, error)) return false;
  nlohmann::json record = ToRecord(report.dsm);
  record["walls"] = ToRecord(report.walls);
  state.FinishStage("dsm", fingerprint, files, record);
  return true;
}

/// Directories that can be written to, and that are this job's alone.
bool TakeDirectories(const RunOptions& options, const JobPaths& paths, DirectoryLock& outLock,
                     DirectoryLock& workLock, std::string& error) {
  std::error_code ignored;
  return CheckWritable(options.outDir, error) && CheckWritable(paths.work, error) &&
         outLock.Take(paths.out, error) &&
         (fs::equivalent(paths.out, paths.work, ignored) || workLock.Take(paths.work, error)) &&
         CheckWritable(paths.tmp + "/ot", error) &&
         CheckWritable(paths.data + "/ortho_data", error) && CheckWritable(paths.ortho, error);
}

RunStatus Prepare(Survey& survey, const RunOptions& options, const JobPaths& paths, JobState& state,
                  StageRelay& relay, RunReport& report, std::string& error) {
  if (options.fresh) state.Clear();
  if (options.sizingOnly && state.HasPhotos()) {
    error = paths.work +
            ": holds a job that has ortho images, and a sizing run would remove them; choose "
            "another --out, or start over with --fresh";
    return RunStatus::kBadInput;
  }
  if (!WriteLists(survey, paths, error)) return RunStatus::kFailed;
  if (!PrepareSurface(survey, options, paths, state, relay, report, error) && !relay.Stopped()) {
    return RunStatus::kFailed;
  }
  return relay.Stopped() ? Stopped(error) : RunStatus::kDone;
}

/// What the job will make and need; notes it, and finds fault with what is too much.
void Estimate(const Survey& survey, const RunOptions& options, const JobPaths& paths,
              CheckResult& check, RunReport& report, RunObserver& observer) {
  std::vector<tqfd::Point2_T<double>> ring;
  std::string toldLater;
  (void)ReadArea(options, check.facts, ring, toldLater);
  report.estimate =
      EstimateJob(survey, check.facts.dsm, GsdOf(options, check.facts), options.threads, ring);
  const std::int64_t room = FreeSpace(paths.work);
  for (const auto& line : DescribeDsm(options.dsmPath, check.facts.dsm)) observer.Note(line);
  for (const auto& line : DescribeJob(survey, check.facts, report.estimate, room)) {
    observer.Note(line);
  }
  // A job that goes on has most of its files already; where nothing is free, writing tells best.
  const bool askDisk = room > 0 && !fs::exists(paths.work + "/state");
  if (!options.sizingOnly) {
    CheckCost(report.estimate, check.facts.photoResolution, paths.work,
              {askDisk ? room : -1, MachineMemory()}, options.allowLargeJob, check.findings);
  }
}

RunStatus CheckInputs(Survey& survey, const RunOptions& options, const JobPaths& paths,
                      StageRelay& relay, RunObserver& observer, RunReport& report,
                      std::string& error) {
  relay.Begin("check inputs");
  CheckResult check = CheckSurvey(survey, options.dsmPath);
  report.facts = check.facts;
  report.leftOut = survey.leftOut;
  if (check.Usable()) Estimate(survey, options, paths, check, report, observer);
  for (const auto& finding : check.findings) {
    if (finding.level == Finding::Level::kWarning) observer.Warn(finding.text);
  }
  if (check.Usable()) return RunStatus::kDone;
  error = std::find_if(check.findings.begin(), check.findings.end(), [](const Finding& f) {
            return f.level == Finding::Level::kError;
          })->text;
  return RunStatus::kBadInput;
}

/// Why the library's job came to nothing.
std::string JobFailure(const JobPaths& paths) {
  constexpr std::int64_t kLittle = 1 << 20;
  const std::int64_t room = FreeSpace(paths.work);
  if (room >= 0 && room < kLittle) return paths.work + ": cannot be written to; the disk is full";
  return "no photo sees the DSM (or the area); check coordinate systems, heights and the order of "
         "the angles (omega phi kappa, radians). Details: " +
         paths.data + "/log/tqtortho.log";
}

/// Rectifies every photo that no earlier run has finished, and finds out what became of all.
RunStatus Rectify(HostJob& job, const RunOptions& options, const JobPaths& paths,
                  std::vector<tqfd::Point2_T<double>>& ring, JobState& state, StageRelay& relay,
                  RunReport& report, RunObserver& observer, std::string& error) {
  double heightPair[2] = {report.gsd, options.startHeight};
  std::set<PhotoKey> withoutFootprint;
  relay.onRectify = [&] {
    withoutFootprint = PhotosWithoutFootprint(job.Blocks());
    // The job rewrites its parameter file with measured footprints; the plan is what a block can be
    // repeated from.
    (void)tqfd::PathHelper::CopyFile2(ParamFilePath(), paths.plan);
  };
  const bool ok = job.TrueOrthoPhotoProc(
      paths.dsm.c_str(), paths.cameras.c_str(), paths.photos.c_str(), heightPair,
      paths.ortho.c_str(), ring.empty() ? nullptr : &ring, options.resampling,
      options.reducedCopies, options.sizingOnly, &StageRelay::Callback, &relay);
  relay.onRectify = nullptr;
  if (relay.Stopped()) {
    relay.End();
    return Stopped(error);
  }
  report.photosKept = state.PhotosKept();
  if (!ok) {
    relay.End();
    if (AllDone(paths.work, error)) error = JobFailure(paths);
    return RunStatus::kFailed;
  }
  report.gsd = heightPair[0];
  if (!AllDone(paths.work, error)) {
    relay.End();
    return RunStatus::kFailed;
  }
  CollectOutcomes(job.Blocks(), paths, options, withoutFootprint, relay, report, observer);
  relay.End();
  if (!options.sizingOnly) {
    std::set<std::string> orthos;
    for (const auto& photo : report.photos) orthos.insert(photo.orthoPath);
    state.RemoveOthers(orthos);
  }
  return relay.Stopped() ? Stopped(error) : RunStatus::kDone;
}

}  // namespace

RunStatus RunJob(Survey survey, const RunOptions& options, RunObserver& watcher, RunReport& report,
                 std::string& error) {
  tqfd::Timer timer;
  timer.Start();
  const JobPaths paths = MakePaths(options);
  NotingObserver observer(watcher);
  StageRelay relay(observer, report);
  const std::string title = survey.source;
  std::vector<std::string> notes = survey.notes;
  if (!ChooseBands(options.bands, paths.staged, survey, error)) return RunStatus::kBadInput;
  RunStatus status = CheckInputs(survey, options, paths, relay, observer, report, error);
  if (status != RunStatus::kDone) return status;
  DirectoryLock outLock, workLock;
  if (!TakeDirectories(options, paths, outLock, workLock, error)) return RunStatus::kBadInput;
  RemoveUnfinishedFiles(paths.out);
  RemoveUnfinishedFiles(paths.work);
  ForgetFaults();
  JobState state(paths.work, paths.ortho, paths.data + "/ortho_data/orParam.txt");
  const JobSettings settings(paths, options, state);
  status = Prepare(survey, options, paths, state, relay, report, error);
  if (status != RunStatus::kDone) return status;
  WarnOfWalls(options, report.walls, observer);

  std::vector<tqfd::Point2_T<double>> ring;
  if (!ReadArea(options, report.facts, ring, error)) return RunStatus::kBadInput;
  report.gsd = ChooseGsd(options, report.facts, observer);
  relay.End();
  HostJob job;
  status = Rectify(job, options, paths, ring, state, relay, report, observer, error);
  if (status != RunStatus::kDone) return status;
  const bool any = std::any_of(report.photos.begin(), report.photos.end(),
                               [](const PhotoOutcome& p) { return p.done; });
  if (any && !options.sizingOnly) {
    std::string products;
    if (!MakeProducts(job, paths, options, report.gsd, ring, state, relay, report, observer,
                      products, error)) {
      relay.End();
      return relay.Stopped() ? Stopped(error) : RunStatus::kFailed;
    }
    for (const auto& line : report.mosaic.leftOut) observer.Warn(line);
    std::vector<std::string> orthos;
    for (const auto& photo : report.photos) {
      if (photo.done) orthos.push_back(photo.orthoPath);
    }
    if (!NameOrthosForPeople(orthos, orthos)) {
      (void)AllDone(paths.work, error);
      return RunStatus::kFailed;
    }
    WriteOverview(orthos, options, report, observer);
    notes.insert(notes.end(), observer.Lines().begin(), observer.Lines().end());
    WriteReport({job.Blocks(), job.Cameras(), paths.ortho, report.gsd}, paths, options, title,
                products, notes, state, relay, report, observer);
  }
  timer.Stop();
  report.seconds = timer.ElapsedSeconds();
  report.peakMemoryBytes = PeakMemory();
  if (!any) {
    error = "no photo could be rectified; the first: photo " + report.photos.front().name + ": " +
            report.photos.front().reason;
    return RunStatus::kFailed;
  }
  return RunStatus::kDone;
}

}  // namespace tqtortho::host
