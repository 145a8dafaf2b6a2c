// SPDX-License-Identifier: Apache-2.0
#include "tqtortho/tqTORProc.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "core/limits.h"
#include "pipeline/block_plan.h"
#include "pipeline/job_inputs.h"
#include "rectify/sidecar.h"
#include "stage/call_guard.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "stage/photo_records.h"
#include "tqfd/FileInput.h"
#include "tqfd/PathHelper.h"
#include "tqfd/Timer.h"
#include "tqraster/tqSelectWgt.h"
#include "tqtortho/tqTORectify.h"

namespace tqtortho {

namespace {

bool Fail(std::string_view text) {
  LogMessage(text);
  return false;
}

std::string TimingSummary(const tqfd::Timer& rectification, const tqfd::Timer& imageUpdate,
                          const tqfd::Timer& mosaicMasks) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << message::kRectifySeconds << rectification.ElapsedSeconds() << "\n"
       << message::kUpdateSeconds << imageUpdate.ElapsedSeconds() << "\n"
       << message::kMosaicSeconds << mosaicMasks.ElapsedSeconds();
  return text.str();
}

std::string SidecarName(const std::string& outputDir, const tqorkit::tqExtOri& photo) {
  const std::string ortho = OrthoName(outputDir, photo.GetPhotoName(), photo.GetImgBlkId());
  return ortho.empty() ? std::string() : OrthoSidecarName(ortho);
}

// First to last cell centre of the photo's ortho image, as its sidecar tells; (0, 0, 0, 0) without
// a sidecar, that is for a photo that failed.
tqfd::Rect2_T<double> OrthoFootprint(const std::string& outputDir, const tqorkit::tqExtOri& photo) {
  Sidecar s{};
  const std::string name = SidecarName(outputDir, photo);
  if (!name.empty()) (void)ReadSidecar(name, s);
  tqfd::Rect2_T<double> rect;
  rect.minX = s.c + 0.5 * s.a;
  rect.maxY = s.f + 0.5 * s.e;
  rect.maxX = (s.cols - 1.0) * s.a + rect.minX;
  rect.minY = (s.rows - 1.0) * s.e + rect.maxY;
  return rect;
}

}  // namespace

// Kept: a host's later output to std::cout shows 20 digits from here on.
tqTORProc::tqTORProc() { std::cout.precision(20); }

tqTORProc::~tqTORProc() = default;

bool tqTORProc::TrueOrthoPhotoProc(const char* dsmPath, const char* cameraFile,
                                   const char* photoListFile, double* heightPair,
                                   const char* outputDir,
                                   std::vector<tqfd::Point2_T<double>>* areaPolygon,
                                   int rectifyOption, bool flagA, bool flagB,
                                   tqfd::ProgressCallback progress, void* user) {
  return Guarded([&] {
    tqfd::Timer rectification;
    tqfd::Timer imageUpdate;  // Kept: the update is a call of its own, so its line says 0
    tqfd::Timer mosaicMasks;
    rectification.Start();
    if (!OrthoRectiProc(dsmPath, cameraFile, photoListFile, heightPair, outputDir, areaPolygon,
                        rectifyOption, flagA, flagB, progress, user)) {
      return false;
    }
    rectification.Stop();
    TqRaster::tqSelectWgt::GenerateDisLookUpTab();
    mosaicMasks.Start();
    if (!MosaicMskProc(progress, user)) return false;
    mosaicMasks.Stop();
    LogMessage(TimingSummary(rectification, imageUpdate, mosaicMasks));
    return true;
  });
}

bool tqTORProc::OrthoRectiProc(const char* dsmPath, const char* cameraFile,
                               const char* photoListFile, double* heightPair, const char* outputDir,
                               std::vector<tqfd::Point2_T<double>>* areaPolygon, int rectifyOption,
                               bool flagA, bool flagB, tqfd::ProgressCallback progress,
                               void* user) {
  return Guarded([&] {
    double dispatchPair[2] = {0, 0};
    if (heightPair != nullptr) {
      dispatchPair[0] = heightPair[0];
      dispatchPair[1] = heightPair[1];
    }
    // An input that cannot be opened adds nothing; the estimation then has no photo to serve.
    if (cameraFile != nullptr) {
      std::ifstream file = tqfd::OpenInputFile(cameraFile, limits::kListBytes);
      ReadCameras(file, cameras);
    }
    if (photoListFile != nullptr) {
      std::ifstream file = tqfd::OpenInputFile(photoListFile, limits::kListBytes);
      ReadPhotoList(file, dispatchPair[0], photoBlocks);
    }
    const std::string paramPath = ParamFilePath();

    tqTORectify rectify;
    int width = 0;
    int height = 0;
    if (!rectify.OrthoRectifyEstSize(&photoBlocks, &cameras, dsmPath, heightPair, areaPolygon,
                                     rectifyOption, outputDir, width, height, flagB,
                                     photoNeighbours, extentPoints, progress, user)) {
      return Fail(message::kExtentError);
    }

    const double scale = ReductionScale(width, height, flagB);
    int blockCount = 0;
    const auto writeParams = [&] {
      return rectify.UpdateParams(paramPath.c_str(), &photoBlocks, &cameras, dsmPath, heightPair,
                                  areaPolygon, rectifyOption, outputDir, scale, blockCount, flagA,
                                  flagB);
    };
    tqfd::PathHelper::MakeParentDirectory(paramPath);
    if (!writeParams()) return Fail(message::kParamFileError);

    // A photo of an unknown camera is in no work block; a sidecar that an earlier job left for it
    // must not pass for a footprint of this one.
    const std::string prefix = outputDir == nullptr ? "" : outputDir;
    PhotoRecords* const records = InstalledPhotoRecords();
    for (const auto& block : photoBlocks) {
      for (const auto& photo : block.GetPhotos()) {
        const std::string ortho = OrthoName(prefix, photo.GetPhotoName(), photo.GetImgBlkId());
        if (ortho.empty() || (records != nullptr && records->IsFinished(ortho))) continue;
        tqfd::PathHelper::RemoveFile(OrthoSidecarName(ortho));
      }
    }
    if (!rectify.ShellOrthoRectify(&photoBlocks, &cameras, dsmPath, dispatchPair, areaPolygon,
                                   rectifyOption, outputDir, blockCount, flagA, flagB, progress,
                                   user)) {
      return Fail(message::kRectifyError);
    }

    for (auto& block : photoBlocks) {
      for (auto& photo : block.GetPhotos()) photo.GetGeoRect() = OrthoFootprint(prefix, photo);
    }
    return writeParams() || Fail(message::kParamFileError);
  });
}

}  // namespace tqtortho
