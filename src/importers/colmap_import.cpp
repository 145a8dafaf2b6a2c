// SPDX-License-Identifier: Apache-2.0
#include "importers/colmap_import.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "geo/Crs.h"
#include "importers/colmap_file.h"
#include "importers/map_frame.h"
#include "importers/odm_frame.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

struct ModelFiles {
  ColmapForm form = ColmapForm::kBinary;
  fs::path cameras, images;
};

std::optional<ModelFiles> FilesIn(const fs::path& folder, ColmapForm form) {
  const char* extension = form == ColmapForm::kBinary ? ".bin" : ".txt";
  ModelFiles files{form, folder / "cameras", folder / "images"};
  files.cameras += extension;
  files.images += extension;
  std::error_code ignored;
  if (!fs::is_regular_file(files.cameras, ignored) || !fs::is_regular_file(files.images, ignored)) {
    return std::nullopt;
  }
  return files;
}

/// The model in a folder; of both forms the binary one, as the program itself does. `strict`: its
/// content too must be that of a model, not only its names.
std::optional<ModelFiles> ModelIn(const fs::path& folder, bool strict) {
  for (const ColmapForm form : {ColmapForm::kBinary, ColmapForm::kText}) {
    auto files = FilesIn(folder, form);
    if (!files) continue;
    std::ifstream in = tqfd::OpenInputFile(files->cameras.string(), limits::kExportBytes);
    if (!strict || IsColmapCameras(in, form)) return files;
  }
  return std::nullopt;
}

/// The models that a path means.
std::vector<ModelFiles> ModelsAt(const fs::path& path, bool strict) {
  std::error_code failed;
  if (!fs::is_directory(path, failed)) {
    const std::string stem = path.stem().string();
    if (!fs::is_regular_file(path, failed) || (stem != "cameras" && stem != "images")) return {};
    for (const ColmapForm form : {ColmapForm::kBinary, ColmapForm::kText}) {
      const auto files = FilesIn(path.parent_path(), form);
      if (!files || (files->cameras != path && files->images != path)) continue;
      std::ifstream in = tqfd::OpenInputFile(files->cameras.string(), limits::kExportBytes);
      if (!strict || IsColmapCameras(in, form)) return {*files};
    }
    return {};
  }
  for (const char* below : {"", "sparse", "dense/sparse"}) {
    const fs::path folder = path / below;
    if (const auto files = ModelIn(folder, strict)) return {*files};
    std::vector<fs::path> parts;
    for (fs::directory_iterator it(folder, failed), end; !failed && it != end;
         it.increment(failed)) {
      // Beside a project's own folders only numbered ones are models.
      const std::string name = it->path().filename().string();
      const bool numbered = name.find_first_not_of("0123456789") == std::string::npos;
      if (*below != '\0' || numbered) parts.push_back(it->path());
    }
    std::sort(parts.begin(), parts.end());
    std::vector<ModelFiles> found;
    for (const fs::path& part : parts) {
      if (const auto files = ModelIn(part, strict)) found.push_back(*files);
    }
    if (!found.empty()) return found;
  }
  return {};
}

/// The requested folder, else a folder "images" or "photos" up to three levels above the model.
std::string ColmapPhotoFolder(const ImportRequest& request, const fs::path& model) {
  if (!request.photoDir.empty()) return request.photoDir;
  std::error_code ignored;
  fs::path base = fs::absolute(model).lexically_normal();
  for (int level = 0; level < 4; ++level, base = base.parent_path()) {
    for (const char* name : {"images", "photos"}) {
      if (fs::is_directory(base / name, ignored)) return (base / name).string();
    }
  }
  return fs::absolute(model).lexically_normal().string();
}

/// The way from the model's frame to the map: that of the DSM, else the one that is named.
std::optional<TopocentricToGrid> FrameOf(const ImportRequest& request, Survey& survey,
                                         std::string& error) {
  if (request.crs.empty()) {
    error = "says nothing of its coordinate system; give it with --crs EPSG:n, and with --offset " +
            std::string("E,N[,H] what was subtracted from its coordinates (align the model to ") +
            "the map first if it never was)";
    return std::nullopt;
  }
  if (request.dsmPath.empty()) {
    // The check of the system, and no way to go.
    if (!MapFrame(geo::CrsToWkt(request.crs)).FromPlane(request.crs, error)) return std::nullopt;
    survey.crs = request.crs;
    survey.notes.push_back("no DSM given: positions stay in " + request.crs);
    return Shifted(request.offset, MapFrame({}).FromPlane({}, error));
  }
  const auto map = OpenImportMap(request, error);
  if (!map) return std::nullopt;
  survey.dsmPath = map->dsmPath;
  return Shifted(request.offset, MapFrame(map->mapWkt).FromPlane(request.crs, error));
}

bool ReadModel(const ModelFiles& files, PlacedProject& project, std::vector<ColmapPhoto>& photos,
               std::string& error) {
  // The observations of every photo stand in images.bin; they are passed over, not held.
  for (const fs::path& file : {files.cameras, files.images}) {
    error = tqfd::FileFault(file.string(), limits::kReconstructionBytes);
    if (!error.empty()) return false;
  }
  std::ifstream cameras = tqfd::OpenInputFile(files.cameras.string(), limits::kReconstructionBytes);
  std::ifstream images = tqfd::OpenInputFile(files.images.string(), limits::kReconstructionBytes);
  if (!ReadColmapCameras(cameras, files.form, project.cameras, error)) {
    error = files.cameras.string() + ": " + error;
    return false;
  }
  if (ReadColmapPhotos(images, files.form, photos, error)) return true;
  error = files.images.string() + ": " + error;
  return false;
}

}  // namespace

bool LooksLikeColmap(const std::string& path) { return !ModelsAt(path, true).empty(); }

std::optional<Survey> ImportColmap(const ImportRequest& request, std::string& error) {
  const std::vector<ModelFiles> models = ModelsAt(request.path, false);
  if (models.empty()) {
    error = request.path + ": holds no COLMAP model (cameras and images, .bin or .txt, there or " +
            "in sparse/0)";
    return std::nullopt;
  }
  const fs::path folder = models[0].cameras.parent_path();
  if (models.size() > 1) {
    error = request.path + ": holds " + std::to_string(models.size()) +
            " models that do not share a frame (" + folder.string() + ", " +
            models[1].cameras.parent_path().string() + (models.size() > 2 ? " ...)" : ")") +
            "; give one of them";
    return std::nullopt;
  }
  Survey survey;
  const bool binary = models[0].form == ColmapForm::kBinary;
  survey.source =
      std::string("COLMAP model (") + (binary ? "binary" : "text") + ") " + folder.string();
  const auto toMap = FrameOf(request, survey, error);
  if (!toMap) {
    error = folder.string() + ": " + error;
    return std::nullopt;
  }
  PlacedProject project;
  std::vector<ColmapPhoto> photos;
  if (!ReadModel(models[0], project, photos, error)) return std::nullopt;
  for (const ColmapPhoto& photo : photos) {
    if (const auto pose = PoseThrough(photo.centre, CameraToGround(photo.rotation), *toMap)) {
      project.shots.push_back({photo.name, photo.camera, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(photo.name);
    }
  }
  project.photoDir = ColmapPhotoFolder(request, folder);
  if (!AssembleSurvey(project, survey, error)) {
    error = folder.string() + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
