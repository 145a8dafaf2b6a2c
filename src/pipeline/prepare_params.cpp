// SPDX-License-Identifier: Apache-2.0
#include <omp.h>

#include <cstdio>
#include <string>

#include "internal/safe_file.h"
#include "pipeline/block_plan.h"
#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "tqfd/PathHelper.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

namespace {

std::string Text(const char* text) { return text == nullptr ? std::string() : std::string(text); }

int GroupSizeOf(const std::vector<tqorkit::tqPhotoCategory>& photoBlocks) {
  std::size_t photoCount = 0;
  for (const auto& block : photoBlocks) photoCount += block.GetPhotos().size();
  return GroupSize(static_cast<int>(photoCount), omp_get_max_threads());
}

}  // namespace

// Written beside and renamed, so that a job killed here leaves the former file or none.
bool tqTORectify::PrepareParams(const char* path,
                                std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                                std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                                double* heightPair,
                                std::vector<tqfd::Point2_T<double>>* /*areaPolygon*/,
                                int rectifyOption, const char* outputDir, double scale,
                                int& blockCount, bool flagA, bool flagB) {
  blockCount = 0;
  if (path == nullptr || photoBlocks == nullptr || cameras == nullptr || heightPair == nullptr) {
    return false;
  }
  return Guarded([&] {
    const std::string finalPath = path;
    const std::string partPath = finalPath + ".part";
    std::FILE* file = std::fopen(partPath.c_str(), "w");
    if (file == nullptr) return false;
    const ParamHeader header{
        rectifyOption, scale,          flagA ? 1 : 0, flagB, {heightPair[0], heightPair[1]},
        Text(dsmPath), Text(outputDir)};
    const int written =
        WriteParamFile(file, header, *cameras, *photoBlocks, GroupSizeOf(*photoBlocks));
    const bool complete = std::ferror(file) == 0;
    if (std::fclose(file) != 0 || !complete) {
      tqfd::PathHelper::RemoveFile(partPath);
      return false;
    }
    if (!PublishFile(partPath, finalPath)) return false;
    blockCount = written;
    return true;
  });
}

bool tqTORectify::UpdateParams(const char* path, std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                               std::map<int, tqorkit::tqIntOri>* cameras, const char* dsmPath,
                               double* heightPair, std::vector<tqfd::Point2_T<double>>* areaPolygon,
                               int rectifyOption, const char* outputDir, double scale,
                               int& blockCount, bool flagA, bool flagB) {
  return PrepareParams(path, photoBlocks, cameras, dsmPath, heightPair, areaPolygon, rectifyOption,
                       outputDir, scale, blockCount, flagA, flagB);
}

}  // namespace tqtortho
