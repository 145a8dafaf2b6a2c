// SPDX-License-Identifier: Apache-2.0
// One block of photos: a tile of the surface for all of them, then photo by photo the order of
// steps.
#include <cmath>
#include <utility>

#include "core/numeric.h"
#include "core/stop_flag.h"
#include "rectify/border_weights.h"
#include "rectify/dsm_tile.h"
#include "rectify/photo_outputs.h"
#include "rectify/sidecar.h"
#include "rectify/weighted_median.h"
#include "stage/call_guard.h"
#include "stage/mask_maker.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/photo_records.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {
namespace {

using tqimage::TqImage;

/// The photo, 8 bits per sample. A sizing run needs its size only and does not decode it.
bool ReadPhoto(const std::string& path, bool sizeOnly, tqorkit::PhotoInfo& photo) {
  if (!sizeOnly) {
    return TqImage::QuickReadImage(path, photo, nullptr) && photo.dataType == tqimage::kByte;
  }
  TqImage image;
  if (!image.Open(path, true) || image.GetDataType() != tqimage::kByte) return false;
  photo.width = image.GetWidth();
  photo.height = image.GetHeight();
  photo.bands = image.GetBandCount();
  photo.dataType = tqimage::kByte;
  return true;
}

bool IsFinished(const std::string& orthoName) {
  PhotoRecords* const records = InstalledPhotoRecords();
  return records != nullptr && !orthoName.empty() && records->IsFinished(orthoName);
}

/// Whether a host has every photo of the blocks from an earlier run; their surface is not read
/// then.
bool AllFinished(std::vector<tqorkit::tqPhotoCategory>& blocks, const std::string& outputDir) {
  if (InstalledPhotoRecords() == nullptr) return false;
  for (auto& block : blocks) {
    for (const auto& photo : block.GetPhotos()) {
      if (!IsFinished(OrthoName(outputDir, photo.GetPhotoName(), photo.GetImgBlkId()))) {
        return false;
      }
    }
  }
  return true;
}

/// Neither of the two lengths that the camera model divides by may vanish.
bool IsUsable(const tqorkit::tqIntOri& camera) {
  const auto& record = camera.Get();
  return std::isfinite(record.focalLength) && record.focalLength != 0 &&
         std::isfinite(record.pixelSize) && record.pixelSize != 0;
}

/// First to last cell centre and cell size of the ortho: the grid of the photo's ray-traced mask.
void SetOrthoGrid(const tqorkit::PhotoInfo& ortho, tqorkit::tqExtOri& photo) {
  const double left = ortho.geoRect[0];
  const double top = ortho.geoRect[3];
  photo.SetGeoRect(
      {left, top + (ortho.height - 1) * ortho.resY, left + (ortho.width - 1) * ortho.resX, top});
  photo.SetGSD(ortho.resX, -ortho.resX);
}

/// Writes the files that follow from the ortho alone: itself, its ownership mask, its sidecar.
bool WriteOrtho(const std::string& orthoName, const tqorkit::PhotoInfo& ortho,
                const std::string& projection) {
  const auto coefficients = GeoreferenceOf(ortho, projection);
  return WriteOrthoImage(orthoName, ortho, coefficients) &&
         WriteOwnershipMask(orthoName, ortho, coefficients);
}

/// Writes the z-buffer's mask. One that cannot be written is simply missing (an older one is gone),
/// and later passes leave the photo alone.
void WriteZBufferMask(const std::string& name, const tqorkit::PhotoInfo& ortho,
                      const std::vector<std::uint8_t>& mask, const std::string& projection) {
  const GridView<const std::uint8_t> cells(mask.data(), ortho.height, ortho.width);
  if (mask.size() != cells.CellCount()) return;
  const auto coefficients = GeoreferenceOf(ortho, projection);
  (void)tqorkit::TqFSManager::SaveImageFile(cells.cells, cells.cols, cells.rows, 1, name, true,
                                            &coefficients);
}

}  // namespace

