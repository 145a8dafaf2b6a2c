// SPDX-License-Identifier: Apache-2.0
#include "host/run_job.h"

#include <omp.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <set>

#include "core/rect_ops.h"
#include "geo/RasterTools.h"
#include "geo/Vector.h"
#include "host/border_mask_maker.h"
#include "host/photo_staging.h"
#include "job/messages.h"
#include "job/photo_files.h"
#include "tqfd/PathHelper.h"
#include "tqfd/StringConverter.h"
#include "tqfd/Timer.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
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

/// Turns the library's callback into the observer's stages: a new message is a new stage.
class StageRelay {
 public:
  StageRelay(RunObserver& observer, RunReport& report) : observer_(observer), report_(report) {}

  void Begin(const std::string& name) {
    End();
    open_ = true;
    report_.stages.push_back({name, 0});
    timer_.Start();
    observer_.BeginStage(name);
  }
  void End() {
    if (!open_) return;
    timer_.Stop();
    report_.stages.back().seconds = timer_.ElapsedSeconds();
    observer_.EndStage(report_.stages.back().seconds);
    open_ = false;
  }
  bool Progress(double percent) {
    observer_.Progress(percent);
    if (observer_.StopRequested()) stopped_ = true;
    return !stopped_;
  }
  [[nodiscard]] bool Stopped() {
    if (observer_.StopRequested()) stopped_ = true;
    return stopped_;
  }

  /// What one percent of the callback stands for; the fill pass counts every photo twice.
  double share = 1;
  /// Called once when rectification has begun: footprints are estimated and not yet measured.
  std::function<void()> onRectify;

  static int Callback(double percent, const char* message, void* user) {
    auto* self = static_cast<StageRelay*>(user);
    const std::string text = tqfd::StringConverter::GbkToUtf8(message == nullptr ? "" : message);
    if (text != self->message_) {
      self->message_ = text;
      if (text != message::kRectifying || !self->open_) self->Begin(StageName(text));
      if (text == message::kRectifying && self->onRectify) self->onRectify();
    }
    const bool go = self->Progress(percent * self->share);
    // Rectification reports only when its first block is done; its time begins here.
    if (go && text == message::kEstimating && percent > 100 - 1e-6) {
      self->Begin(StageName(std::string(message::kRectifying)));
    }
    return go ? 1 : 0;
  }

 private:
  static std::string StageName(const std::string& text) {
    if (text == message::kEstimating) return "extent";
    if (text == message::kRectifying) return "rectify";
    if (text == message::kObscuring) return "hidden cells";
    if (text == message::kWeighting) return "weights";
    if (text == message::kMosaicking) return "mosaic masks";
    if (text == message::kUpdating) return "update orthos";
    return text;
  }

  RunObserver& observer_;
  RunReport& report_;
  tqfd::Timer timer_;
  std::string message_;
  bool open_ = false;
  bool stopped_ = false;
};

/// Where a job keeps its files.
struct JobPaths {
  std::string work;
  std::string data;    ///< program data: parameter file, log
  std::string tmp;     ///< masks of the whole job
  std::string dsm;     ///< working copy
  std::string origin;  ///< where its heights come from
  std::string cameras;
  std::string photos;
  std::string staged;  ///< links with safe names
  std::string ortho;   ///< prefix of the ortho images
};

JobPaths MakePaths(const RunOptions& options) {
  JobPaths p;
  p.work = fs::absolute(options.workDir.empty() ? options.outDir + "/work" : options.workDir)
               .lexically_normal()
               .string();
  p.data = p.work;
  p.tmp = p.work + "/tmp";
  p.dsm = p.work + "/dsm.tif";
  p.origin = p.work + "/dsm_origin.tif";
  p.cameras = p.work + "/cameras.txt";
  p.photos = p.work + "/photos.txt";
  p.staged = p.work + "/photos";
  p.ortho = fs::absolute(options.outDir).lexically_normal().string() + "/ortho/";
  return p;
}

std::int64_t PeakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::int64_t>(usage.ru_maxrss) * 1024;
}

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

using PhotoKey = std::pair<std::size_t, std::size_t>;  // block, photo

/// Photos whose estimated footprint is empty: they see nothing that could be produced.
std::set<PhotoKey> PhotosWithoutFootprint(const HostJob& job) {
  std::set<PhotoKey> none;
  for (std::size_t b = 0; b < job.Blocks().size(); ++b) {
    const auto& photos = job.Blocks()[b].GetPhotos();
    for (std::size_t i = 0; i < photos.size(); ++i) {
      if (!HasArea(photos[i].GetGeoRect())) none.emplace(b, i);
    }
  }
  return none;
}

