// SPDX-License-Identifier: Apache-2.0
#include "rectify/photo_outputs.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqtortho/tqTORProc.h"
#include "update/mark_occluded.h"
#include "update/mosaic_grid.h"
#include "update/photo_rasters.h"

namespace tqtortho {

namespace {

/// False when a file of the photo cannot be read.
bool MarkPhoto(const std::string& orthoName) {
  tqorkit::PhotoInfo ortho;
  tqorkit::PhotoInfo mask;
  tqorkit::PhotoInfo hidden;
  tqimage::GeoCoefficients geo;
  if (orthoName.empty() || !ReadOrtho(orthoName, ortho, geo) ||
      !ReadMask(OwnershipMaskName(orthoName), mask) ||
      !ReadMask(ObscuredMaskName(orthoName), hidden)) {
    return false;
  }
  MarkOccluded(mask.data, mask.width, hidden.data, ortho.height, ortho.width, ortho.bands,
               ortho.data.data());
  // An image that cannot be written stays as it was; the photo counts as done like any other.
  (void)WriteOrthoImage(orthoName, ortho, geo);
  return true;
}

}  // namespace

bool tqTORProc::UpdateOrthoImagesMarkOcc(std::string /*ignored*/, std::string orthoDir,
                                         tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    const int total = CountPhotos(photoBlocks);
    if (total < 1) return false;
    StageProgress stage(total, message::kUpdating, progress, user, ProgressLock::kUpdateLoops);
    if (!PlaceMosaic(nullptr, nullptr)) return false;
    for (const PhotoRef ref : photoList) {
      const auto& photo =
          photoBlocks[static_cast<std::size_t>(ref.x)].GetPhotos()[static_cast<std::size_t>(ref.y)];
      const std::string name = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
      // Kept: a stop that the host asks for is noted and nothing more; half the photos marked and
      // half not would be worse than a few seconds of waiting.
      if (Guarded([&] { return MarkPhoto(name); })) stage.FinishOne();
    }
    return true;
  });
}

}  // namespace tqtortho