/// What one block call hands to each of its photos.
struct tqTORectify::BlockJob {
  std::string dsmPath;
  std::map<int, tqorkit::tqIntOri>* cameras;
  double* parameters;  // ground resolution, start height
  std::vector<tqfd::Point2_T<double>>* areaPolygon;
  int rectifyOption;
  double scale;
  bool reducedCopy;
  std::string outputDir;
  bool sizing;
  tqfd::ProgressCallback progress;
  void* user;
  tqfd::Rect2_T<double> rect;
  DsmTile tile;
};

// The steps of one photo, in their order.
tqTORectify::PhotoOutcome tqTORectify::RectifyBlockPhoto(BlockJob& job,
                                                         const std::string& photoPath,
                                                         tqorkit::tqExtOri& photo,
                                                         const std::string& orthoName) {
  // Kept: an unknown camera is inserted as a default one; its photo fails.
  const tqorkit::tqIntOri& camera = (*job.cameras)[photo.GetCameraId()];
  tqorkit::PhotoInfo image;
  if (!IsUsable(camera) || !ReadPhoto(photoPath, job.sizing, image)) return PhotoOutcome::kNoOrtho;

  const bool production = !job.sizing;
  OcclusionMaskMaker* const maker = production ? InstalledOcclusionMaskMaker() : nullptr;
  const bool byRays = production && maker == nullptr && CheckTallBuilding(photo.GetGeoRect());
  const bool byDepth = production && maker == nullptr && !byRays;
  std::vector<std::uint8_t> zBufferMask;
  tqorkit::PhotoInfo ortho;
  if (!DoTORectfy(image, job.tile.record, camera, photo, job.rectifyOption, job.parameters,
                  job.areaPolygon, job.rect, ortho, job.sizing, byDepth ? &zBufferMask : nullptr,
                  job.progress, job.user) ||
      ortho.width <= 0 || ortho.height <= 0) {
    return PhotoOutcome::kNoOrtho;
  }
  image = {};  // not needed again, and what follows needs the room

  const std::string& projection = job.tile.projection;
  const std::string obscuredName = ObscuredMaskName(orthoName);
  if (!tqfd::PathHelper::MakeParentDirectory(orthoName)) return PhotoOutcome::kNotWritten;
  if (production) {
    tqorkit::PhotoInfo weights = MakeBorderWeights(ortho);
    (void)RefineTOR(ortho, weights);
    if (!WriteOrtho(orthoName, ortho, projection)) return PhotoOutcome::kNotWritten;
  }
  if (!WriteSidecar(OrthoSidecarName(orthoName), SidecarOf(ortho), SidecarLines::kEight)) {
    return PhotoOutcome::kNotWritten;
  }
  if (maker != nullptr) {
    SetOrthoGrid(ortho, photo);
    if (!maker->Make(camera, photo, job.dsmPath, ortho, GeoreferenceOf(ortho, projection),
                     obscuredName)) {
      return PhotoOutcome::kNotWritten;
    }
  } else if (production) {
    if (byRays) {
      SetOrthoGrid(ortho, photo);
      (void)tqRayTracer().DoRayTracingOnPyr(photo, job.dsmPath, obscuredName, orthoName);
    } else {
      WriteZBufferMask(obscuredName, ortho, zBufferMask, projection);
    }
    (void)AdjustOcclusion(obscuredName);
  }
  if (!WriteSidecar(ObscuredSidecarName(orthoName), SidecarOf(ortho), SidecarLines::kSix)) {
    return PhotoOutcome::kNotWritten;
  }
  if (production && job.reducedCopy) {
    if (!(job.scale >= 1.0) || std::isinf(job.scale)) return PhotoOutcome::kBadScale;
    if (!WriteReducedCopy(orthoName, job.outputDir, ortho, job.scale, projection)) {
      return PhotoOutcome::kNotWritten;
    }
  }
  return PhotoOutcome::kDone;
}

