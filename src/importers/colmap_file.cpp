// SPDX-License-Identifier: Apache-2.0
#include "importers/colmap_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "core/numeric.h"
#include "importers/colmap_records.h"

namespace tqtortho::host {
namespace {

struct LensModel {
  const char* name;
  std::size_t parameters;
  int focals;  ///< 1 or 2; 0: a model that cannot be expressed
};

/// By the number that the binary form gives a model.
constexpr LensModel kModels[] = {
    {"SIMPLE_PINHOLE", 3, 1},
    {"PINHOLE", 4, 2},
    {"SIMPLE_RADIAL", 4, 1},
    {"RADIAL", 5, 1},
    {"OPENCV", 8, 2},
    {"OPENCV_FISHEYE", 8, 0},
    {"FULL_OPENCV", 12, 2},
    {"FOV", 5, 0},
    {"SIMPLE_RADIAL_FISHEYE", 4, 0},
    {"RADIAL_FISHEYE", 5, 0},
    {"THIN_PRISM_FISHEYE", 12, 0},
    {"RAD_TAN_THIN_PRISM_FISHEYE", 16, 0},
};

const LensModel* FindModel(std::string_view name) {
  const auto found = std::find_if(std::begin(kModels), std::end(kModels),
                                  [&](const LensModel& m) { return name == m.name; });
  return found == std::end(kModels) ? nullptr : found;
}

SourceCamera ToSourceCamera(const ColmapCamera& stated) {
  SourceCamera camera;
  SourceLens& lens = camera.lens;
  lens.name = stated.id;
  lens.projection = stated.model;
  const std::string who = "camera \"" + stated.id + "\" (" + stated.model + ")";
  const LensModel* model = FindModel(stated.model);
  if (model == nullptr || model->focals == 0) {
    camera.fault = who +
                   ": this lens model cannot be expressed; use OPENCV, RADIAL, SIMPLE_RADIAL or " +
                   "PINHOLE, or undistort the photos";
    return camera;
  }
  const std::vector<double>& p = stated.parameters;
  if (p.size() != model->parameters) {
    camera.fault = who + ": has " + std::to_string(p.size()) + " parameters, not " +
                   std::to_string(model->parameters) + "; export the model again";
    return camera;
  }
  if (stated.model == "FULL_OPENCV" && (p[9] != 0 || p[10] != 0 || p[11] != 0)) {
    camera.fault =
        who + ": its k4, k5 or k6 cannot be expressed; use OPENCV or undistort the photos";
    return camera;
  }
  const auto isSize = [](double v) { return v >= 1 && v <= 1e6; };
  if (!std::all_of(p.begin(), p.end(), [](double v) { return std::isfinite(v); }) ||
      !isSize(stated.width) || !isSize(stated.height)) {
    camera.fault = who + ": its size or a parameter is out of range; export the model again";
    return camera;
  }
  lens.width = TruncToInt(stated.width);
  lens.height = TruncToInt(stated.height);
  const double size = lens.Size();
  auto next = p.begin();
  lens.focalX = *next++ / size;
  lens.focalY = model->focals == 2 ? *next++ / size : lens.focalX;
  // The corner of the raster is the origin and the first pixel's centre lies at one half, so only
  // the origin moves: to the raster's centre.
  lens.centreX = (*next++ - 0.5 * lens.width) / size;
  lens.centreY = (*next++ - 0.5 * lens.height) / size;
  for (double* coefficient : {&lens.k1, &lens.k2, &lens.p1, &lens.p2, &lens.k3}) {
    if (next != p.end()) *coefficient = *next++;
  }
  return camera;
}

/// World to camera by a quaternion (w, x, y, z) of any length.
Matrix3 RotationFromQuaternion(std::array<double, 4> q) {
  const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  for (double& v : q) v /= length;
  const auto [w, x, y, z] = q;
  return {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
          2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
          2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
}

}  // namespace

std::size_t ColmapParameterCount(std::uint64_t model) {
  return model < std::size(kModels) ? kModels[model].parameters : 0;
}

const char* ColmapModelName(std::uint64_t model) {
  return model < std::size(kModels) ? kModels[model].name : "";
}

bool AddColmapCamera(const ColmapCamera& stated, ColmapCameras& cameras, std::string& error) {
  if (cameras.emplace(stated.id, ToSourceCamera(stated)).second) return true;
  error = "describes camera " + stated.id + " twice; export the model again";
  return false;
}

bool AddColmapPhoto(std::string name, std::string camera, const std::array<double, 7>& pose,
                    std::vector<ColmapPhoto>& photos, std::string& error) {
  ColmapPhoto photo;
  photo.name = std::move(name);
  photo.camera = std::move(camera);
  photo.rotation = RotationFromQuaternion({pose[0], pose[1], pose[2], pose[3]});
  photo.centre = Product(Transposed(photo.rotation), Vector3{pose[4], pose[5], pose[6]});
  for (double& c : photo.centre) c = -c;
  const auto finite = [](double v) { return std::isfinite(v); };
  if (!std::all_of(photo.rotation.begin(), photo.rotation.end(), finite) ||
      !std::all_of(photo.centre.begin(), photo.centre.end(), finite)) {
    error = "photo " + photo.name + ": its pose is not finite; export the model again";
    return false;
  }
  photos.push_back(std::move(photo));
  return true;
}

bool ReadColmapCameras(std::istream& in, ColmapForm form, ColmapCameras& cameras,
                       std::string& error) {
  cameras.clear();
  if (!(form == ColmapForm::kText ? ReadColmapCamerasText(in, cameras, error)
                                  : ReadColmapCamerasBinary(in, cameras, error))) {
    return false;
  }
  if (!cameras.empty()) return true;
  error = "holds no camera; export the model again";
  return false;
}

bool ReadColmapPhotos(std::istream& in, ColmapForm form, std::vector<ColmapPhoto>& photos,
                      std::string& error) {
  photos.clear();
  if (!(form == ColmapForm::kText ? ReadColmapPhotosText(in, photos, error)
                                  : ReadColmapPhotosBinary(in, photos, error))) {
    return false;
  }
  if (photos.empty()) {
    error = "holds no oriented photo; reconstruct the model first";
    return false;
  }
  std::sort(photos.begin(), photos.end(),
            [](const ColmapPhoto& a, const ColmapPhoto& b) { return a.name < b.name; });
  const auto twice = std::adjacent_find(
      photos.begin(), photos.end(),
      [](const ColmapPhoto& a, const ColmapPhoto& b) { return a.name == b.name; });
  if (twice == photos.end()) return true;
  error = "holds photo " + twice->name + " twice; export the model again";
  return false;
}

bool IsColmapCameras(std::istream& in, ColmapForm form) {
  return form == ColmapForm::kText ? IsColmapCamerasText(in) : IsColmapCamerasBinary(in);
}

}  // namespace tqtortho::host
