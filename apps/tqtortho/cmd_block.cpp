// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "commands.h"
#include "core/limits.h"
#include "option_checks.h"
#include "pipeline/param_file.h"
#include "tqfd/FileInput.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORProc.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho::app {
namespace {

/// The work of one block of a parameter file; both kinds have the same arguments.
using BlockWork = bool (*)(const char* paramPath, int blockNumber);

bool Rectify(const char* paramPath, int blockNumber) {
  return tqTORectify().BlockOR(paramPath, blockNumber);
}

bool MakeThumbnails(const char* paramPath, int blockNumber) {
  return tqTORProc().BlockObs(paramPath, blockNumber);
}

struct BlockOptions {
  std::string param;
  int number = 1;
  std::string tmp;
};

int RunBlock(const BlockOptions& options, BlockWork work) {
  const std::string fault = tqfd::FileFault(options.param, limits::kListBytes);
  if (!fault.empty()) {
    return Fail(kBadInput, fault + "; a job leaves its parameter file in WORK/ortho_data");
  }
  ParamHeader header;
  ParamBlock block;
  std::ifstream file = tqfd::OpenInputFile(options.param, limits::kListBytes);
  ParamFileReader reader(file);
  if (!reader.ReadHeader(header) || !reader.FindBlock(1)) {
    return Fail(kBadInput, options.param +
                               ": is no parameter file of a job (without work blocks, or a scale "
                               "below 1 in its second line); run the job again");
  }
  if (ReadWorkBlock(options.param.c_str(), options.number, header, block)) {
    for (const auto& photo : block.photos) {
      // Products are named by the photo: below the output folder, never beside it.
      if (photo.photoName.find("..") == std::string::npos) continue;
      const std::filesystem::path name(photo.photoName);
      if (std::find(name.begin(), name.end(), "..") == name.end()) continue;
      return Fail(kBadInput, options.param + ": photo " + photo.photoName +
                                 " leads out of its folder; correct the file");
    }
  }
  if (!options.tmp.empty()) tqorkit::TqFSManager::SetOutputTmpFilePath(options.tmp);
  if (!work(options.param.c_str(), options.number)) {
    return Fail(kFailed,
                options.param + ": block " + std::to_string(options.number) + " is not in it");
  }
  return kDone;
}

void AddBlockCommand(CLI::App& app, int& status, const char* name, const char* description,
                     const char* footer, BlockWork work) {
  auto options = std::make_shared<BlockOptions>();
  CLI::App* command = app.add_subcommand(name, description);
  command->add_option("--param", options->param, "parameter file of the job")
      ->required()
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--number", options->number, "block number, from 1")
      ->required()
      ->check(CLI::Range(1, 100000000));
  command->add_option("--tmp", options->tmp, "the job's temporary directory (WORK/tmp)")
      ->check(Named())
      ->type_name("DIR");
  command->footer(footer);
  command->callback([options, &status, work] { status = RunBlock(*options, work); });
}

}  // namespace

void AddBlock(CLI::App& app, int& status) {
  AddBlockCommand(app, status, "block",
                  "Rectify one work block of a job's parameter file (for job arrays)",
                  "Example: tqtortho block --param WORK/ortho_data/orParam_plan.txt --number 3 "
                  "--tmp WORK/tmp",
                  &Rectify);
}

void AddThumbnails(CLI::App& app, int& status) {
  AddBlockCommand(app, status, "thumbnails",
                  "Quick occlusion masks of one work block, with a thumbnail of each",
                  "Masks appear beside the ortho images as PHOTO_obs.tif, thumbnails as "
                  "PHOTO_obs.tif_thumb.png.\n"
                  "Example: tqtortho thumbnails --param WORK/ortho_data/orParam.txt --number 3",
                  &MakeThumbnails);
}

}  // namespace tqtortho::app
