// SPDX-License-Identifier: Apache-2.0
//
// The input of the mosaic from a job's work directory.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "core/limits.h"
#include "mosaic/mosaic_stage.h"
#include "pipeline/job_inputs.h"
#include "pipeline/param_file.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

using tqorkit::tqExtOri;
using tqorkit::tqPhotoCategory;
using PhotoId = std::pair<int, std::string>;  // photo block, name

/// Photos of all work blocks, in the order of the parameter file.
struct ParamPhotos {
  std::vector<PhotoId> order;
  std::map<PhotoId, tqExtOri::EXTORI> photos;
  std::map<int, std::string> paths;
};

void ReadWorkBlocks(ParamFileReader& reader, ParamPhotos& all, MosaicInput& input) {
  for (int number = 1; reader.FindBlock(number); ++number) {
    ParamBlock block;
    reader.ReadBlock(block);
    auto camera = block.camera;
    tqorkit::tqIntOri interior;
    interior.Set(camera);
    input.cameras[camera.cameraId] = interior;
    for (const auto& photo : block.photos) {
      const PhotoId id{photo.imageBlockId, photo.photoName};
      if (all.photos.emplace(id, photo).second) all.order.push_back(id);
      all.paths[photo.imageBlockId] = block.path;
    }
  }
}

}  // namespace

bool LoadMosaicInput(const std::string& workDir, MosaicInput& input, std::string& error) {
  const std::string paramPath = workDir + "/ortho_data/orParam.txt";
  error = tqfd::FileFault(paramPath, limits::kListBytes);
  std::ifstream file = tqfd::OpenInputFile(paramPath, limits::kListBytes);
  if (!error.empty() || !file) {
    if (error.empty()) error = paramPath + ": cannot be read";
    error += "; --work must be the work directory of a finished run";
    return false;
  }
  ParamFileReader reader(file);
  ParamHeader header;
  if (!reader.ReadHeader(header)) {
    error = paramPath + ": is damaged (its scale is below 1); run the job again";
    return false;
  }
  input = {};
  input.orthoPrefix = header.outputDir;
  input.gsd = header.heightPair[0];
  ParamPhotos all;
  ReadWorkBlocks(reader, all, input);
  if (all.order.empty()) {
    error = paramPath + ": holds no photos; run the job again";
    return false;
  }
  for (const PhotoId& id : all.order) {
    const std::filesystem::path name(id.second);
    if (std::find(name.begin(), name.end(), "..") == name.end()) continue;
    error = paramPath + ": photo " + id.second + " leads out of its folder; run the job again";
    return false;
  }
  // Work blocks go camera by camera; numbers follow the list.
  std::vector<tqPhotoCategory> listed;
  std::ifstream list = tqfd::OpenInputFile(workDir + "/photos.txt", limits::kListBytes);
  if (list) ReadPhotoList(list, input.gsd, listed);
  if (listed.empty()) {
    for (const PhotoId& id : all.order) {
      if (id.first < 0 || id.first > 1'000'000) continue;
      if (listed.size() <= static_cast<std::size_t>(id.first)) listed.resize(id.first + 1);
      tqExtOri photo;
      photo.Set(all.photos[id]);
      listed[id.first].InsertPhoto(photo);
    }
  }
  for (std::size_t b = 0; b < listed.size(); ++b) {
    const auto path = all.paths.find(static_cast<int>(b));
    if (path != all.paths.end()) listed[b].SetBlkPath(path->second);
    for (tqExtOri& photo : listed[b].GetPhotos()) {
      const auto known = all.photos.find({static_cast<int>(b), photo.GetPhotoName()});
      // A photo that no work block holds was never rectified; it keeps its number.
      if (known != all.photos.end()) photo.SetGeoRect(known->second.geoRect);
    }
  }
  input.blocks = std::move(listed);
  return true;
}

}  // namespace tqtortho::host
