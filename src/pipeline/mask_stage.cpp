// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "internal/safe_file.h"
#include "pipeline/mosaic_masks.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/progress.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqraster/tqRasterTorMsk.h"
#include "tqraster/tqSelectWgt.h"
#include "tqtortho/tqRayTracer.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho {

namespace {

using tqfd::PathHelper;
using tqimage::TqImage;
using tqorkit::PhotoInfo;
using tqorkit::tqExtOri;

constexpr int kNadirPower = 2;
constexpr int kLeastWeight = 0;

int PhotoCount(const std::vector<tqorkit::tqPhotoCategory>& blocks) {
  std::size_t count = 0;
  for (const auto& block : blocks) count += block.GetPhotos().size();
  return static_cast<int>(count);
}

/// Traces into a file beside the mask and renames it: a trace that fails leaves the mask of the
/// rectification, which is better than none.
bool RetraceMask(tqExtOri& photo, const std::string& dsmPath, const std::string& orthoDir) {
  const std::string ortho = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
  if (ortho.empty()) return false;
  const std::string mask = ObscuredMaskName(ortho);
  const std::string fresh = mask + ".new";
  tqRayTracer tracer;
  if (!tracer.DoRayTracingOnPyr(photo, dsmPath, fresh, OwnershipMaskName(ortho))) {
    PathHelper::RemoveFile(fresh);
    return false;
  }
  return PublishFile(fresh, mask);
}

/// Marks the cells without ortho data as not shown, and returns how many cells have data.
///
/// The photo's valid mask tells them. A mask of another size is not that: the update passes put an
/// ownership mask, one cell larger, in its place. Without a valid mask all cells count as data.
std::size_t HideCellsWithoutData(const std::string& ortho, PhotoInfo& mask) {
  PhotoInfo valid;
  if (!TqImage::QuickReadImage(OwnershipMaskName(ortho), valid, nullptr) ||
      valid.width != mask.width || valid.height != mask.height || valid.bands != 1 ||
      valid.data.size() != mask.data.size()) {
    return mask.data.size();
  }
  std::size_t count = 0;
  for (std::size_t i = 0; i < valid.data.size(); ++i) {
    if (valid.data[i] == 0) {
      mask.data[i] = 255;
    } else {
      ++count;
    }
  }
  return count;
}

/// Height of the ground below a photo, from its scale: the area that the ortho shows, over the
/// pixels of the photo, is the ground size of a pixel, and the focal length makes it a flying
/// height. Exact over level ground seen straight down and shown whole; a photo cut at the edge of
/// the DSM gives too high a ground, an oblique one too low. Only the nadir weight rests on it. NaN
/// when the camera cannot tell.
double GroundHeight(const tqExtOri& photo, const tqorkit::tqIntOri& camera, double shownArea) {
  const auto& lens = camera.Get();
  const double focalPixels = lens.focalLength / lens.pixelSize;
  const double pixelArea = shownArea / (lens.imageWidth * lens.imageHeight);
  const double flyingHeight = std::abs(focalPixels) * std::sqrt(pixelArea);
  double pose[6] = {};
  photo.GetPos(pose);
  return flyingHeight > 0 ? pose[2] - flyingHeight : std::numeric_limits<double>::quiet_NaN();
}

/// True once the photo's occlusion mask could be read, whatever became of the weights.
bool WeighPhoto(tqExtOri& photo, const std::map<int, tqorkit::tqIntOri>& cameras,
                const std::string& orthoDir) {
  const std::string ortho = OrthoName(orthoDir, photo.GetPhotoName(), photo.GetImgBlkId());
  if (ortho.empty()) return false;
  const std::string weightName = WeightMaskName(ortho);
  PathHelper::RemoveFile(weightName);
  TqRaster::tqSelectWgt weights;
  PhotoInfo mask;
  tqimage::GeoCoefficients geo;
  if (!TqImage::QuickReadImage(ObscuredMaskName(ortho), mask, &geo, 0, nullptr)) return false;
  (void)Guarded([&] {
    if (mask.bands != 1 || mask.dataType != tqimage::kByte) return false;
    const auto shown = static_cast<double>(HideCellsWithoutData(ortho, mask));
    const auto camera = cameras.find(photo.GetCameraId());
    mask.defaultZ = camera == cameras.end() ? std::numeric_limits<double>::quiet_NaN()
                                            : GroundHeight(photo, camera->second,
                                                           shown * std::abs(mask.resX * mask.resY));
    PhotoInfo weight;
    return weights.CombinedWeight(photo, mask, weight, kNadirPower, kLeastWeight) &&
           TqImage::QuickWriteImage(weightName, weight, &geo, true);
  });
  return true;
}

}  // namespace

bool tqTORProc::MosaicMskProc(tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    if (!TqRaster::tqRasterTorMsk::HasMaker()) {
      TqRaster::tqRasterTorMsk::SetMaker(&MakeMosaicMasks);
    }
    TqRaster::tqRasterTorMsk masks;
    return masks.DoMosaicMskByBlock(photoBlocks, progress, user);
  });
}

// Kept: true whatever happens, also after a stop; only the callback knows that it asked for one.
bool tqTORProc::ObscuredMskProc(std::string dsmPath, std::string orthoDir,
                                tqfd::ProgressCallback progress, void* user) {
  (void)Guarded([&] {
    StageProgress stage(PhotoCount(photoBlocks), message::kObscuring, progress, user);
    for (auto& block : photoBlocks) {
      auto& photos = block.GetPhotos();
      const int count = static_cast<int>(photos.size());
#pragma omp parallel for schedule(static)
      for (int i = 0; i < count; ++i) {
        if (stage.Stopped()) continue;
        (void)Guarded(
            [&] { return RetraceMask(photos[static_cast<std::size_t>(i)], dsmPath, orthoDir); });
        stage.FinishOne();
      }
    }
    return true;
  });
  return true;
}

bool tqTORProc::WeightMskProc(std::string orthoDir, std::string /*ignored*/,
                              tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    const int total = PhotoCount(photoBlocks);
    if (total < 1) return false;
    StageProgress stage(total, message::kWeighting, progress, user);
    TqRaster::tqSelectWgt::GenerateDisLookUpTab();
    for (auto& block : photoBlocks) {
      auto& photos = block.GetPhotos();
      const int count = static_cast<int>(photos.size());
#pragma omp parallel for schedule(static)
      for (int i = 0; i < count; ++i) {
        if (stage.Stopped()) continue;
        // Kept: a photo without a readable mask is not reported, so the last percentage stays
        // below 100 and tells that something is missing.
        if (Guarded([&] {
              return WeighPhoto(photos[static_cast<std::size_t>(i)], cameras, orthoDir);
            })) {
          stage.FinishOne();
        }
      }
      if (stage.Stopped()) break;
    }
    return !stage.Stopped();
  });
}

}  // namespace tqtortho
