// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "camera/camera_model.h"
#include "camera/lens_distortion.h"
#include "core/numeric.h"
#include "geo/Crs.h"
#include "importers/import_assembly.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace tqtortho::testing {

struct RasterPoint {
  double col = 0;
  double row = 0;  ///< downward
};

/// A request's survey; a refusal fails the test.
template <typename Importer>
host::Survey Imported(Importer import, const host::ImportRequest& request) {
  std::string error;
  const std::optional<host::Survey> survey = import(request, error);
  EXPECT_TRUE(survey) << error;
  return survey.value_or(host::Survey());
}

/// What an import says: why it refuses, or "taken: " and the notes.
template <typename Importer>
std::string Said(Importer import, const host::ImportRequest& request) {
  std::string said;
  const std::optional<host::Survey> survey = import(request, said);
  if (survey) said = "taken: ";
  for (std::size_t i = 0; survey && i < survey->notes.size(); ++i) said += survey->notes[i] + "\n";
  return said;
}

/// `text` with `from` replaced where it first stands, which it must.
inline std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

/// A folder with what an import stands on beside the source's own files: a small DSM and photos.
class ImportFolder {
 public:
  void WriteDsm(const std::string& crs, double x, double y) const {
    const std::vector<float> level(4 * 4, 0.0F);
    const std::string map = crs.empty() ? "" : geo::CrsToWkt(crs);
    ASSERT_TRUE(WriteHeights(File("dsm.tif"), level.data(), 4, 4, {x, y, 1, map}));
  }
  void WritePhoto(const std::string& name, int width, int height) const {
    tqorkit::PhotoInfo photo;
    photo.width = width;
    photo.height = height;
    photo.bands = 1;
    photo.dataType = tqimage::kByte;
    photo.data.resize(static_cast<std::size_t>(width) * height);
    const std::string path = File("images/" + name);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(path, photo, nullptr, true));
  }
  void Remove(const std::string& name) const { std::filesystem::remove_all(File(name)); }
  [[nodiscard]] std::string File(const std::string& name) const { return dir.File(name); }
  [[nodiscard]] host::ImportRequest Request(const std::string& name) const {
    host::ImportRequest request;
    request.path = File(name);
    request.dsmPath = File("dsm.tif");
    return request;
  }

  TempDir dir;
};

inline double Through(const char* format, double value) {
  char text[400];
  std::snprintf(text, sizeof text, format, value);
  double back = 0;
  EXPECT_EQ(std::sscanf(text, "%lf", &back), 1);
  return back;
}

/// A photo as block workers get it: camera list, then every number through the parameter file's
/// text.
inline PhotoCamera AsWorkersSeeIt(const host::SurveyCamera& c, const host::SurveyPhoto& photo) {
  const auto text = [](double value) { return Through("%lf", value); };
  const double unit = c.sensorWidth / c.width, size = text(unit);
  const double x0 = text((c.principalX - 0.5 * c.width) * unit);
  const double y0 = text((c.principalY - 0.5 * c.height) * unit);
  PhotoCamera p;
  p.width = text(c.width);
  p.height = text(c.height);
  p.focal = kLengthScale * text(c.focalLength);
  p.pixelSize = kLengthScale * size;
  p.offsetX = kLengthScale * x0;
  p.offsetY = kLengthScale * y0;
  p.centre = {text(photo.x), text(photo.y), text(photo.z)};
  RotationFromAngles(text(photo.phi), text(photo.omega), text(photo.kappa), p.rotation);
  double k[7];
  for (int i = 0; i < 7; ++i) k[i] = Through("%e", c.coefficients[i]);
  p.lens = {c.model,
            p.height,
            p.width * 0.5 + x0 / size,
            p.height * 0.5 + y0 / size,
            p.focal / p.pixelSize,
            p.pixelSize,
            k[0],
            k[1],
            k[2],
            k[3],
            k[4],
            k[5],
            k[6]};
  return p;
}

/// The camera of a photo of a survey as rectification will have it.
inline PhotoCamera CameraOfPhoto(const host::Survey& survey, const std::string& photo) {
  for (const host::SurveyBlock& block : survey.blocks) {
    for (const host::SurveyPhoto& p : block.photos) {
      if (p.name != photo) continue;
      for (const host::SurveyCamera& c : survey.cameras) {
        if (c.id == p.cameraId) return AsWorkersSeeIt(c, p);
      }
    }
  }
  ADD_FAILURE() << photo << " is not in the survey";
  return {};
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
  const double slack = 0.001;
  return std::min(at.x, at.y) >= -slack && at.x <= camera.width + slack &&
         at.y <= camera.height + slack;
}

struct PointPair {
  RasterPoint expected;        ///< by the source's own model
  double x = 0, y = 0, z = 0;  ///< on the map
};

/// How far apart the two ways are over the points that fall into the raster.
struct Agreement {
  double largest = 0, rms = 0;
  int count = 0;
  double right = 0;  ///< largest column
};

inline Agreement Compare(const PhotoCamera& camera, int width, int height,
                         const std::vector<PointPair>& points) {
  Agreement a;
  double sum = 0;
  for (const PointPair& p : points) {
    const RasterPoint& e = p.expected;
    if (!(e.col >= 0 && e.row >= 0 && e.col <= width - 1 && e.row <= height - 1)) continue;
    if (!IsSeen(camera, p.x, p.y, p.z)) continue;
    const RasterPoint ours = SampledAt(camera, p.x, p.y, p.z);
    const double off = std::hypot(ours.col - e.col, ours.row - e.row);
    a.largest = std::max(a.largest, off);
    a.right = std::max(a.right, e.col);
    sum += off * off;
    ++a.count;
  }
  a.rms = std::sqrt(sum / a.count);
  return a;
}

/// The largest distance over ground points around a place `reach` to each side and up to 30 above,
/// of which a few hundred must be in the photo for the answer to mean anything.
inline double LargestDistance(const host::Survey& survey, const std::string& photo, int width,
                              int height, double reach,
                              const std::function<PointPair(const host::Vector3& offset)>& pair) {
  std::vector<PointPair> points;
  points.reserve(4000);
  for (int k = 0; k < 4000; ++k) {
    const int col = k % 80;
    const int row = k / 80;
    points.push_back(pair({(col - 39.5) * reach / 40, (row - 24.5) * reach / 25, k % 7 * 5.0}));
  }
  const Agreement a = Compare(CameraOfPhoto(survey, photo), width, height, points);
  EXPECT_GE(a.count, 300);
  return a.largest;
}

}  // namespace tqtortho::testing
