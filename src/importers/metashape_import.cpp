// SPDX-License-Identifier: Apache-2.0
#include "importers/metashape_import.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "geo/Crs.h"
#include "importers/map_frame.h"
#include "importers/metashape_file.h"
#include "importers/odm_frame.h"
#include "survey/table_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

bool IsCamerasFile(const fs::path& path) {
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return false;
  return IsMetashapeText(tqfd::ReadFileStart(path.string(), 4096));
}

/// The cameras file that a path means, or nothing.
std::optional<fs::path> CamerasFile(const std::string& path) {
  std::error_code failed;
  if (!fs::is_directory(path, failed)) {
    return IsCamerasFile(path) ? std::optional<fs::path>(path) : std::nullopt;
  }
  if (IsCamerasFile(fs::path(path) / "cameras.xml")) return fs::path(path) / "cameras.xml";
  std::vector<fs::path> found;
  for (fs::directory_iterator it(path, failed), end; !failed && it != end; it.increment(failed)) {
    const std::string extension = Lower(it->path().extension().string());
    if (extension == ".xml" && IsCamerasFile(it->path())) found.push_back(it->path());
  }
  return found.size() == 1 ? std::optional(found[0]) : std::nullopt;
}

/// How the frame of the chunk's poses leads to the map.
std::optional<TopocentricToGrid> FrameOf(const MetashapeChunk& chunk, const ImportRequest& request,
                                         const std::string& mapWkt, std::string& error) {
  const MapFrame frame(mapWkt);
  const bool local = chunk.referenceWkt.empty() || !geo::DescribeEarth(chunk.referenceWkt);
  if (!chunk.placed || local) {
    const bool told = !request.crs.empty() || request.offset != Vector3{};
    if (!told) {
      error = std::string(chunk.placed ? "its coordinate system is a local one"
                                       : "the chunk has no transform, its frame is free") +
              "; set a coordinate system and export again, or say with --crs and --offset where " +
              "it lies";
      return std::nullopt;
    }
    return Shifted(request.offset, frame.FromPlane(request.crs, error));
  }
  if (!request.crs.empty()) {
    error = "names its own coordinate system; leave --crs out";
    return std::nullopt;
  }
  const auto toGrid = frame.FromEarthCentred(chunk.referenceWkt, request.offset[2] != 0, error);
  if (!toGrid) return std::nullopt;
  return [toGrid = *toGrid, offset = request.offset](const Vector3& p) {
    auto place = toGrid(p);
    for (std::size_t i = 0; place && i < 3; ++i) (*place)[i] += offset[i];
    return place;
  };
}

PlacedProject PlaceCameras(MetashapeChunk chunk, const TopocentricToGrid& toGrid) {
  PlacedProject project;
  for (const MetashapeCamera& camera : chunk.cameras) {
    if (const auto pose = PoseThrough(camera.centre, camera.cameraToFrame, toGrid)) {
      project.shots.push_back({camera.label, camera.sensor, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(camera.label);
    }
  }
  project.cameras = std::move(chunk.sensors);
  return project;
}

}  // namespace

bool LooksLikeMetashape(const std::string& path) { return CamerasFile(path).has_value(); }

std::optional<Survey> ImportMetashape(const ImportRequest& request, std::string& error) {
  const fs::path file = CamerasFile(request.path).value_or(request.path);
  std::string text;
  if (!tqfd::ReadWholeFile(file.string(), limits::kExportBytes, text, error)) {
    error += ", or holds not one file of cameras; give the XML file of exported cameras";
    return std::nullopt;
  }
  const auto map = OpenImportMap(request, error);
  if (!map) return std::nullopt;
  Survey survey;
  survey.source = "Metashape cameras " + file.string();
  survey.dsmPath = map->dsmPath;
  auto chunk = ParseMetashape(text, error);
  text = {};
  const auto toGrid = chunk ? FrameOf(*chunk, request, map->mapWkt, error) : std::nullopt;
  if (!toGrid) {
    error = file.string() + ": " + error;
    return std::nullopt;
  }
  survey.notes = std::move(chunk->notes);
  PlacedProject project = PlaceCameras(std::move(*chunk), *toGrid);
  project.photoDir = PhotoFolderOf(request, file.string());
  if (!AssembleSurvey(project, survey, error)) {
    error = file.string() + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
