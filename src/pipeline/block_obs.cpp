// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "pipeline/param_file.h"
#include "stage/call_guard.h"
#include "stage/photo_files.h"
#include "tqorkit/tqMapSpotSimpler.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {

namespace {

constexpr int kThumbnailSize = 300;  // cells on the longer side

tqorkit::tqPhotoCategory PhotosToTrace(const ParamBlock& block, double gsd) {
  tqorkit::tqPhotoCategory category;
  category.SetBlkPath(block.path);
  for (tqorkit::tqExtOri::EXTORI record : block.photos) {
    record.heightPair[0] = gsd;
    record.heightPair[1] = -gsd;
    tqorkit::tqExtOri photo;
    photo.Set(record);
    category.InsertPhoto(photo);
  }
  return category;
}

/// Kept: names are made of the whole photo name, extension inside and no block number, unlike those
/// of a job. Quick masks so never replace a job's own, but photos of one name in two blocks share
/// a file.
bool TracePhoto(tqorkit::tqExtOri& photo, const ParamHeader& header) {
  const std::string ortho = header.outputDir + photo.GetPhotoName();
  const std::string mask = ObscuredMaskName(ortho);
  tqRayTracer tracer;
  // Where the tracer refuses it leaves no mask, and then there is no thumbnail either.
  (void)tracer.DoRayTracingOnThumbnail(photo, header.dsmPath, mask, OwnershipMaskName(ortho));
  tqorkit::tqMapSpotSimpler thumbnails;
  return thumbnails.DoMapSpotSimpling(mask, kThumbnailSize);
}

}  // namespace

bool tqTORProc::BlockObs(const char* paramPath, int blockNumber) {
  return Guarded([&] {
    ParamHeader header;
    ParamBlock block;
    if (!ReadWorkBlock(paramPath, blockNumber, header, block)) return false;

    tqorkit::tqPhotoCategory category = PhotosToTrace(block, header.heightPair[0]);
    for (auto& photo : category.GetPhotos()) {
      (void)Guarded([&] { return TracePhoto(photo, header); });
    }
    return true;
  });
}

}  // namespace tqtortho
