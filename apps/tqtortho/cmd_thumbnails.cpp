// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>

#include "commands.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho::app {
namespace {

struct ThumbnailOptions {
  std::string param;
  int number = 1;
  std::string tmp;
};

int RunThumbnails(const ThumbnailOptions& options) {
  if (!std::filesystem::is_regular_file(options.param)) {
    return Fail(kBadInput, options.param +
                               ": no such parameter file; a job leaves it at "
                               "WORK/ortho_data/orParam.txt");
  }
  if (!options.tmp.empty()) tqorkit::TqFSManager::SetOutputTmpFilePath(options.tmp);
  tqTORProc job;
  if (!job.BlockObs(options.param.c_str(), options.number)) {
    return Fail(kFailed, options.param + ": block " + std::to_string(options.number) +
                             " is not in it, or its scale (second line) is below 1");
  }
  return kDone;
}

}  // namespace

void AddThumbnails(CLI::App& app, int& status) {
  auto options = std::make_shared<ThumbnailOptions>();
  CLI::App* command = app.add_subcommand(
      "thumbnails", "Quick occlusion masks of one work block, with a thumbnail of each");
  command->add_option("--param", options->param, "parameter file of the job")
      ->required()
      ->type_name("FILE");
  command->add_option("--number", options->number, "block number, from 1")
      ->required()
      ->check(CLI::Range(1, 100000000));
  command->add_option("--tmp", options->tmp, "the job's temporary directory (WORK/tmp)")
      ->type_name("DIR");
  command->footer(
      "Masks appear beside the ortho images as PHOTO_obs.tif, thumbnails as "
      "PHOTO_obs.tif_thumb.png.\n"
      "Example: tqtortho thumbnails --param WORK/ortho_data/orParam.txt --number 3");
  command->callback([options, &status] { status = RunThumbnails(*options); });
}

}  // namespace tqtortho::app
