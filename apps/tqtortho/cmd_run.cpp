// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "core/limits.h"
#include "format_options.h"
#include "option_checks.h"
#include "progress_printer.h"
#include "run/run_job.h"
#include "source_options.h"
#include "summary.h"
#include "survey/number_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::app {
namespace {

struct RunArguments {
  SourceOptions source;
  host::RunOptions run;
  double gsd = -1;
  std::vector<int> bands;
  std::vector<double> range;
  std::string resampling = "bilinear";
  std::string occlusion = "sight";
  std::string walls = "keep";
  std::string finish = "fill";
  std::string fill = "small";
  std::string format = "cog";
  bool json = false;
  bool quiet = false;
};

/// Share of the mosaic's seen cells that a photo supplies, 0 to 1; photos count from 0 in job
/// order.
double SuppliedShare(const host::MosaicReport& mosaic, std::size_t photo) {
  if (photo + 1 >= mosaic.supplied.size() || mosaic.seen <= 0) return 0;
  return static_cast<double>(mosaic.supplied[photo + 1]) / static_cast<double>(mosaic.seen);
}

nlohmann::json ToJson(const host::RunReport& report) {
  nlohmann::json photos = nlohmann::json::array();
  for (const auto& p : report.photos) {
    const double supplied = SuppliedShare(report.mosaic, photos.size());
    photos.push_back({{"name", p.name},
                      {"block", p.block},
                      {"done", p.done},
                      {"reason", p.reason},
                      {"cells", p.cells},
                      {"hidden", p.hiddenShare},
                      {"supplied", supplied},
                      {"ortho", p.orthoPath}});
  }
  nlohmann::json stages = nlohmann::json::array();
  for (const auto& s : report.stages) stages.push_back({{"name", s.name}, {"seconds", s.seconds}});
  return {{"event", "result"},
          {"gsd", report.gsd},
          {"photos", photos},
          {"stages", stages},
          {"estimate",
           {{"memoryBytes", report.estimate.memoryBytes},
            {"diskBytes", report.estimate.diskBytes},
            {"seconds", report.estimate.seconds}}},
          {"photosKept", report.photosKept},
          {"leftOut", report.leftOut},
          {"cells", report.cells},
          {"seconds", report.seconds},
          {"peakMemoryBytes", report.peakMemoryBytes},
          {"wallCells", report.walls.wallCells},
          {"wallCellsChanged", report.walls.changedCells},
          {"wallCellsJudged", report.walls.judgedCells},
          {"wallDisplacement", report.walls.displacement},
          {"mosaic", report.mosaicPath},
          {"mosaicCells", report.mosaic.cells},
          {"seen", report.mosaic.seen},
          {"seenByOne", report.mosaic.seenByOne},
          {"filled", report.mosaic.filled},
          {"neverCovered", report.mosaic.neverCovered},
          {"seamLength", report.mosaic.seamLength},
          {"colourStepBefore", report.mosaic.colourStepBefore},
          {"colourStepAfter", report.mosaic.colourStepAfter},
          {"report", report.reportPath},
          {"preview", report.previewPath},
          {"vrt", report.vrtPath}};
}

void PrintTable(const host::RunReport& report) {
  std::size_t width = 5;
  for (const auto& p : report.photos) {
    width = std::max(width, p.name.size());
  }
  std::printf("\n%-*s %12s %9s %11s\n", static_cast<int>(width), "photo", "cells", "hidden %",
              "supplies %");
  for (std::size_t i = 0; i < report.photos.size(); ++i) {
    const auto& p = report.photos[i];
    if (p.done) {
      std::printf("%-*s %12lld %9.1f %11.1f\n", static_cast<int>(width), p.name.c_str(),
                  static_cast<long long>(p.cells), 100 * p.hiddenShare,
                  100 * SuppliedShare(report.mosaic, i));
    } else {
      std::printf("%-*s failed: %s\n", static_cast<int>(width), p.name.c_str(), p.reason.c_str());
    }
  }
  if (report.photosKept > 0) {
    std::printf("\n%d photos were finished by an earlier run and kept (--fresh makes them anew)",
                report.photosKept);
  }
  std::printf("\northo images of %s, %s m each\n",
              host::Cells(static_cast<double>(report.cells)).c_str(),
              host::ShortNumber(report.gsd).c_str());
  for (const auto& s : report.stages) std::printf("  %-14s %8.1f s\n", s.name.c_str(), s.seconds);
  std::printf("  %-14s %8.1f s, peak memory %.0f MB\n", "all", report.seconds,
              static_cast<double>(report.peakMemoryBytes) / 1e6);
  if (report.walls.changedCells > 0) {
    const auto cells = static_cast<double>(report.walls.wallCells);
    std::printf(
        "walls: %.2f million half cells beside them, %.1f %% changed, %.1f %% judged by photos; "
        "they "
        "stand %.2f m outside the line half way up\n",
        cells / 1e6, 100 * static_cast<double>(report.walls.changedCells) / cells,
        100 * static_cast<double>(report.walls.judgedCells) / cells, report.walls.displacement);
  }
  if (!report.mosaicPath.empty()) {
    for (const auto& line : MosaicLines(report.mosaic)) std::printf("%s\n", line.c_str());
  }
  if (!report.reportPath.empty()) {
    std::printf("open %s in a browser, %s in QGIS\n", report.reportPath.c_str(),
                report.mosaicPath.c_str());
  } else if (!report.previewPath.empty()) {
    std::printf("look at %s, open %s in QGIS\n", report.previewPath.c_str(),
                report.mosaicPath.empty() ? report.vrtPath.c_str() : report.mosaicPath.c_str());
  }
  std::printf("%s\n", PhotosLine(report).c_str());
}

bool ReadBandChoice(const RunArguments& arguments, host::BandChoice& choice) {
  const auto& range = arguments.range;
  choice.bands = arguments.bands;
  if (!choice.bands.empty() && choice.bands.size() != 1 && choice.bands.size() != 3) {
    Complain("--bands takes one band or three, as in --bands 4,3,2");
    return false;
  }
  if (range.empty()) return true;
  if (choice.bands.empty() || !(range[0] < range[1]) || !std::isfinite(range[1] - range[0])) {
    Complain("--range takes two values, the lower first, and needs --bands");
    return false;
  }
  choice.range = {range[0], range[1]};
  return true;
}

int Run(RunArguments& arguments) {
  const std::string conflict = FormatFault(arguments.format, arguments.run.format.compression);
  if (!conflict.empty()) return Fail(kBadInput, conflict);
  if (const std::string& area = arguments.run.areaPath; !area.empty()) {
    // It is read later, when the surface says its coordinate system.
    const std::string fault = tqfd::FileFault(area, limits::kAreaBytes);
    if (!fault.empty()) return Fail(kBadInput, fault);
  }
  auto survey = LoadSurvey(arguments.source);
  if (!survey) return kBadInput;
  host::RunOptions& run = arguments.run;
  run.dsmPath = arguments.source.dsm.empty() ? survey->dsmPath : arguments.source.dsm;
  if (!run.dsmPath.empty()) {
    const std::string fault = tqfd::FileFault(run.dsmPath, INT64_MAX);
    if (!fault.empty()) return Fail(kBadInput, fault);
  }
  run.resampling = arguments.resampling == "nearest" ? 0 : 1;
  if (arguments.gsd >= 0) run.gsd = arguments.gsd;
  run.fill = FillingOf(arguments.fill);
  run.finish = arguments.finish == "none"      ? host::Finish::kNone
               : arguments.finish == "mark"    ? host::Finish::kMark
               : arguments.finish == "texture" ? host::Finish::kTexture
                                               : host::Finish::kFill;
  run.occlusion = arguments.occlusion == "rays"    ? host::Occlusion::kRays
                  : arguments.occlusion == "depth" ? host::Occlusion::kDepth
                                                   : host::Occlusion::kSight;
  run.walls = arguments.walls == "photos"    ? host::Walls::kPhotos
              : arguments.walls == "surface" ? host::Walls::kSurface
                                             : host::Walls::kKeep;
  if (arguments.format == "jpeg") run.format.compression = "jpeg";
  run.webTiles = arguments.format == "png-tiles";
  if (!ReadBandChoice(arguments, run.bands)) return kBadInput;
  ProgressPrinter printer(ChooseProgressStyle(arguments.json, arguments.quiet));
  if (!arguments.json && !arguments.quiet) {
    std::fprintf(stderr, "%s\n", survey->source.c_str());
    for (const auto& note : survey->notes) std::fprintf(stderr, "  %s\n", note.c_str());
  }
  host::RunReport report;
  std::string error;
  const host::RunStatus status = host::RunJob(std::move(*survey), run, printer, report, error);
  switch (status) {
    case host::RunStatus::kBadInput:
      return Fail(kBadInput, error);
    case host::RunStatus::kFailed:
      return Fail(kFailed, error);
    case host::RunStatus::kInterrupted:
      return Fail(kInterrupted, error);
    case host::RunStatus::kDone:
      break;
  }
  if (arguments.json) {
    std::printf(
        "%s\n",
        ToJson(report).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
  } else {
    PrintTable(report);
  }
  return kDone;
}

void AddOrthoOptions(CLI::App& command, RunArguments& a) {
  command
      .add_option("--gsd", a.gsd,
                  "ground size of an output cell; 0: the DSM's; default: the photos' median ground "
                  "resolution, rounded up")
      ->check(Between(0.0, 1e6))
      ->type_name("M");
  command
      .add_option("--start-height", a.run.startHeight,
                  "height where footprints are first looked for; 0: the DSM's mean")
      ->check(Between(-1e5, 1e5))
      ->type_name("Z");
  command.add_option("--resampling", a.resampling, "how photos are sampled")
      ->check(CLI::IsMember({"nearest", "bilinear"}))
      ->capture_default_str();
  command
      .add_option(
          "--occlusion", a.occlusion,
          "how it is found out what a photo cannot see: lines of sight against the surface "
          "and its walls; rays traced through a coarser surface; or depth alone (z-buffer), "
          "which finds little")
      ->check(CLI::IsMember({"sight", "rays", "depth"}))
      ->capture_default_str();
  command
      .add_option("--walls", a.walls,
                  "walls that the DSM draws as ramps or in the wrong place: made upright where the "
                  "photos agree best, or at half their height by the surface alone, or kept")
      ->check(CLI::IsMember({"photos", "surface", "keep"}))
      ->capture_default_str();
  command
      .add_option("--finish", a.finish,
                  "ortho images after the mosaic: hidden cells filled from it and the others as "
                  "rectified; all cells taken from it (texture); cells that a photo must not "
                  "supply marked 0; or nothing done")
      ->check(CLI::IsMember({"fill", "mark", "texture", "none"}))
      ->capture_default_str();
}

void AddProductOptions(CLI::App& command, RunArguments& a) {
  AddFillOption(command, a.fill);
  AddFormatOption(command, a.format);
  command.add_option("--compress", a.run.format.compression, "compression of the mosaic")
      ->check(CLI::IsMember({"auto", "zstd", "deflate", "jpeg"}))
      ->capture_default_str();
  command.add_option("--area", a.run.areaPath, "produce only this polygon")
      ->check(Named())
      ->type_name("F.geojson");
  command
      .add_option("--bands", a.bands,
                  "bands of the photos to use, counted from 1: one, or three for red, green and "
                  "blue (4,3,2)")
      ->delimiter(',')
      ->check(CLI::Range(1, 10000))
      ->type_name("N,N,N");
  command
      .add_option("--range", a.range,
                  "with --bands: sample values that become black and white, for photos of more "
                  "than 8 bits")
      ->delimiter(',')
      ->expected(2)
      ->type_name("LO,HI");
}

}  // namespace

void AddRun(CLI::App& app, int& status) {
  auto a = std::make_shared<RunArguments>();
  CLI::App* command = app.add_subcommand("run", "Run a whole job: every photo onto the DSM");
  AddSourceOptions(*command, a->source);
  command->add_option("--out", a->run.outDir, "directory of the products")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  AddOrthoOptions(*command, *a);
  AddProductOptions(*command, *a);
  command->add_flag("--reduced", a->run.reducedCopies,
                    "also write a reduced copy of every ortho (OUT/rs)");
  command->add_flag("--sizing-only", a->run.sizingOnly, "georeference sidecars only, no rasters");
  command->add_flag("--full-paths", a->run.fullPaths,
                    "the report names directories too; without it only files, as it is passed on");
  command->add_flag("--fresh", a->run.fresh,
                    "start over; without it a run goes on where an earlier one in OUT stopped");
  command->add_option("--work", a->run.workDir, "the job's own state (default OUT/work)")
      ->check(Named())
      ->type_name("DIR");
  command->add_option("--threads", a->run.threads, "threads; default: all cores")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
  command->add_flag("--allow-large-job", a->run.allowLargeJob,
                    "run a job although it needs more memory or disk than there is, or more than "
                    "two minutes because --gsd is far finer than the photos");
  command->add_flag("--json", a->json, "progress and result as JSON lines on standard output");
  command->add_flag("--quiet", a->quiet, "no progress");
  command->footer(
      "Examples:\n"
      "  tqtortho run --odm ~/odm/village --out village-ortho\n"
      "  tqtortho run --dsm dsm.tif --cameras cameras.txt --photos photos.txt --gsd 0.05 --out "
      "out");
  command->callback([a, &status] { status = Run(*a); });
}

}  // namespace tqtortho::app
