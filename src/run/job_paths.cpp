// SPDX-License-Identifier: Apache-2.0
#include "run/job_paths.h"

#include <filesystem>
#include <system_error>
#include <vector>

namespace tqtortho::host {
namespace {

std::string Absolute(const std::string& path) {
  return std::filesystem::absolute(path).lexically_normal().string();
}

bool IsUnfinished(const std::string& name) {
  const std::size_t mark = name.rfind(".tmp-");
  return name.front() == '.' && mark != std::string::npos &&
         name.find_first_not_of("0123456789-", mark + 5) == std::string::npos;
}

}  // namespace

void RemoveUnfinishedFiles(const std::string& directory) {
  namespace fs = std::filesystem;
  std::error_code failed, ignored;
  std::vector<fs::path> files;
  for (fs::recursive_directory_iterator it(directory, failed), end; !failed && it != end;
       it.increment(failed)) {
    if (IsUnfinished(it->path().filename().string()) && it->is_regular_file(ignored)) {
      files.push_back(it->path());
    }
  }
  for (const auto& file : files) fs::remove(file, ignored);
}

JobPaths MakePaths(const RunOptions& options) {
  JobPaths p;
  p.out = Absolute(options.outDir);
  p.work = Absolute(options.workDir.empty() ? options.outDir + "/work" : options.workDir);
  p.data = p.work;
  p.tmp = p.work + "/tmp";
  p.dsm = p.work + "/dsm.tif";
  p.origin = p.work + "/dsm_origin.tif";
  p.border = p.tmp + "/ot/bordermsk.tif";
  p.cameras = p.work + "/cameras.txt";
  p.photos = p.work + "/photos.txt";
  p.staged = p.work + "/photos";
  p.ortho = p.out + "/ortho/";
  p.plan = p.data + "/ortho_data/orParam_plan.txt";
  return p;
}

}  // namespace tqtortho::host
