// SPDX-License-Identifier: Apache-2.0
#include "importers/pix4d_import.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "geo/RasterTools.h"
#include "importers/map_frame.h"
#include "importers/odm_frame.h"
#include "importers/pix4d_file.h"
#include "survey/number_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kExternal = "calibrated_external_camera_parameters.txt";
constexpr std::string_view kInternal = "pix4d_calibrated_internal_camera_parameters.cam";
constexpr std::string_view kInternalShort = "calibrated_internal_camera_parameters.cam";
constexpr std::string_view kCalibrated = "calibrated_camera_parameters.txt";
constexpr std::string_view kOffset = "offset.xyz";
constexpr std::string_view kMap = "wkt.prj";

std::string StartOf(const fs::path& path) { return tqfd::ReadFileStart(path.string(), 1024); }

/// The files of a params folder that a path means; empty names where there is none.
struct ParamFiles {
  fs::path external, internal, calibrated, offset, map;
};

/// The one file of a folder whose name is `ending`, or a project's name, "_" and `ending`.
fs::path FileNamed(const fs::path& folder, const std::string& prefix, std::string_view ending) {
  std::error_code ignored;
  const fs::path path = folder / (prefix + std::string(ending));
  return fs::is_regular_file(path, ignored) ? path : fs::path();
}

ParamFiles FilesBeside(const fs::path& external) {
  ParamFiles files;
  files.external = external;
  const std::string name = external.filename().string();
  // "project_name_", shared by all files of the folder.
  const std::string prefix = name.size() >= kExternal.size() && name.ends_with(kExternal)
                                 ? name.substr(0, name.size() - kExternal.size())
                                 : std::string();
  const fs::path folder = external.parent_path();
  files.internal = FileNamed(folder, prefix, kInternal);
  if (files.internal.empty()) {
    // The name is also that of a file for another program; only its content tells.
    const fs::path other = FileNamed(folder, prefix, kInternalShort);
    if (!other.empty() && IsPix4dInternalText(StartOf(other))) files.internal = other;
  }
  files.calibrated = FileNamed(folder, prefix, kCalibrated);
  files.offset = FileNamed(folder, prefix, kOffset);
  files.map = FileNamed(folder, prefix, kMap);
  return files;
}

/// The table of external parameters in a folder, or nothing when there is none or more than one.
fs::path ExternalIn(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code failed;
  for (fs::directory_iterator it(folder, failed), end; !failed && it != end; it.increment(failed)) {
    std::error_code ignored;
    if (it->path().filename().string().ends_with(kExternal) &&
        fs::is_regular_file(it->path(), ignored) && IsPix4dExternalText(StartOf(it->path()))) {
      found.push_back(it->path());
    }
  }
  return found.size() == 1 ? found[0] : fs::path();
}

std::optional<ParamFiles> FindFiles(const std::string& path) {
  std::error_code ignored;
  if (!fs::is_directory(path, ignored)) {
    if (fs::is_regular_file(path, ignored) && IsPix4dExternalText(StartOf(path))) {
      return FilesBeside(path);
    }
    const fs::path folder = fs::path(path).parent_path();
    const bool known = fs::is_regular_file(path, ignored) && IsPix4dInternalText(StartOf(path));
    const fs::path external = known ? ExternalIn(folder.empty() ? "." : folder) : fs::path();
    return external.empty() ? std::nullopt : std::optional(FilesBeside(external));
  }
  for (const char* below : {".", "params", "1_initial/params"}) {
    const fs::path external = ExternalIn((fs::path(path) / below).lexically_normal());
    if (!external.empty()) return FilesBeside(external);
  }
  return std::nullopt;
}

bool ReadFile(const fs::path& path, std::string& text, std::string& error) {
  return tqfd::ReadWholeFile(path.string(), limits::kExportBytes, text, error);
}

/// External positions are those of the output coordinate system, but some files hold them relative
/// to the offset as the others do: whichever lies nearer the offset is meant.
Vector3 OffsetToAdd(const std::vector<Pix4dPose>& poses, const Vector3& offset,
                    std::vector<std::string>& notes) {
  const Vector3& p = poses.front().position;
  const double asTheyAre = std::hypot(p[0] - offset[0], p[1] - offset[1]);
  if (asTheyAre <= std::hypot(p[0], p[1])) return {};
  notes.push_back("positions are relative to the offset " + Exact(offset[0]) + ", " +
                  Exact(offset[1]) + ", " + Exact(offset[2]) + "; added");
  return offset;
}

/// Cameras by the values of their calibration: the file of single photos repeats them.
void CamerasFromPhotos(const std::vector<Pix4dCalibratedPhoto>& photos, PlacedProject& project,
                       std::map<std::string, std::string>& cameraOf) {
  using Key = std::tuple<int, int, double, double, double, double, double, double, double, double,
                         double, double>;
  std::map<Key, std::string> known;
  for (const Pix4dCalibratedPhoto& photo : photos) {
    const SourceLens& l = photo.lens;
    const Key key{l.width,   l.height, l.focalX, l.focalY, l.skew, l.centreX,
                  l.centreY, l.k1,     l.k2,     l.k3,     l.p1,   l.p2};
    auto [it, fresh] = known.insert({key, "camera " + std::to_string(known.size() + 1)});
    if (fresh) {
      project.cameras[it->second].lens = l;
      project.cameras[it->second].lens.name = it->second;
    }
    cameraOf[photo.name] = it->second;
  }
}

/// The size of the first photo that can be read: files in millimetres do not say it.
bool PhotoSize(const std::vector<Pix4dPose>& poses, const std::string& folder, int& width,
               int& height) {
  for (const Pix4dPose& pose : poses) {
    geo::RasterSummary raster;
    std::string why;
    std::error_code ignored;
    const fs::path path = fs::path(folder) / fs::path(pose.name).filename();
    if (!fs::is_regular_file(path, ignored) || !geo::DescribeRaster(path.string(), raster, why)) {
      continue;
    }
    width = raster.width;
    height = raster.height;
    return true;
  }
  return false;
}

