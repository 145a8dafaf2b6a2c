// SPDX-License-Identifier: Apache-2.0
// A small host: runs a job on a sample town through the installed headers alone, and watches it.
#include <tqtortho/Version.h>
#include <tqtortho/tqRayTracer.h>
#include <tqtortho/tqTORProc.h>
#include <tqtortho/tqTORectify.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tqfd/Logger.h"
#include "tqfd/PathHelper.h"
#include "tqorkit/TqFSManager.h"
#include "tqraster/tqRasterTorMsk.h"

namespace {

int Watch(double percent, const char*, void* user) {
  *static_cast<double*>(user) = percent;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string town = argv[1];
  const std::string out = argv[2];
  tqfd::PathHelper::SetProgramDataDirectory(out);
  tqorkit::TqFSManager::SetOutputTmpFilePath(out + "/tmp");
  tqfd::PathHelper::MakeParentDirectory(out + "/ortho_data/orParam.txt");
  tqfd::PathHelper::MakeParentDirectory(out + "/ortho/x");

  // The list's block path is relative to the list; a host hands the library absolute ones.
  std::ifstream in(town + "/photos.txt");
  std::ofstream list(out + "/photos.txt");
  for (std::string line; std::getline(in, line);) {
    list << (line == "photos" ? town + "/photos" : line) << "\n";
  }
  list.close();

  double last = 0;
  double heightPair[2] = {0.2, 0.0};
  // A maker of masks of the host's own; the job hands it the photos once, with their footprints.
  std::size_t handed = 0;
  TqRaster::tqRasterTorMsk::SetMaker(
      [&](std::vector<tqorkit::tqPhotoCategory>& blocks, tqfd::ProgressCallback, void*) {
        for (const auto& photos : blocks) handed += photos.GetPhotos().size();
        return true;
      });
  tqtortho::tqTORProc job;
  const bool ok = job.TrueOrthoPhotoProc(
      (town + "/dsm.tif").c_str(), (town + "/cameras.txt").c_str(), (out + "/photos.txt").c_str(),
      heightPair, (out + "/ortho/").c_str(), nullptr, 1, false, false, &Watch, &last);

  TqRaster::tqRasterTorMsk::SetMaker(nullptr);

  // The same block once more by its number, as a job array would.
  tqtortho::tqTORectify rectify;
  const bool block = rectify.BlockOR((out + "/ortho_data/orParam.txt").c_str(), 1);
  const bool none = rectify.BlockOR((out + "/ortho_data/orParam.txt").c_str(), 9999);
  std::printf("%s job %d, last progress %.1f, block %d, missing block %d, handed %zu\n",
              TQTORTHO_VERSION, ok, last, block, none, handed);
  return ok && block && !none && handed == 2 && last > 99.9 ? 0 : 1;
}