/// Collects what became of every photo and blanks cells without a height of their own.
void CollectOutcomes(const HostJob& job, const JobPaths& paths, const RunOptions& options,
                     const std::set<PhotoKey>& withoutFootprint, StageRelay& relay,
                     RunReport& report, RunObserver& observer) {
  const bool blank = report.dsm.trueCells + report.dsm.filledCells < report.dsm.cells;
  std::vector<PhotoKey> places;
  for (std::size_t b = 0; b < job.Blocks().size(); ++b) {
    for (std::size_t i = 0; i < job.Blocks()[b].GetPhotos().size(); ++i) places.emplace_back(b, i);
  }
  report.photos.resize(places.size());
  relay.Begin("check outputs");
  int finished = 0;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t k = 0; k < places.size(); ++k) {
    const auto& block = job.Blocks()[places[k].first];
    const auto& photo = block.GetPhotos()[places[k].second];
    PhotoOutcome& out = report.photos[k];
    out.name = photo.GetPhotoName();
    out.block = photo.GetImgBlkId();
    out.orthoPath = OrthoName(paths.ortho, out.name, out.block);
    out.done = HasArea(photo.GetGeoRect()) && (options.sizingOnly || fs::exists(out.orthoPath));
    std::string error;
    if (out.done && !options.sizingOnly) {
      // The outermost rim is continued past the raster, so cells there need the blanking as well.
      if (blank && !BlankWithoutHeight(out.orthoPath, paths.origin, error)) {
        out.done = false;
        out.reason = error;
      }
      out.hiddenShare = HiddenShare(out.orthoPath, out.cells);
    } else if (!out.done) {
      out.reason = FailureReason(block, photo, paths.ortho, withoutFootprint.count(places[k]) == 0);
    }
#pragma omp critical(tqtortho_host_outcome)
    {
      (void)relay.Progress(100.0 * ++finished / static_cast<double>(places.size()));
      if (!out.done) observer.Warn("photo " + out.name + ": " + out.reason);
    }
  }
  for (const auto& out : report.photos) report.cells += out.cells;
}

/// The mosaic, and what is done with it to the ortho images.
bool MakeProducts(HostJob& job, const JobPaths& paths, const RunOptions& options, double gsd,
                  const std::vector<tqfd::Point2_T<double>>& ring, StageRelay& relay,
                  RunReport& report, std::string& error) {
  const MosaicInput input{job.Blocks(), job.Cameras(), paths.ortho, gsd};
  MosaicOptions mosaic;
  mosaic.outDir = fs::absolute(options.outDir).lexically_normal().string();
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
  if (!MakeMosaic(input, mosaic, progress, report.mosaic, error)) return false;
  report.mosaicPath = options.outDir + "/mosaic.tif";
  if (options.finish == Finish::kFill) {
    relay.share = 0.5;
    (void)job.UpdateOrthoImages(std::string(), paths.ortho, &StageRelay::Callback, &relay);
  } else if (options.finish == Finish::kMark) {
    (void)job.UpdateOrthoImagesMarkOcc(std::string(), paths.ortho, &StageRelay::Callback, &relay);
  }
  relay.End();
  return !relay.Stopped();
}

/// One picture and one virtual raster over all orthos, so that a person can look at once.
void WriteOverview(const RunOptions& options, RunReport& report, RunObserver& observer) {
  std::vector<std::string> orthos;
  for (const auto& photo : report.photos) {
    if (photo.done) orthos.push_back(photo.orthoPath);
  }
  if (orthos.empty()) return;
  report.vrtPath = options.outDir + "/orthos.vrt";
  report.previewPath = options.outDir + "/preview.png";
  std::vector<std::uint8_t> pixels;
  int width = 0, height = 0, bands = 0;
  if (!geo::BuildVrt(report.vrtPath, orthos, 0) ||
      !geo::ReadReduced(report.mosaicPath.empty() ? report.vrtPath : report.mosaicPath, 2000,
                        pixels, width, height, bands) ||
      !geo::WritePng(report.previewPath, pixels.data(), width, height, bands)) {
    observer.Warn(report.previewPath + ": could not be made (the ortho images are complete)");
    report.previewPath.clear();
  }
}

bool WriteLists(Survey& survey, const JobPaths& paths, std::string& error) {
  for (auto& block : survey.blocks)
    block.path = fs::absolute(block.path).lexically_normal().string();
  if (!StagePhotos(survey, paths.staged, error)) return false;
  if (WriteCameraFile(paths.cameras, survey) && WritePhotoList(paths.photos, survey)) return true;
  error = paths.work + ": cannot be written to; choose another --work or free some space";
  return false;
}