bool CamerasFromMillimetres(const ParamFiles& files, const std::vector<Pix4dPose>& poses,
                            PlacedProject& project, std::string& error) {
  std::string text;
  if (files.internal.empty()) {
    error = (files.external.parent_path() / ("..._" + std::string(kInternal))).string() +
            ": is missing, and ..._" + std::string(kCalibrated) + " too; copy the whole folder";
    return false;
  }
  if (!ReadFile(files.internal, text, error)) return false;
  const auto cameras = ParsePix4dInternal(text, error);
  if (cameras && cameras->size() > 1) {
    error = "describes " + std::to_string(cameras->size()) + " cameras; which photo has which " +
            "stands in ..._" + std::string(kCalibrated) + ": put it beside";
  }
  int width = 0, height = 0;
  const bool sized =
      cameras && cameras->size() == 1 && PhotoSize(poses, project.photoDir, width, height);
  if (cameras && cameras->size() == 1 && !sized) {
    error = "no photo could be read in " + project.photoDir +
            " to tell the size of a pixel; say with --images where the photos lie";
  }
  const auto lens = sized ? LensOfPix4d(cameras->front(), width, height, error) : std::nullopt;
  if (!lens) {
    error = files.internal.string() + ": " + error;
    return false;
  }
  project.cameras["camera 1"].lens = *lens;
  project.cameras["camera 1"].lens.name = "camera 1";
  return true;
}

/// Cameras of the project and the camera of every pose.
bool ReadCameras(const ParamFiles& files, const std::vector<Pix4dPose>& poses,
                 PlacedProject& project, std::map<std::string, std::string>& cameraOf,
                 std::string& error) {
  if (files.calibrated.empty()) {
    if (!CamerasFromMillimetres(files, poses, project, error)) return false;
    for (const Pix4dPose& pose : poses) cameraOf[pose.name] = "camera 1";
    return true;
  }
  std::string text;
  if (!ReadFile(files.calibrated, text, error)) return false;
  const auto photos = ParsePix4dCalibrated(text, error);
  if (!photos) {
    error = files.calibrated.string() + ": " + error;
    return false;
  }
  CamerasFromPhotos(*photos, project, cameraOf);
  for (const Pix4dPose& pose : poses) {
    if (cameraOf.contains(pose.name)) continue;
    error = files.calibrated.string() + ": does not hold photo " + pose.name + " of " +
            files.external.filename().string() + "; take both files from one run";
    return false;
  }
  return true;
}

/// The way from the poses' coordinates to the map, by what the user or the files say.
std::optional<TopocentricToGrid> FrameOf(const ParamFiles& files, const ImportRequest& request,
                                         const std::string& mapWkt,
                                         const std::vector<Pix4dPose>& poses,
                                         std::vector<std::string>& notes, std::string& error) {
  Vector3 offset = request.offset;
  std::string text;
  if (!files.offset.empty()) {
    if (!ReadFile(files.offset, text, error)) return std::nullopt;
    const auto stated = ParsePix4dOffset(text);
    if (!stated) {
      error = files.offset.string() + ": is not three finite numbers; take the file as it was " +
              "written";
      return std::nullopt;
    }
    if (offset == Vector3{}) offset = OffsetToAdd(poses, *stated, notes);
  }
  std::string crs = request.crs;
  if (crs.empty() && !files.map.empty()) {
    if (!ReadFile(files.map, crs, error)) return std::nullopt;
  } else if (crs.empty()) {
    notes.push_back("no ..._" + std::string(kMap) + " beside the poses and no --crs: taken as " +
                    "coordinates of the DSM's map");
  }
  auto toGrid = Shifted(offset, MapFrame(mapWkt).FromPlane(crs, error));
  if (!toGrid && request.crs.empty() && !files.map.empty()) {
    error = files.map.string() + ": " + error;
  }
  return toGrid;
}

}  // namespace

bool LooksLikePix4d(const std::string& path) { return FindFiles(path).has_value(); }

std::optional<Survey> ImportPix4d(const ImportRequest& request, std::string& error) {
  const auto files = FindFiles(request.path);
  if (!files) {
    error = request.path + ": holds not one ..._" + std::string(kExternal) +
            " with its header; give the folder 1_initial/params of the project";
    return std::nullopt;
  }
  const auto map = OpenImportMap(request, error);
  std::string text;
  if (!map || !ReadFile(files->external, text, error)) return std::nullopt;
  const auto poses = ParsePix4dExternal(text, error);
  if (!poses) {
    error = files->external.string() + ": " + error;
    return std::nullopt;
  }
  Survey survey;
  survey.source = "Pix4D parameters " + files->external.parent_path().string();
  survey.dsmPath = map->dsmPath;
  PlacedProject project;
  project.photoDir = PhotoFolderOf(request, files->external.string());
  std::map<std::string, std::string> cameraOf;
  const auto toGrid = FrameOf(*files, request, map->mapWkt, *poses, survey.notes, error);
  if (!toGrid || !ReadCameras(*files, *poses, project, cameraOf, error)) return std::nullopt;
  for (const Pix4dPose& pose : *poses) {
    if (const auto placed = PoseThrough(pose.position, pose.cameraToGround, *toGrid)) {
      project.shots.push_back(
          {pose.name, cameraOf[pose.name], placed->centre, placed->cameraToGround});
    } else {
      project.unplaced.push_back(pose.name);
    }
  }
  if (!AssembleSurvey(project, survey, error)) {
    error = files->external.string() + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
