// SPDX-License-Identifier: Apache-2.0
#include "importers/project_import.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "importers/colmap_import.h"
#include "importers/metashape_import.h"
#include "importers/odm_import.h"
#include "importers/opensfm_import.h"
#include "importers/pix4d_import.h"
#include "importers/pose_csv_import.h"
#include "survey/number_text.h"
#include "survey/survey_reader.h"
#include "survey/table_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

/// A folder with lists of our own, or one of the two.
fs::path ListFolder(const std::string& path) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored)) return path;
  const std::string name = fs::path(path).filename().string();
  return name == "cameras.txt" || name == "photos.txt" ? fs::path(path).parent_path() : fs::path();
}

/// Both lists begin with a line that is a count and nothing else.
bool BeginsWithCount(const fs::path& file) {
  const std::string start = tqfd::ReadFileStart(file.string(), 64);
  TextLines lines(start);
  std::string_view line;
  return lines.Next(line) && ReadInt(Trimmed(line)).has_value();
}

bool LooksLikeLists(const std::string& path) {
  const fs::path folder = ListFolder(path);
  return BeginsWithCount(folder / "cameras.txt") && BeginsWithCount(folder / "photos.txt");
}

std::optional<Survey> ImportLists(const ImportRequest& request, std::string& error) {
  const fs::path folder = ListFolder(request.path);
  std::vector<std::string> problems;
  auto survey =
      ReadSurvey((folder / "cameras.txt").string(), (folder / "photos.txt").string(), problems);
  if (!survey) {
    error = problems[0];
    if (problems.size() > 1) {
      error += " (and " + std::to_string(problems.size() - 1) +
               " more; tqtortho info --cameras and --photos lists them)";
    }
    return std::nullopt;
  }
  std::error_code ignored;
  survey->crs = request.crs;
  survey->dsmPath = request.dsmPath;
  if (survey->dsmPath.empty() && fs::is_regular_file(folder / "dsm.tif", ignored)) {
    survey->dsmPath = (folder / "dsm.tif").string();
  }
  return survey;
}

struct Kind {
  ProjectKind kind;
  const char* name;
  const char* what;  ///< to look for
  bool (*looksLike)(const std::string&);
  std::optional<Survey> (*import)(const ImportRequest&, std::string&);
  bool photoDir, crs, offset, cameraFile, frame;  ///< what of a request it has a use for
};

constexpr Kind kKinds[] = {
    {ProjectKind::kLists, "a camera and photo list", "cameras.txt with photos.txt", LooksLikeLists,
     ImportLists, false, true, false, false, false},
    {ProjectKind::kOdm, "an OpenDroneMap project", "OpenDroneMap (opensfm/reconstruction.json)",
     LooksLikeOdm, ImportOdm, true, false, false, false, true},
    {ProjectKind::kOpenSfm, "an OpenSfM reconstruction", "OpenSfM (reconstruction.json)",
     LooksLikeOpenSfm, ImportOpenSfm, true, true, true, false, false},
    {ProjectKind::kColmap, "a COLMAP model",
     "COLMAP (cameras and images, .bin or .txt, there or in sparse/0)", LooksLikeColmap,
     ImportColmap, true, true, true, false, false},
    {ProjectKind::kMetashape, "a Metashape cameras file", "Metashape (cameras exported as XML)",
     LooksLikeMetashape, ImportMetashape, true, true, true, false, false},
    {ProjectKind::kPix4d, "a Pix4D folder", "Pix4D (1_initial/params)", LooksLikePix4d, ImportPix4d,
     true, true, true, false, false},
    {ProjectKind::kPoseTable, "a table of poses",
     "one table of poses (CSV whose header has name, x, y, z, omega, phi, kappa or the like)",
     LooksLikePoseCsv, ImportPoseCsv, true, true, true, true, false},
};

bool TakesAll(const Kind& kind, const ImportRequest& request, std::string& error) {
  const char* excess = nullptr;
  if (!request.photoDir.empty() && !kind.photoDir) excess = "--images";
  if (!request.crs.empty() && !kind.crs) excess = "--crs";
  if (request.offset != Vector3{} && !kind.offset) excess = "--offset";
  if (!request.cameraFile.empty() && !kind.cameraFile) excess = "--camera-file";
  if (request.frame != FrameChoice::kAuto && !kind.frame) excess = "--frame";
  if (excess == nullptr) return true;
  error =
      request.path + ": is " + kind.name + ", which has no use for " + excess + "; leave it out";
  return false;
}

std::optional<Survey> ImportKind(const Kind& kind, const ImportRequest& request,
                                 std::string& error) {
  std::error_code ignored;
  if (!request.photoDir.empty() && !fs::is_directory(request.photoDir, ignored)) {
    error = request.photoDir + ": is no folder; give the one with the photos as --images";
    return std::nullopt;
  }
  if (!TakesAll(kind, request, error)) return std::nullopt;
  return kind.import(request, error);
}

}  // namespace

std::optional<Survey> ImportProject(const ImportRequest& request, std::string& error) {
  std::error_code ignored;
  if (!fs::exists(request.path, ignored)) {
    error = request.path + ": is not there; give the folder or file of a project";
    return std::nullopt;
  }
  std::vector<const Kind*> found;
  std::string looked;
  for (const Kind& kind : kKinds) {
    looked += (looked.empty() ? "" : ", ") + std::string(kind.what);
    if (kind.kind == ProjectKind::kPoseTable && !found.empty()) continue;
    if (!kind.looksLike(request.path)) continue;
    if (kind.kind == ProjectKind::kOdm) return ImportKind(kind, request, error);
    found.push_back(&kind);
  }
  if (found.size() == 1) return ImportKind(*found[0], request, error);
  if (found.empty()) {
    error = request.path + ": holds no project that is known; looked for " + looked;
    return std::nullopt;
  }
  error = request.path + ": holds ";
  for (const Kind* kind : found) {
    error += (kind == found.front()  ? ""
              : kind == found.back() ? " and "
                                     : ", ") +
             std::string(kind->name);
  }
  error += "; say which by its own option (see --help)";
  return std::nullopt;
}

std::optional<Survey> ImportProjectAs(ProjectKind kind, const ImportRequest& request,
                                      std::string& error) {
  const Kind* found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                   [kind](const Kind& k) { return k.kind == kind; });
  return ImportKind(*found, request, error);
}

std::string DescribeCamera(const SurveyCamera& camera) {
  // The frame of a camera may be a virtual one; people know the raster.
  const bool framed = camera.rasterWidth > 0 && camera.rasterHeight > 0;
  return std::to_string(camera.id) + " " + camera.name + ": " +
         Fixed(framed ? camera.rasterWidth : camera.width, 0) + " x " +
         Fixed(framed ? camera.rasterHeight : camera.height, 0) + " pixels, focal length " +
         Fixed(camera.focalLength / camera.sensorWidth * camera.width, 2) +
         ", principal point at column " + Fixed(camera.principalX, 2) + ", row " +
         Fixed(camera.height - camera.principalY, 2) + ", lens model " +
         std::to_string(camera.model);
}

}  // namespace tqtortho::host
