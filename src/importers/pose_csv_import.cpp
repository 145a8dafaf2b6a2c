// SPDX-License-Identifier: Apache-2.0
#include "importers/pose_csv_import.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "importers/calibration_file.h"
#include "importers/map_frame.h"
#include "importers/odm_frame.h"
#include "importers/pix4d_file.h"
#include "importers/pose_table.h"
#include "survey/geodesy.h"
#include "survey/table_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

bool IsTable(const fs::path& path) {
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return false;
  const std::string start = tqfd::ReadFileStart(path.string(), 16384);
  // That program's files come with a calibration of their own and have an importer of their own.
  return IsPoseTableText(start) && !IsPix4dExternalText(start);
}

/// The tables that a path means: itself, or those of a folder, by name.
std::vector<fs::path> TablesOf(const std::string& path) {
  std::error_code failed;
  if (!fs::is_directory(path, failed)) {
    return IsTable(path) ? std::vector<fs::path>{path} : std::vector<fs::path>{};
  }
  std::vector<fs::path> found;
  for (fs::directory_iterator it(path, failed), end; !failed && it != end; it.increment(failed)) {
    const std::string extension = Lower(it->path().extension().string());
    const bool text = extension == ".csv" || extension == ".tsv" || extension == ".txt";
    if (text && IsTable(it->path())) found.push_back(it->path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// The calibration that belongs to a table: the requested one, else a file of a usual name beside.
std::string CalibrationFile(const ImportRequest& request, const fs::path& table) {
  if (!request.cameraFile.empty()) return request.cameraFile;
  std::error_code ignored;
  for (const char* name : {"camera.yaml", "camera.yml", "camera.json", "cameras.yaml",
                           "cameras.json", "int_param.yaml", "int_param.json"}) {
    const fs::path path = table.parent_path() / name;
    if (fs::is_regular_file(path, ignored)) return path.string();
  }
  return {};
}

/// Names the camera of every row in terms of the calibrations. A single calibration serves a table
/// that tells no cameras apart, whatever it calls the one.
bool MatchCameras(PoseTable& table, const std::map<std::string, SourceCamera>& cameras,
                  const std::string& file, std::vector<std::string>& notes, std::string& error) {
  std::set<std::string> named;
  for (const PoseRow& row : table.rows) named.insert(row.camera);
  const bool single = cameras.size() == 1 && named.size() == 1;
  if (single && !named.begin()->empty() && !cameras.contains(*named.begin())) {
    notes.push_back("the only calibration of " + file + " is taken for camera \"" + *named.begin() +
                    "\"");
  }
  for (PoseRow& row : table.rows) {
    if (single) row.camera = cameras.begin()->first;
    if (cameras.contains(row.camera)) continue;
    error = "line " + std::to_string(row.line) + ": " +
            (row.camera.empty() ? "names no camera" : "camera \"" + row.camera + "\"") + ", and " +
            file + " describes " + std::to_string(cameras.size()) + ": " +
            (row.camera.empty() ? "add a column camera" : "name it there");
    return false;
  }
  return true;
}

/// Puts rows on the map; made once per table.
class RowPlacer {
 public:
  static std::optional<RowPlacer> Create(const PoseTable& table, const ImportRequest& request,
                                         const std::string& mapWkt, std::string& error) {
    RowPlacer placer;
    placer.trueNorth_ = table.trueNorth;
    const MapFrame map(mapWkt);
    const auto toMap =
        Shifted(request.offset, table.geographic ? map.FromGeographic(request.crs, error)
                                                 : map.FromPlane(request.crs, error));
    if (!toMap) return std::nullopt;
    placer.toMap_ = *toMap;
    if (!table.trueNorth) return placer;
    // Attitudes count from true north: each photo has a local frame, at its longitude and latitude.
    const auto fromPlace = map.FromGeographic({}, error);
    const std::string back = request.crs.empty() ? mapWkt : request.crs;
    const auto toPlace =
        table.geographic ? std::optional<TopocentricToGrid>(
                               [](const Vector3& p) { return std::optional<Vector3>(p); })
                         : Shifted(request.offset, MapFrame("EPSG:4326").FromPlane(back, error));
    if (!fromPlace || !toPlace) return std::nullopt;
    placer.fromPlace_ = *fromPlace;
    placer.toPlace_ = *toPlace;
    return placer;
  }

  [[nodiscard]] std::optional<GroundPose> Place(const PoseRow& row, bool geographic) const {
    if (!trueNorth_) {
      // Omega, phi, kappa are already those of a map; on another map than theirs they turn.
      if (!geographic) return PoseThrough(row.position, row.cameraToFrame, toMap_);
      const auto centre = toMap_(row.position);
      if (!centre) return std::nullopt;
      return GroundPose{*centre, row.cameraToFrame};
    }
    const auto place = toPlace_(row.position);
    const auto centre = toMap_(row.position);
    if (!place || !centre) return std::nullopt;
    const Topocentric local({(*place)[0], (*place)[1], (*place)[2]});
    auto pose = PoseThrough({0, 0, 0}, row.cameraToFrame, [&](const Vector3& p) {
      const Geodetic at = local.Place(p);
      return fromPlace_({at.longitude, at.latitude, at.height});
    });
    if (pose) pose->centre = *centre;
    return pose;
  }

 private:
  bool trueNorth_ = false;
  TopocentricToGrid toMap_, toPlace_, fromPlace_;
};

std::optional<PlacedProject> ReadProject(const fs::path& file, const ImportRequest& request,
                                         const std::string& mapWkt, std::vector<std::string>& notes,
                                         std::string& error) {
  std::string text;
  // The caller puts the file's name before the line.
  if (!tqfd::ReadWholeFile(file.string(), limits::kExportBytes, text, error)) {
    error = error.substr(file.string().size() + 2);
    return std::nullopt;
  }
  auto table = ParsePoseTable(text, error);
  if (!table) return std::nullopt;
  notes = std::move(table->notes);
  const std::string calibration = CalibrationFile(request, file);
  if (calibration.empty()) {
    error = "no calibration: give it with --camera-file, or put a camera.yaml beside";
    return std::nullopt;
  }
  if (!tqfd::ReadWholeFile(calibration, limits::kSmallFileBytes, text, error)) {
    error = "its calibration " + error;
    return std::nullopt;
  }
  auto cameras = ParseCalibrations(text, error);
  if (!cameras) {
    error = "its calibration " + calibration + ": " + error;
    return std::nullopt;
  }
  for (auto& [name, camera] : *cameras) {
    if (!camera.fault.empty()) camera.fault = calibration + ": " + camera.fault;
  }
  if (!MatchCameras(*table, *cameras, calibration, notes, error)) return std::nullopt;
  const auto placer = RowPlacer::Create(*table, request, mapWkt, error);
  if (!placer) return std::nullopt;
  if (table->geographic) {
    notes.push_back("altitudes are taken as heights of the DSM: a geoid between the two is not " +
                    std::string("added; use --offset 0,0,DZ"));
  }
  // Rows come in any order; names of one flight count up.
  std::sort(table->rows.begin(), table->rows.end(),
            [](const PoseRow& a, const PoseRow& b) { return a.name < b.name; });
  PlacedProject project;
  project.cameras = std::move(*cameras);
  for (const PoseRow& row : table->rows) {
    if (const auto pose = placer->Place(row, table->geographic)) {
      project.shots.push_back({row.name, row.camera, pose->centre, pose->cameraToGround});
    } else {
      project.unplaced.push_back(row.name);
    }
  }
  return project;
}

}  // namespace

bool LooksLikePoseCsv(const std::string& path) { return TablesOf(path).size() == 1; }

std::optional<Survey> ImportPoseCsv(const ImportRequest& request, std::string& error) {
  const std::vector<fs::path> tables = TablesOf(request.path);
  std::error_code ignored;
  if (fs::is_directory(request.path, ignored) && tables.size() != 1) {
    error =
        request.path + ": holds " + std::to_string(tables.size()) + " tables of poses" +
        (tables.empty() ? ""
                        : " (" + tables[0].filename().string() + ", " +
                              tables[1].filename().string() + (tables.size() > 2 ? " ...)" : ")")) +
        "; give one file";
    return std::nullopt;
  }
  // A named file is read whatever its header looks like: the parser says what is wrong with it.
  const fs::path file = tables.empty() ? fs::path(request.path) : tables[0];
  const auto map = OpenImportMap(request, error);
  if (!map) return std::nullopt;
  Survey survey;
  survey.source = "table of poses " + file.string();
  survey.dsmPath = map->dsmPath;
  auto project = ReadProject(file, request, map->mapWkt, survey.notes, error);
  if (project) project->photoDir = PhotoFolderOf(request, file.string());
  if (!project || !AssembleSurvey(*project, survey, error)) {
    error = file.string() + ": " + error;
    return std::nullopt;
  }
  return survey;
}

}  // namespace tqtortho::host
