// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>

#include "commands.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho::app {
namespace {

struct BlockOptions {
  std::string param;
  int number = 1;
  std::string tmp;
};

int RunBlock(const BlockOptions& options) {
  if (!std::filesystem::is_regular_file(options.param)) {
    return Fail(kBadInput, options.param +
                               ": no such parameter file; a job leaves it at "
                               "WORK/ortho_data/orParam.txt");
  }
  if (!options.tmp.empty()) tqorkit::TqFSManager::SetOutputTmpFilePath(options.tmp);
  tqTORectify rectify;
  if (!rectify.BlockOR(options.param.c_str(), options.number)) {
    return Fail(kFailed, options.param + ": block " + std::to_string(options.number) +
                             " is not in it, or its scale (second line) is below 1");
  }
  return kDone;
}

}  // namespace

void AddBlock(CLI::App& app, int& status) {
  auto options = std::make_shared<BlockOptions>();
  CLI::App* command = app.add_subcommand(
      "block", "Rectify one work block of a job's parameter file (for job arrays)");
  command->add_option("--param", options->param, "parameter file of the job")
      ->required()
      ->type_name("FILE");
  command->add_option("--number", options->number, "block number, from 1")
      ->required()
      ->check(CLI::Range(1, 100000000));
  command->add_option("--tmp", options->tmp, "the job's temporary directory (WORK/tmp)")
      ->type_name("DIR");
  command->footer(
      "Example: tqtortho block --param WORK/ortho_data/orParam_plan.txt --number 3 --tmp "
      "WORK/tmp");
  command->callback([options, &status] { status = RunBlock(*options); });
}

}  // namespace tqtortho::app
