// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/numeric.h"
#include "geo/Crs.h"
#include "host/import_assembly.h"
#include "rectify/camera_model.h"
#include "rectify/lens_distortion.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::testing {

struct RasterPoint {
  double col = 0;
  double row = 0;  ///< downward
};

/// A folder with what an import stands on beside the source's own files: a small DSM and photos.
class ImportFolder {
 public:
  void WriteDsm(const std::string& crs, double x, double y) const {
    tqorkit::PhotoInfo dsm = Raster(4, 4, tqimage::kFloat32, sizeof(float));
    const double transform[6] = {x, 1, 0, y, 0, -1};
    tqimage::GeoCoefficients place(transform, 4, 4);
    if (!crs.empty()) place.SetProjection(geo::CrsToWkt(crs));
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(File("dsm.tif"), dsm, &place, true));
  }
  void WritePhoto(const std::string& name, int width, int height) const {
    tqorkit::PhotoInfo photo = Raster(width, height, tqimage::kByte, 1);
    std::filesystem::create_directories(File("images"));
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(File("images/" + name), photo, nullptr, true));
  }
  [[nodiscard]] std::string File(const std::string& name) const { return dir.File(name); }
  [[nodiscard]] host::ImportRequest Request(const std::string& name) const {
    host::ImportRequest request;
    request.path = File(name);
    request.dsmPath = File("dsm.tif");
    return request;
  }

  TempDir dir;

 private:
  static tqorkit::PhotoInfo Raster(int width, int height, int type, std::size_t cell) {
    tqorkit::PhotoInfo raster;
    raster.width = width;
    raster.height = height;
    raster.bands = 1;
    raster.dataType = type;
    raster.data.assign(cell * static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                       0);
    return raster;
  }
};

/// The camera of a photo of a survey as rectification will have it.
inline std::optional<PhotoCamera> CameraOfPhoto(const host::Survey& survey,
                                                const std::string& photo) {
  for (const host::SurveyBlock& block : survey.blocks) {
    for (const host::SurveyPhoto& p : block.photos) {
      if (p.name != photo) continue;
      for (const host::SurveyCamera& c : survey.cameras) {
        if (c.id != p.cameraId) continue;
        const double unit = kLengthScale * c.sensorWidth / c.width;
        PhotoCamera out;
        out.centre = {p.x, p.y, p.z};
        RotationFromAngles(p.phi, p.omega, p.kappa, out.rotation);
        out.focal = kLengthScale * c.focalLength;
        out.offsetX = (c.principalX - 0.5 * c.width) * unit;
        out.offsetY = (c.principalY - 0.5 * c.height) * unit;
        out.pixelSize = unit;
        out.width = c.width;
        out.height = c.height;
        const double* k = c.coefficients;
        out.lens = {c.model, c.height, c.principalX, c.principalY, out.focal / unit,
                    unit,    k[0],     k[1],         k[2],         k[3],
                    k[4],    k[5],     k[6]};
        return out;
      }
    }
  }
  return std::nullopt;
}

/// Where rectification samples a photo for a ground point on the map.
inline RasterPoint SampledAt(const PhotoCamera& camera, double x, double y, double z) {
  const auto ideal = PixelFromImage(camera, ImageFromGround(camera, x, y, z));
  const auto at = RecordedFromIdeal(camera.lens, {NarrowToFloat(ideal.x), NarrowToFloat(ideal.y)});
  return {at.x, camera.height - at.y};
}

/// Whether rectification samples the photo for a ground point: the straight ray must pass the
/// camera's frame. (Far outside, the polynomials of any lens fold back into the photo.)
inline bool IsSeen(const PhotoCamera& camera, double x, double y, double z) {
  const auto at = PixelFromImage(camera, ImageFromGround(camera, x, y, z));
  return at.x >= 0 && at.y >= 0 && at.x <= camera.width && at.y <= camera.height;
}

struct PointPair {
  RasterPoint expected;        ///< by the source's own model
  double x = 0, y = 0, z = 0;  ///< on the map
};

/// The largest distance between the two ways over the points that fall into the raster, whose count
/// must be at least `fewest` for the answer to mean anything.
inline double LargestDistance(const PhotoCamera& camera, int width, int height,
                              const std::vector<PointPair>& points, int fewest) {
  double largest = 0;
  int inside = 0;
  for (const PointPair& p : points) {
    const RasterPoint& e = p.expected;
    if (!(e.col >= 0 && e.row >= 0 && e.col <= width - 1 && e.row <= height - 1)) continue;
    if (!IsSeen(camera, p.x, p.y, p.z)) continue;
    ++inside;
    const RasterPoint ours = SampledAt(camera, p.x, p.y, p.z);
    largest = std::max(largest, std::hypot(ours.col - e.col, ours.row - e.row));
  }
  EXPECT_GE(inside, fewest);
  return largest;
}

}  // namespace tqtortho::testing
