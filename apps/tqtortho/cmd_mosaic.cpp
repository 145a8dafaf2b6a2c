// SPDX-License-Identifier: Apache-2.0
#include <omp.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "commands.h"
#include "format_options.h"
#include "geo/Vector.h"
#include "mosaic/mosaic_stage.h"
#include "option_checks.h"
#include "progress_printer.h"
#include "report/seams_file.h"
#include "report/tile_folder.h"
#include "run/directory_lock.h"
#include "summary.h"
#include "tqimage/TqImage.h"

namespace tqtortho::app {
namespace {

struct MosaicCommand {
  std::string work;
  std::string area;
  std::string format = "cog";
  int threads = 0;
  std::string fill = "small";
  bool noBalance = false;
  bool json = false;
  bool quiet = false;
  host::MosaicOptions options;
};

void PrintReport(const host::MosaicReport& report, const std::string& outDir) {
  for (const auto& line : MosaicLines(report)) std::fprintf(stderr, "%s\n", line.c_str());
  std::fprintf(stderr, "open %s/mosaic.tif in QGIS\n", outDir.c_str());
}

/// Regions and seams, and web tiles: a mosaic without them is still a mosaic.
void TakeAlong(const MosaicCommand& command, const host::MosaicInput& input,
               const host::MosaicProgress& progress, ProgressPrinter& printer) {
  const host::MosaicOptions& o = command.options;
  std::string error;
  const auto seams = [&](double percent) { return progress("seams", percent); };
  if (!host::WriteSeamsFile(input, o.outDir, o.workDir, {}, seams, error)) printer.Warn(error);
  if (command.format != "png-tiles" || printer.StopRequested()) return;
  const auto tiles = [&](double share) { return progress("tiles", 100 * share); };
  if (!host::WriteTileFolder(o.outDir, tiles, error)) printer.Warn(error);
}

int RunMosaic(MosaicCommand command) {
  host::MosaicInput input;
  std::string error;
  host::MosaicOptions& options = command.options;
  error = FormatFault(command.format, options.format.compression);
  if (!error.empty()) return Fail(kBadInput, error);
  options.workDir = std::filesystem::absolute(command.work).lexically_normal().string();
  if (!host::LoadMosaicInput(options.workDir, input, error)) return Fail(kBadInput, error);
  host::DirectoryLock lock;  // the map and the texture in the work directory are made again
  if (!lock.Take(options.workDir, error)) return Fail(kBadInput, error);
  if (!command.area.empty()) {
    tqimage::TqImage dsm;
    const std::string dsmPath = options.workDir + "/dsm.tif";
    if (!dsm.Open(dsmPath, true)) return Fail(kBadInput, dsmPath + ": cannot be read");
    const std::string crs = dsm.GetGeoCoefficients().GetProjection();
    if (!geo::ReadPolygon(command.area, crs, options.area, error)) return Fail(kBadInput, error);
  }
  if (command.threads > 0) omp_set_num_threads(command.threads);
  options.format.threads = command.threads;
  options.fill = FillingOf(command.fill);
  options.balanceColours = !command.noBalance;

  ProgressPrinter printer(ChooseProgressStyle(command.json, command.quiet));
  std::string stage;
  const auto progress = [&](const char* name, double percent) {
    if (stage != name) {
      stage = name;
      printer.BeginStage(stage);
    }
    printer.Progress(percent);
    return !printer.StopRequested();
  };
  host::MosaicReport report;
  if (command.format == "jpeg") options.format.compression = "jpeg";
  const bool made = host::MakeMosaic(input, options, progress, report, error);
  for (const auto& line : report.leftOut) printer.Warn(line);
  if (!made) {
    if (Interrupted()) return Fail(kInterrupted, kInterruptedText);
    return Fail(kFailed, error);
  }
  for (const auto& done : report.stages) {
    printer.BeginStage(done.name);
    printer.EndStage(done.seconds);
  }
  TakeAlong(command, input, progress, printer);
  if (Interrupted()) return Fail(kInterrupted, kInterruptedText);
  if (!command.quiet && !command.json) PrintReport(report, options.outDir);
  return kDone;
}

}  // namespace

void AddMosaic(CLI::App& app, int& status) {
  auto o = std::make_shared<MosaicCommand>();
  CLI::App* command =
      app.add_subcommand("mosaic", "Make the mosaic of a finished run again, with other options");
  command->add_option("--work", o->work, "work directory of the run (OUT/work)")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  command
      ->add_option("--out", o->options.outDir,
                   "receives mosaic.tif, source.tif, quality.tif, seams.gpkg")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  AddFormatOption(*command, o->format);
  command->add_option("--compress", o->options.format.compression, "compression of the rasters")
      ->check(CLI::IsMember({"auto", "zstd", "deflate", "jpeg"}))
      ->capture_default_str();
  command->add_option("--jpeg-quality", o->options.format.jpegQuality, "for --compress jpeg")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
  command->add_option("--feather", o->options.feather, "cells on each side of a seam")
      ->check(CLI::Range(0, 32))
      ->capture_default_str();
  command->add_option("--area", o->area, "polygon (GeoJSON, GeoPackage ...) to cut the product to")
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--threads", o->threads, "0: all cores")->check(CLI::Range(0, 1024));
  AddFillOption(*command, o->fill);
  command->add_flag("--no-balance", o->noBalance, "keep the photos' colours");
  command->add_flag("--json", o->json, "progress as JSON lines on standard output");
  command->add_flag("--quiet", o->quiet, "no progress");
  command->footer("Example: tqtortho mosaic --work out/work --out out2 --compress jpeg");
  command->callback([o, &status] { status = RunMosaic(*o); });
}

}  // namespace tqtortho::app