/// The ground resolution of the job, and a word where it asks for trouble.
double ChooseGsd(const RunOptions& options, const SurveyFacts& facts, RunObserver& observer) {
  const double photos = facts.photoResolution;
  const double gsd =
      options.gsd ? (*options.gsd > 0 ? *options.gsd : facts.dsm.cell) : RoundUpTwoDigits(photos);
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

RunStatus Prepare(Survey& survey, const RunOptions& options, const JobPaths& paths,
                  StageRelay& relay, RunObserver& observer, RunReport& report, std::string& error) {
  relay.Begin("check inputs");
  CheckResult check = CheckSurvey(survey, options.dsmPath);
  report.facts = check.facts;
  for (const auto& finding : check.findings) {
    if (finding.level == Finding::Level::kWarning) observer.Warn(finding.text);
  }
  if (!check.Usable()) {
    const auto first =
        std::find_if(check.findings.begin(), check.findings.end(),
                     [](const Finding& f) { return f.level == Finding::Level::kError; });
    error = first->text;
    return RunStatus::kBadInput;
  }
  if (!CheckWritable(options.outDir, error) || !CheckWritable(paths.work, error) ||
      !CheckWritable(paths.tmp + "/ot", error)) {
    return RunStatus::kBadInput;
  }
  if (!WriteLists(survey, paths, error)) return RunStatus::kFailed;
  relay.Begin("prepare DSM");
  if (!PrepareDsm(options.dsmPath, paths.dsm, paths.origin, {}, report.dsm, error)) {
    return RunStatus::kFailed;
  }
  relay.Begin("border mask");
  BorderMaskOptions border;
  border.traceEverywhere = true;
  if (!WriteBorderMask(paths.dsm, paths.tmp + "/ot/bordermsk.tif", border, error)) {
    return RunStatus::kFailed;
  }
  return relay.Stopped() ? Stopped(error) : RunStatus::kDone;
}

}  // namespace

RunStatus RunJob(Survey survey, const RunOptions& options, RunObserver& observer, RunReport& report,
                 std::string& error) {
  tqfd::Timer timer;
  timer.Start();
  const JobPaths paths = MakePaths(options);
  tqfd::PathHelper::SetProgramDataDirectory(paths.data);
  tqorkit::TqFSManager::SetOutputTmpFilePath(paths.tmp);
  if (options.threads > 0) omp_set_num_threads(options.threads);

  StageRelay relay(observer, report);
  const RunStatus prepared = Prepare(survey, options, paths, relay, observer, report, error);
  if (prepared != RunStatus::kDone) return prepared;

  std::vector<tqfd::Point2_T<double>> ring;
  if (!ReadArea(options, report.facts, ring, error)) return RunStatus::kBadInput;
  report.gsd = ChooseGsd(options, report.facts, observer);
  double heightPair[2] = {report.gsd, options.startHeight};
  if (!CheckWritable(paths.data + "/ortho_data", error) || !CheckWritable(paths.ortho, error)) {
    return RunStatus::kBadInput;
  }
  relay.End();
  HostJob job;
  std::set<PhotoKey> withoutFootprint;
  relay.onRectify = [&] {
    withoutFootprint = PhotosWithoutFootprint(job);
    // The job rewrites its parameter file with measured footprints; the plan is what a block can be
    // repeated from.
    (void)tqfd::PathHelper::CopyFile2(ParamFilePath(), paths.data + "/ortho_data/orParam_plan.txt");
  };
  const bool ok = job.TrueOrthoPhotoProc(
      paths.dsm.c_str(), paths.cameras.c_str(), paths.photos.c_str(), heightPair,
      paths.ortho.c_str(), ring.empty() ? nullptr : &ring, options.resampling,
      options.reducedCopies, options.sizingOnly, &StageRelay::Callback, &relay);
  if (!ok) {
    relay.End();
    if (relay.Stopped()) return Stopped(error);
    constexpr std::int64_t kLittle = 1 << 20;
    const std::int64_t room = FreeSpace(paths.work);
    if (room >= 0 && room < kLittle) {
      error = paths.work + ": cannot be written to; the disk is full";
      return RunStatus::kFailed;
    }
    error =
        "no photo sees the DSM (or the area); check coordinate systems, heights and the order of "
        "the angles (omega phi kappa, radians). Details: " +
        paths.data + "/log/tqtortho.log";
    return RunStatus::kFailed;
  }
  CollectOutcomes(job, paths, options, withoutFootprint, relay, report, observer);
  relay.End();
  const bool any = std::any_of(report.photos.begin(), report.photos.end(),
                               [](const PhotoOutcome& p) { return p.done; });
  if (any && !options.sizingOnly) {
    if (!MakeProducts(job, paths, options, heightPair[0], ring, relay, report, error)) {
      relay.End();
      return relay.Stopped() ? Stopped(error) : RunStatus::kFailed;
    }
    for (const auto& line : report.mosaic.leftOut) observer.Warn(line);
    WriteOverview(options, report, observer);
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
