// SPDX-License-Identifier: Apache-2.0
#include "source_options.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "commands.h"
#include "importers/project_import.h"
#include "one_line.h"
#include "option_checks.h"
#include "survey/number_text.h"
#include "survey/survey_reader.h"

namespace tqtortho::app {
namespace {

using host::ProjectKind;

struct ProjectOption {
  const char* option;
  std::optional<ProjectKind> kind;  ///< nothing: find out
  const char* type;
  const char* help;
};

const ProjectOption kProjectOptions[] = {
    {"--project", std::nullopt, "PATH",
     "directory or file of another tool's survey; which tool made it is recognised by content"},
    {"--odm", ProjectKind::kOdm, "DIR", "OpenDroneMap project, as it lies on disk"},
    {"--opensfm", ProjectKind::kOpenSfm, "PATH", "OpenSfM project or its reconstruction.json"},
    {"--colmap", ProjectKind::kColmap, "DIR",
     "georeferenced COLMAP model, text or binary; needs --crs"},
    {"--metashape", ProjectKind::kMetashape, "FILE", "Metashape cameras, exported as XML"},
    {"--pix4d", ProjectKind::kPix4d, "DIR", "Pix4D project or its folder 1_initial/params"},
    {"--poses", ProjectKind::kPoseTable, "FILE",
     "table of poses with a header (CSV); needs --camera-file"},
};

/// "E,N" or "E,N,H".
std::optional<host::Vector3> ReadOffset(std::string_view text) {
  host::Vector3 offset{};
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t comma = text.find(',');
    const auto value = host::ReadDouble(text.substr(0, comma));
    if (!value || !std::isfinite(*value)) return std::nullopt;
    offset[i] = *value;
    if (comma == std::string_view::npos) return i >= 1 ? std::optional(offset) : std::nullopt;
    text.remove_prefix(comma + 1);
  }
  return std::nullopt;
}

std::optional<host::Survey> LoadLists(const SourceOptions& source, bool listAll) {
  if (source.cameras.empty() || source.photos.empty()) {
    Complain(std::string("a camera and a photo list go together; give ") +
             (source.cameras.empty() ? "--cameras" : "--photos") + " FILE as well");
    return std::nullopt;
  }
  for (const auto& [value, option] :
       {std::pair(&source.images, "--images"), std::pair(&source.offset, "--offset"),
        std::pair(&source.cameraFile, "--camera-file")}) {
    if (value->empty()) continue;
    Complain(std::string(option) + " is of no use with --cameras and --photos; leave it out");
    return std::nullopt;
  }
  if (source.frame != "auto") {
    Complain("--frame is of no use with --cameras and --photos; leave it out");
    return std::nullopt;
  }
  std::vector<std::string> problems;
  auto survey = host::ReadSurvey(source.cameras, source.photos, problems);
  if (!problems.empty()) ComplainOfFirst(problems, listAll);
  if (survey) survey->crs = source.crs;
  return survey;
}

std::optional<host::Survey> LoadProject(const SourceOptions& source, std::size_t index) {
  host::ImportRequest request;
  request.path = source.projects[index];
  request.dsmPath = source.dsm;
  request.photoDir = source.images;
  request.crs = source.crs;
  request.cameraFile = source.cameraFile;
  request.frame = source.frame == "grid"    ? host::FrameChoice::kGrid
                  : source.frame == "local" ? host::FrameChoice::kLocal
                                            : host::FrameChoice::kAuto;
  if (!source.offset.empty()) {
    const auto offset = ReadOffset(source.offset);
    if (!offset) {
      Complain("--offset " + source.offset +
               ": is not E,N or E,N,H; give metres with points, as --offset=292632,2731169,0");
      return std::nullopt;
    }
    request.offset = *offset;
  }
  std::string error;
  const auto kind = kProjectOptions[index].kind;
  auto survey =
      kind ? host::ImportProjectAs(*kind, request, error) : host::ImportProject(request, error);
  if (!survey) Complain(error);
  return survey;
}

}  // namespace

bool SourceOptions::Any() const {
  return !cameras.empty() || !photos.empty() ||
         std::any_of(projects.begin(), projects.end(),
                     [](const std::string& path) { return !path.empty(); });
}

void AddSourceOptions(CLI::App& command, SourceOptions& source) {
  command.add_option("--dsm", source.dsm, "surface model (GeoTIFF, metric coordinates)")
      ->check(Named())
      ->check(Named())
      ->check(Named())
      ->check(Named())
      ->check(Named())
      ->type_name("FILE");
  command.add_option("--cameras", source.cameras, "camera list")->type_name("FILE");
  command.add_option("--photos", source.photos, "photo list")->type_name("FILE");
  for (std::size_t i = 0; i < source.projects.size(); ++i) {
    const ProjectOption& project = kProjectOptions[i];
    command.add_option(project.option, source.projects[i], project.help)
        ->check(Named())
        ->type_name(project.type);
  }
  command
      .add_option("--images", source.images,
                  "where a project's photos lie; default: where it says, else images/ beside it")
      ->type_name("DIR");
  command
      .add_option("--crs", source.crs,
                  "coordinate system of the photos' positions (EPSG:25832); default: what the "
                  "project says, else the DSM's")
      ->type_name("CRS");
  command
      .add_option("--offset", source.offset,
                  "metres to add to the poses' coordinates, a negative one as --offset=-5,0")
      ->type_name("E,N[,H]");
  command
      .add_option("--camera-file", source.cameraFile,
                  "calibration (YAML or JSON) for a table of poses; default: camera.yaml beside it")
      ->type_name("FILE");
  command
      .add_option("--frame", source.frame,
                  "frame of an OpenDroneMap project's poses: the map grid, a local tangent plane, "
                  "or found out")
      ->check(CLI::IsMember({"auto", "grid", "local"}))
      ->capture_default_str();
}

void ComplainOfFirst(const std::vector<std::string>& faults, bool listAll) {
  const std::size_t more = faults.size() - 1;
  if (more == 0) return Complain(faults[0]);
  const std::string others = " (and " + std::to_string(more) + " more";
  if (!listAll) return Complain(faults[0] + others + "; tqtortho info lists them)");
  for (const auto& fault : faults) std::printf("wrong    %s\n", OneLine(fault).c_str());
  Complain(faults[0] + others + ")");
}

std::optional<host::Survey> LoadSurvey(const SourceOptions& source, bool listAll) {
  std::vector<std::string> given;
  std::size_t project = 0;
  if (!source.cameras.empty() || !source.photos.empty()) {
    given.emplace_back(source.cameras.empty() ? "--photos" : "--cameras");
  }
  for (std::size_t i = 0; i < source.projects.size(); ++i) {
    if (source.projects[i].empty()) continue;
    given.emplace_back(kProjectOptions[i].option);
    project = i;
  }
  if (given.empty()) {
    Complain(
        "no survey given; use --project PATH for one of another tool, or --cameras FILE with "
        "--photos FILE (and --dsm)");
    return std::nullopt;
  }
  if (given.size() > 1) {
    Complain(given[0] + " and " + given[1] + " each name a survey; give one of them");
    return std::nullopt;
  }
  return given[0] == "--cameras" || given[0] == "--photos" ? LoadLists(source, listAll)
                                                           : LoadProject(source, project);
}

}  // namespace tqtortho::app
