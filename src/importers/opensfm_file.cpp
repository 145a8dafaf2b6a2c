// SPDX-License-Identifier: Apache-2.0
#include "importers/opensfm_file.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

#include "core/limits.h"
#include "core/numeric.h"
#include "survey/json_text.h"

namespace tqtortho::host {
namespace {

using Json = nlohmann::json;

/// A finite number of an object, or nothing.
std::optional<double> Number(const Json& object, const char* key) {
  const auto it = object.find(key);
  if (it == object.end() || !it->is_number()) return std::nullopt;
  const double value = it->get<double>();
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<Vector3> Triple(const Json& object, const char* key) {
  const auto it = object.find(key);
  if (it == object.end() || !it->is_array() || it->size() != 3) return std::nullopt;
  Vector3 out{};
  for (std::size_t i = 0; i < 3; ++i) {
    const Json& value = (*it)[i];
    if (!value.is_number()) return std::nullopt;
    out[i] = value.get<double>();
    if (!std::isfinite(out[i])) return std::nullopt;
  }
  return out;
}

/// Which numbers a projection type has; the rest is zero.
struct Projection {
  const char* type;
  bool oneFocal;  ///< "focal" instead of "focal_x" and "focal_y"
  bool centre;    ///< "c_x", "c_y"
  int radial;     ///< k1 to k3
  bool tangential;
};

constexpr Projection kPinholes[] = {
    {"brown", false, true, 3, true},
    {"perspective", true, false, 2, false},
    {"radial", false, true, 2, false},
    {"simple_radial", false, true, 1, false},
};

SourceCamera ReadCamera(const std::string& name, const Json& object) {
  SourceCamera camera;
  SourceLens& lens = camera.lens;
  lens.name = name;
  if (!object.is_object()) {
    camera.fault = "camera \"" + name + "\" is no object; export the project again";
    return camera;
  }
  const auto type = object.find("projection_type");
  lens.projection =
      type != object.end() && type->is_string() ? type->get<std::string>() : "(not named)";
  const std::string who = "camera \"" + name + "\"";
  const auto found = std::find_if(std::begin(kPinholes), std::end(kPinholes),
                                  [&](const Projection& p) { return lens.projection == p.type; });
  if (found == std::end(kPinholes)) {
    camera.fault = who + ": projection type " + lens.projection +
                   " cannot be expressed; process the project with a brown or perspective camera "
                   "or undistort its photos";
    return camera;
  }
  std::string missing;
  const auto take = [&](const char* key, bool needed) {
    const auto value = Number(object, key);
    if (!value && needed && missing.empty()) missing = key;
    return value.value_or(0);
  };
  const double width = take("width", true), height = take("height", true);
  lens.width = width >= 1 && width <= 1e6 ? TruncToInt(width) : 0;
  lens.height = height >= 1 && height <= 1e6 ? TruncToInt(height) : 0;
  lens.focalX = take(found->oneFocal ? "focal" : "focal_x", true);
  lens.focalY = found->oneFocal ? lens.focalX : take("focal_y", true);
  if (found->centre) {
    lens.centreX = take("c_x", false);
    lens.centreY = take("c_y", false);
  }
  if (found->radial > 0) lens.k1 = take("k1", false);
  if (found->radial > 1) lens.k2 = take("k2", false);
  if (found->radial > 2) lens.k3 = take("k3", false);
  if (found->tangential) {
    lens.p1 = take("p1", false);
    lens.p2 = take("p2", false);
  }
  if (!missing.empty()) {
    camera.fault = who + " (" + lens.projection + ") has no number \"" + missing +
                   "\"; export the project again";
  }
  return camera;
}

/// False when the pose is not there or not finite.
bool ReadShot(const std::string& name, const Json& object, OpenSfmShot& shot) {
  if (!object.is_object()) return false;
  const auto rotation = Triple(object, "rotation"), translation = Triple(object, "translation");
  const auto camera = object.find("camera");
  if (!rotation || !translation || camera == object.end() || !camera->is_string()) return false;
  shot.name = name;
  shot.camera = camera->get<std::string>();
  shot.rotation = RotationFromAxisAngle(*rotation);
  // The camera sees R X + t, so its own centre is at -R' t.
  shot.centre = Product(Transposed(shot.rotation), *translation);
  for (double& c : shot.centre) c = -c;
  shot.gps = Triple(object, "gps_position");
  shot.captureTime = Number(object, "capture_time").value_or(0);
  const auto finite = [](double v) { return std::isfinite(v); };
  return std::all_of(shot.rotation.begin(), shot.rotation.end(), finite) &&
         std::all_of(shot.centre.begin(), shot.centre.end(), finite);
}

std::size_t ShotCount(const Json& reconstruction) {
  if (!reconstruction.is_object()) return 0;
  const auto shots = reconstruction.find("shots");
  return shots != reconstruction.end() && shots->is_object() ? shots->size() : 0;
}

std::string Plural(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

bool ReadReference(const Json& reference, OpenSfmReconstruction& out) {
  if (!reference.is_object()) return false;
  const auto latitude = Number(reference, "latitude"), longitude = Number(reference, "longitude");
  if (!latitude || !longitude || std::fabs(*latitude) > 90 || std::fabs(*longitude) > 360) {
    return false;
  }
  out.hasReference = true;
  out.latitude = *latitude;
  out.longitude = *longitude;
  out.altitude = Number(reference, "altitude").value_or(0);
  return true;
}

void ReadLargest(const Json& largest, OpenSfmReconstruction& out) {
  if (const auto cameras = largest.find("cameras");
      cameras != largest.end() && cameras->is_object()) {
    for (const auto& [name, camera] : cameras->items()) {
      out.cameras.emplace(name, ReadCamera(name, camera));
    }
  }
  for (const auto& [name, object] : largest["shots"].items()) {
    OpenSfmShot shot;
    if (ReadShot(name, object, shot)) {
      out.shots.push_back(std::move(shot));
    } else {
      out.notes.push_back("photo \"" + name + "\" left out: it has no usable pose");
    }
  }
  std::sort(out.shots.begin(), out.shots.end(), [](const OpenSfmShot& a, const OpenSfmShot& b) {
    return std::tie(a.captureTime, a.name) < std::tie(b.captureTime, b.name);
  });
  const auto reference = largest.find("reference_lla");
  if (reference != largest.end()) (void)ReadReference(*reference, out);
}

}  // namespace

std::optional<OpenSfmReconstruction> ParseOpenSfm(std::string_view json, std::string& error) {
  // The sparse points are most of the file and of no use here.
  // Shots are counted on the way, so that a file of a million ends at the limit. Members of a
  // reconstruction stand at depth 2, shots at depth 3.
  int shots = 0;
  bool inShots = false;
  const auto filter = [&](int depth, const std::string& key) {
    if (depth == 2) {
      inShots = key == "shots";
      if (inShots) shots = 0;
    }
    if (depth == 3 && inShots && ++shots > limits::kPhotos) return JsonMember::kEnd;
    return key == "points" ? JsonMember::kSkip : JsonMember::kTake;
  };
  const Json root = ParseJson(json, filter);
  if (shots > limits::kPhotos) {
    error = "holds more than " + std::to_string(limits::kPhotos) +
            " photos, the most that a job numbers; split the project";
    return std::nullopt;
  }
  if (root.is_discarded() || !root.is_array()) {
    error = "is no reconstruction list (damaged or cut short?); export the project again";
    return std::nullopt;
  }
  const Json* largest = nullptr;
  std::size_t photos = 0;
  for (const Json& reconstruction : root) {
    photos += ShotCount(reconstruction);
    if (largest == nullptr || ShotCount(reconstruction) > ShotCount(*largest)) {
      largest = &reconstruction;
    }
  }
  if (largest == nullptr || ShotCount(*largest) == 0) {
    error = "holds no oriented photo; process the project to the end first";
    return std::nullopt;
  }
  OpenSfmReconstruction out;
  if (const std::size_t left = photos - ShotCount(*largest); left > 0) {
    out.notes.push_back(Plural(left, "photo") + " left out: of " + std::to_string(root.size()) +
                        " separate reconstructions only the largest, with " +
                        Plural(ShotCount(*largest), "photo") + ", made the surface");
  }
  ReadLargest(*largest, out);
  if (out.shots.empty()) {
    error = "holds no photo with a usable pose; export the project again";
    return std::nullopt;
  }
  return out;
}

bool ParseOpenSfmReference(std::string_view json, OpenSfmReconstruction& out) {
  const Json root = ParseJson(json);
  return ReadReference(root, out);
}

}  // namespace tqtortho::host
