// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "commands.h"
#include "option_checks.h"
#include "progress_printer.h"
#include "score/score.h"
#include "town/sample_town.h"

namespace tqtortho::app {
namespace {

int Sample(const host::SampleOptions& options, bool quiet) {
  ProgressPrinter printer(ChooseProgressStyle(false, quiet));
  printer.BeginStage("sample town");
  std::string error;
  const bool ok = host::WriteSampleTown(options, error, [&](double share) {
    printer.Progress(100 * share);
    return !Interrupted();
  });
  if (Interrupted()) return Fail(kInterrupted, kInterruptedText);
  if (!ok) return Fail(kFailed, error);
  const std::string& d = options.outDir;
  std::printf(
      "\ntown in %s; run a job on it:\n  tqtortho run --dsm %s/dsm.tif --cameras "
      "%s/cameras.txt --photos %s/photos.txt --out %s/out\n",
      d.c_str(), d.c_str(), d.c_str(), d.c_str(), d.c_str());
  return kDone;
}

void PrintScore(const host::PhotoScore& s) {
  std::printf("%-16s %7.1f %13.3f %8d %7.3f %10.3f %7.3f\n", s.photo.c_str(), s.psnr,
              s.registration, s.patches, s.iou, s.precision, s.recall);
}

int Score(const std::string& truth, const std::string& orthos, const std::string& mosaic) {
  host::JobScore score;
  std::string error;
  if (!host::ScoreJob(truth, orthos, score, error)) return Fail(kBadInput, error);
  std::printf("%-16s %7s %13s %8s %7s %10s %7s\n", "photo", "PSNR dB", "shift (cells)", "patches",
              "IoU", "precision", "recall");
  for (const auto& photo : score.photos) PrintScore(photo);
  PrintScore(score.total);
  if (mosaic.empty()) return kDone;
  host::MosaicScore whole;
  if (!host::ScoreMosaic(truth, mosaic, whole, error)) return Fail(kBadInput, error);
  std::printf(
      "mosaic: PSNR %.1f dB, shift %.3f cells over %d patches, %.2f %% covered, %.3f %% of it "
      "facades\n",
      whole.psnr, whole.registration, whole.patches, 100 * whole.covered, 100 * whole.facades);
  return kDone;
}

}  // namespace

void AddSample(CLI::App& app, int& status) {
  struct Arguments {
    host::SampleOptions sample;
    bool quiet = false;
  };
  auto a = std::make_shared<Arguments>();
  CLI::App* command =
      app.add_subcommand("sample", "Make a synthetic town with exact truth: DSM, photos, lists");
  command->add_option("--out", a->sample.outDir, "directory to make")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  command->add_option("--seed", a->sample.seed, "same seed, same town")->capture_default_str();
  command->add_option("--size", a->sample.sizeM, "side of the town in metres")
      ->check(Between(20.0, 2000.0))
      ->capture_default_str();
  command->add_option("--photos", a->sample.photoCount, "number of photos")
      ->check(CLI::Range(1, 400))
      ->capture_default_str();
  command->add_option("--photo-gsd", a->sample.photoGsdM, "ground size of a photo pixel in metres")
      ->check(Between(0.02, 1.0))
      ->capture_default_str();
  command->add_option("--dsm-cell", a->sample.dsmCellM, "cell size of the DSM in metres")
      ->check(Between(0.05, 5.0))
      ->capture_default_str();
  command->add_option("--lens", a->sample.lensModel, "lens model of the photos: 0, 1 or 3")
      ->check(CLI::IsMember({0, 1, 3}))
      ->capture_default_str();
  command->add_option("--attitude", a->sample.attitudeDeg, "random tilt of the photos in degrees")
      ->check(Between(0.0, 15.0))
      ->capture_default_str();
  command->add_flag("--quiet", a->quiet, "no progress");
  command->callback([a, &status] { status = Sample(a->sample, a->quiet); });
}

void AddScore(CLI::App& app, int& status) {
  struct Arguments {
    std::string truth, orthos, mosaic;
  };
  auto a = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(
      "score", "Compare a job's ortho images and masks with the truth of a sample town");
  command->add_option("--truth", a->truth, "directory of the sample town")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  command->add_option("--orthos", a->orthos, "ortho directory of the job (OUT/ortho)")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  command->add_option("--mosaic", a->mosaic, "mosaic of the job (OUT/mosaic.tif)")
      ->check(Named())
      ->type_name("FILE");
  command->callback([a, &status] { status = Score(a->truth, a->orthos, a->mosaic); });
}

}  // namespace tqtortho::app
