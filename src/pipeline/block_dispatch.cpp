// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

namespace {

tqorkit::tqPhotoCategory PhotosOf(const ParamBlock& block) {
  tqorkit::tqPhotoCategory category;
  category.SetBlkPath(block.path);
  for (const auto& record : block.photos) {
    tqorkit::tqExtOri photo;
    photo.Set(record);
    category.InsertPhoto(photo);
  }
  return category;
}

}  // namespace

bool tqTORectify::BlockOR(const char* paramPath, int blockNumber) {
  return Guarded([&] {
    ParamHeader header;
    ParamBlock block;
    if (!ReadWorkBlock(paramPath, blockNumber, header, block)) return false;

    std::map<int, tqorkit::tqIntOri> cameras;
    cameras[block.camera.cameraId].Set(block.camera);
    std::vector<tqorkit::tqPhotoCategory> photoBlocks{PhotosOf(block)};
    // A block whose photos fail has logged them; the job goes on with the others. No progress: the
    // dispatch reports whole blocks.
    (void)Guarded([&] {
      return OrthoRectifyImagery(&photoBlocks, &cameras, header.dsmPath.c_str(), header.heightPair,
                                 nullptr, header.rectifyOption, header.scale, header.flagA,
                                 header.outputDir.c_str(), header.flagB, nullptr, nullptr);
    });
    return true;
  });
}

// Workers get nothing but the file's path and a number, so blocks share no state, and the same loop
// could be spread over processes.
bool tqTORectify::ShellOrthoRectify(std::vector<tqorkit::tqPhotoCategory>* /*photoBlocks*/,
                                    std::map<int, tqorkit::tqIntOri>* /*cameras*/,
                                    const char* /*dsmPath*/, double* /*heightPair*/,
                                    std::vector<tqfd::Point2_T<double>>* /*areaPolygon*/,
                                    int /*rectifyOption*/, const char* /*outputDir*/,
                                    int blockCount, bool /*flagA*/, bool /*flagB*/,
                                    tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    const std::string path = ParamFilePath();
    StageProgress stage(blockCount, message::kRectifying, progress, user);
#pragma omp parallel for schedule(static)
    for (int i = 0; i < blockCount; ++i) {
      if (stage.Stopped()) continue;
      // A block that cannot be read or rectified still counts as done.
      (void)Guarded([&] { return tqTORectify().BlockOR(path.c_str(), i + 1); });
      stage.FinishOne();
    }
    return !stage.Stopped();
  });
}

}  // namespace tqtortho
