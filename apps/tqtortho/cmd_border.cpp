// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "commands.h"
#include "geo/RasterTools.h"
#include "option_checks.h"
#include "prepare/border_mask_maker.h"
#include "progress_printer.h"
#include "stage/surface_limit.h"
#include "tqfd/Timer.h"

namespace tqtortho::app {
namespace {

struct BorderOptions {
  std::string dsm;
  std::string out;
  host::BorderMaskOptions mask;
  bool quiet = false;
};

int RunBorder(const BorderOptions& options) {
  geo::RasterSummary dsm;
  std::string error;
  if (!geo::DescribeRaster(options.dsm, dsm, error)) return Fail(kBadInput, error);
  if (IsSameFile(options.dsm, options.out)) {
    return Fail(kBadInput, options.out + ": is the surface model itself; give another --out");
  }
  if (!dsm.hasGeoreference || dsm.rotated) {
    return Fail(kBadInput, options.dsm +
                               ": has no north-up georeference; give the surface model as a "
                               "GeoTIFF in ground coordinates (gdalwarp makes one)");
  }
  const std::string tooLarge = host::SurfaceTooLarge(options.dsm, dsm.width, dsm.height);
  if (!tooLarge.empty()) return Fail(kBadInput, tooLarge);
  ProgressPrinter printer(ChooseProgressStyle(false, options.quiet));
  const auto progress = [&](double share) {
    printer.Progress(100 * share);
    return !Interrupted();
  };
  printer.BeginStage("border mask");
  tqfd::Timer timer;
  timer.Start();
  host::BorderMaskReport report;
  if (!host::WriteBorderMask(options.dsm, options.out, options.mask, error, &report, progress)) {
    return Fail(kFailed, error);
  }
  timer.Stop();
  printer.EndStage(timer.ElapsedSeconds());
  const double percent = report.heightCells > 0 ? 100.0 * static_cast<double>(report.borderCells) /
                                                      static_cast<double>(report.heightCells)
                                                : 0.0;
  std::printf("%s: %lld border cells, %.2f %% of %lld cells with a height\n", options.out.c_str(),
              static_cast<long long>(report.borderCells), percent,
              static_cast<long long>(report.heightCells));
  return kDone;
}

}  // namespace

void AddBorder(CLI::App& app, int& status) {
  auto options = std::make_shared<BorderOptions>();
  CLI::App* command = app.add_subcommand("border",
                                         "Border mask of a surface model: 200 on the walls of tall "
                                         "objects, at twice the cell size");
  command->add_option("--dsm", options->dsm, "surface model")
      ->required()
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--out", options->out, "mask to write (GeoTIFF)")
      ->required()
      ->check(Named())
      ->type_name("FILE");
  command
      ->add_option("--step", options->mask.stepM,
                   "steps of the surface above this are borders, in units of the heights")
      ->check(Between(0.001, 10000.0))
      ->type_name("M")
      ->capture_default_str();
  command->add_flag("--quiet", options->quiet, "no progress");
  command->footer("Example: tqtortho border --dsm dsm.tif --out WORK/tmp/ot/bordermsk.tif");
  command->callback([options, &status] { status = RunBorder(*options); });
}

}  // namespace tqtortho::app
