// SPDX-License-Identifier: Apache-2.0
#include "rectify/photo_outputs.h"

#include <algorithm>
#include <filesystem>

#include "internal/interleaved_writer.h"
#include "rectify/sidecar.h"
#include "stage/cv_bridge.h"
#include "stage/photo_files.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"

namespace tqtortho {

using tqfd::PathHelper;
using tqimage::TqImage;

void RemoveOldOutputs(const std::string& orthoName, const std::string& outputDir) {
  for (const std::string& name :
       {orthoName, ObscuredMaskName(orthoName), WeightMaskName(orthoName),
        OwnershipMaskName(orthoName), OwnershipMaskCopyName(orthoName), OrthoSidecarName(orthoName),
        ObscuredSidecarName(orthoName), ReducedCopyName(orthoName, outputDir)}) {
    PathHelper::RemoveFile(name);
  }
}

void RemoveLeftovers(const std::string& orthoName) {
  for (const std::string& name : {OrthoSidecarName(orthoName), ObscuredSidecarName(orthoName)}) {
    PathHelper::RemoveFile(UnfinishedSidecarName(name));
  }
}

tqimage::GeoCoefficients GeoreferenceOf(const tqorkit::PhotoInfo& ortho,
                                        const std::string& projection) {
  const double transform[6] = {ortho.geoRect[0], ortho.resX, 0, ortho.geoRect[3], 0, ortho.resY};
  tqimage::GeoCoefficients coefficients(transform, ortho.width, ortho.height);
  coefficients.SetProjection(projection);
  return coefficients;
}

void MarkData(GridView<const std::uint8_t> pixels, int bands, GridView<std::uint8_t> mask) {
  for (int row = 0; row < mask.rows; ++row) {
    const std::uint8_t* pixel = pixels.Row(row);
    std::uint8_t* cells = mask.Row(row);
    for (int col = 0; col < mask.cols; ++col, pixel += bands) {
      std::uint8_t any = 0;
      for (int band = 0; band < bands; ++band) any |= pixel[band];
      cells[col] = any != 0 ? 255 : 0;
    }
  }
}

bool WriteOrthoImage(const std::string& orthoName, const tqorkit::PhotoInfo& ortho,
                     const tqimage::GeoCoefficients& coefficients) {
  if (ortho.dataType > tqimage::kByte) {
    return TqImage::QuickWriteImage(orthoName, ortho, &coefficients, true);
  }
  tqimage::InterleavedRaster raster;
  raster.data = ortho.data.data();
  raster.width = ortho.width;
  raster.height = ortho.height;
  raster.bands = ortho.bands;
  raster.hasNoData = true;  // 0: sampling gives 1 to black pixels
  raster.description = "one photo on the surface model; 0 in all bands: no data";
  const auto cells = static_cast<std::size_t>(ortho.width) * static_cast<std::size_t>(ortho.height);
  return ortho.data.size() >= cells * static_cast<std::size_t>(ortho.bands) &&
         tqimage::WriteInterleaved(orthoName, raster, &coefficients, true);
}

bool WriteOwnershipMask(const std::string& orthoName, const tqorkit::PhotoInfo& ortho,
                        const tqimage::GeoCoefficients& coefficients) {
  std::vector<std::uint8_t> mask(static_cast<std::size_t>(ortho.width) * ortho.height);
  MarkData({ortho.data.data(), ortho.height, ortho.width * ortho.bands}, ortho.bands,
           {mask.data(), ortho.height, ortho.width});
  tqimage::InterleavedRaster raster;
  raster.data = mask.data();
  raster.width = ortho.width;
  raster.height = ortho.height;
  raster.bands = 1;
  raster.description = "255: the ortho image as rectified has data in this cell";
  const std::string name = OwnershipMaskName(orthoName);
  return tqimage::WriteInterleaved(name, raster, &coefficients, true) &&
         PathHelper::CopyFile2(name, OwnershipMaskCopyName(orthoName));
}

bool WriteReducedCopy(const std::string& orthoName, const std::string& outputDir,
                      const tqorkit::PhotoInfo& ortho, double scale,
                      const std::string& projection) {
  const std::string name = ReducedCopyName(orthoName, outputDir);
  if (!PathHelper::MakeParentDirectory(name)) return false;
  if (scale == 1.0) {
    const auto coefficients = GeoreferenceOf(ortho, projection);
    return TqImage::QuickWriteImage(name, ortho, &coefficients, true);
  }
  // The wrapped image is only read.
  const cv::Mat full(ortho.height, ortho.width, CV_8UC(ortho.bands),
                     const_cast<std::uint8_t*>(ortho.data.data()));
  cv::Mat reduced;
  const double factor = 1.0 / scale;
  if (cvRound(ortho.width * factor) >= 1 && cvRound(ortho.height * factor) >= 1) {
    cv::resize(full, reduced, cv::Size(), factor, factor, cv::INTER_NEAREST);
  } else {  // smaller than one cell in a direction: keep one
    const cv::Size size(std::max(1, cvRound(ortho.width * factor)),
                        std::max(1, cvRound(ortho.height * factor)));
    cv::resize(full, reduced, size, 0, 0, cv::INTER_NEAREST);
  }
  tqorkit::PhotoInfo copy;
  copy.width = reduced.cols;
  copy.height = reduced.rows;
  copy.bands = ortho.bands;
  copy.dataType = tqimage::kByte;
  copy.data.assign(reduced.datastart, reduced.dataend);
  copy.resX = ortho.resX * scale;
  copy.resY = ortho.resY * scale;
  copy.geoRect[0] = ortho.geoRect[0];
  copy.geoRect[3] = ortho.geoRect[3];
  const auto coefficients = GeoreferenceOf(copy, projection);
  return TqImage::QuickWriteImage(name, copy, &coefficients, true);
}

}  // namespace tqtortho