bool tqTORectify::OrthoRectifyImagery(std::vector<tqorkit::tqPhotoCategory>* photoBlocks,
                                      std::map<int, tqorkit::tqIntOri>* cameras,
                                      const char* dsmPath, double* heightPair,
                                      std::vector<tqfd::Point2_T<double>>* areaPolygon,
                                      int rectifyOption, double scale, int reducedCopy,
                                      const char* outputDir, bool flagB,
                                      tqfd::ProgressCallback progress, void* user) {
  if (photoBlocks == nullptr || cameras == nullptr || dsmPath == nullptr || heightPair == nullptr ||
      outputDir == nullptr) {
    return false;
  }
  return Guarded([&] {
    if (AllFinished(*photoBlocks, outputDir)) return true;
    BlockJob job{dsmPath,
                 cameras,
                 heightPair,
                 areaPolygon,
                 rectifyOption,
                 scale,
                 reducedCopy == 1,
                 outputDir,
                 flagB,
                 progress,
                 user,
                 BlockRectangle(*photoBlocks),
                 {}};
    auto tile = ReadDsmTile(dsmPath, job.rect);
    if (!tile) return false;
    job.tile = std::move(*tile);
    const HeightStatistics& heights = job.tile.statistics;
    if (std::fabs(heightPair[1]) < kResolutionTolerance && heights.count > 0) {
      heightPair[1] = heights.sum / static_cast<double>(heights.count);
    }
    for (auto& block : *photoBlocks) {
      for (auto& photo : block.GetPhotos()) {
        const std::string& photoName = photo.GetPhotoName();
        const std::string orthoName = OrthoName(job.outputDir, photoName, photo.GetImgBlkId());
        auto outcome = PhotoOutcome::kNoOrtho;
        if (IsFinished(orthoName)) continue;
        if (processStop.Raised()) return false;
        if (!orthoName.empty()) {
          RemoveOldOutputs(orthoName, job.outputDir);
          RemoveLeftovers(orthoName);
          // An exception (no memory, mostly) fails this photo only.
          (void)Guarded([&] {
            outcome =
                RectifyBlockPhoto(job, block.GetPhotoPath() + "/" + photoName, photo, orthoName);
            return true;
          });
        }
        if (processStop.Raised()) {
          // Any of its steps may have given up: nothing of it is to pass for a finished photo.
          if (!orthoName.empty()) RemoveOldOutputs(orthoName, job.outputDir);
          return false;
        }
        if (outcome == PhotoOutcome::kDone && InstalledPhotoRecords() != nullptr) {
          InstalledPhotoRecords()->Finish(orthoName);
        }
        if (outcome == PhotoOutcome::kBadScale) {
          LogMessage(message::kScaleAbnormal);
          return false;
        }
        if (outcome == PhotoOutcome::kNoOrtho) {
          LogMessage(std::string(message::kImageSizeAbnormal) + photoName);
        } else if (outcome == PhotoOutcome::kNotWritten) {
          LogMessage(std::string(message::kRectifyError) + photoName);
        }
      }
    }
    return true;
  });
}

bool tqTORectify::RefineTOR(tqorkit::PhotoInfo& ortho, tqorkit::PhotoInfo& weightMask) {
  // The mask lies on the ortho's lattice, so the ortho's cell size serves it.
  const double transform[6] = {weightMask.geoRect[0], ortho.resX, 0,
                               weightMask.geoRect[3], 0,          ortho.resY};
  const tqimage::GeoCoefficients coefficients(transform, weightMask.width, weightMask.height);
  const auto first = coefficients.World2Raster(ortho.geoRect[0], ortho.geoRect[3], -1, -1);
  BlendMedian({ortho.data.data(), ortho.height, ortho.width * ortho.bands}, ortho.bands,
              {weightMask.data.data(), weightMask.height, weightMask.width}, first.y, first.x);
  return true;
}

/// A hook for treating regions of an ortho image; there is no such treatment.
bool tqTORectify::RefineROI(tqorkit::PhotoInfo& /*ortho*/, tqorkit::PhotoInfo& /*mask*/) {
  return true;
}

}  // namespace tqtortho
