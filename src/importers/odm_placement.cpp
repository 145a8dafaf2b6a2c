// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_placement.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <numbers>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "geo/Crs.h"
#include "importers/frame_agreement.h"
#include "importers/ground_control.h"
#include "importers/map_frame.h"
#include "survey/number_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr double kDegrees = 180 / std::numbers::pi;
// Frames that differ by less than both are one for every purpose.
constexpr double kNoMatterM = 0.02;
// A third of a pixel at the edge of a 24 megapixel photo.
constexpr double kNoMatterTurn = 1e-4;

std::string Turned(double turn) { return Fixed(turn * kDegrees, 3) + " degrees"; }

/// The positions of coords.txt by photo: one a line in the order of the photos' names. Nothing when
/// their number is not that of the photos in the folder, for then nobody knows whose they are.
GridPositions PositionsOf(const fs::path& coords, const std::string& photoDir) {
  std::string text, ignoredWhy;
  if (!tqfd::ReadWholeFile(coords.string(), limits::kListBytes, text, ignoredWhy)) return {};
  const auto positions = ParseCoordsPositions(text);
  if (positions.empty()) return {};
  std::vector<std::string> names;
  std::error_code failed;
  for (fs::directory_iterator it(photoDir, failed), end; !failed && it != end;
       it.increment(failed)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored)) names.push_back(it->path().filename().string());
  }
  if (names.size() != positions.size()) return {};
  std::sort(names.begin(), names.end());
  GridPositions out;
  for (std::size_t i = 0; i < names.size(); ++i) out.emplace(names[i], positions[i]);
  return out;
}

CameraPlace PlaceOf(const GroundPose& pose) { return {pose.centre, pose.cameraToGround}; }

/// Control brought onto a map; marks that have no place there are dropped.
std::vector<ControlMark> ControlOnMap(const ControlList& list, const std::string& wkt) {
  const MapFrame map(wkt);
  const auto info = geo::DescribeCrs(list.crs);
  std::string ignored;
  const auto toMap = !info              ? std::nullopt
                     : info->geographic ? map.FromGeographic(list.crs, ignored)
                                        : map.FromPlane(list.crs, ignored);
  std::vector<ControlMark> out;
  if (!toMap) return out;
  for (ControlMark mark : list.marks) {
    const auto place = (*toMap)(mark.ground);
    if (!place) continue;
    mark.ground = *place;
    out.push_back(std::move(mark));
  }
  return out;
}

}  // namespace

std::optional<OdmPlacement> OdmPlacement::Create(const OdmEvidence& evidence,
                                                 const OpenSfmReconstruction& file,
                                                 std::vector<std::string>& notes,
                                                 std::string& error) {
  if (!file.hasReference) {
    error =
        "has no reference_lla: the project is not georeferenced; process it with photo "
        "positions or ground control";
    return std::nullopt;
  }
  // Heights stay as they are (above the ellipsoid), whatever vertical part the map has.
  const auto toGrid = MapFrame(evidence.projectWkt)
                          .FromTopocentric({file.longitude, file.latitude, file.altitude}, error);
  if (!toGrid) return std::nullopt;
  OdmPlacement placement;
  placement.toGrid_ = *toGrid;
  placement.toDsm_ = evidence.toDsm;
  const auto turn = FindFrame({}, *toGrid);
  if (!turn || !(*toGrid)({0, 0, 0})) {
    error = "its reference point lies outside the DSM's coordinate system";
    return std::nullopt;
  }
  placement.gridTurn_ = turn->gridTurn;

  std::error_code ignored;
  const fs::path project(evidence.projectDir);
  Finding finding;
  std::string undecided;
  if (evidence.choice == FrameChoice::kLocal) {
    finding = {OdmFrame::kTopocentric, "as --frame says"};
  } else {
    if (!placement.ReadOffset(evidence.projectDir, notes, error)) return std::nullopt;
    if (evidence.choice == FrameChoice::kGrid) {
      finding = {OdmFrame::kGrid, "as --frame says"};
    } else if (fs::exists(project / "opensfm/reconstruction.topocentric.json", ignored)) {
      // A finished project keeps the topocentric poses under this name beside the moved ones.
      finding = {OdmFrame::kGrid, "the local ones are kept beside them"};
    } else if (placement.FramesApart(file) < kNoMatterM &&
               std::fabs(placement.gridTurn_) < kNoMatterTurn) {
      finding = {OdmFrame::kGrid, "a local frame would be the same here"};
    }
    if (finding.why.empty()) finding = placement.FindByLayout(evidence, file);
    if (finding.why.empty()) finding = placement.FindByControl(evidence, file);
    if (finding.why.empty()) finding = placement.FindByPhotos(evidence, file, undecided);
  }
  placement.frame_ = finding.frame;
  const std::string why = finding.why.empty() ? "" : " (" + finding.why + ")";
  if (finding.frame == OdmFrame::kTopocentric) {
    notes.push_back("poses are in a local east-north-up frame" + why +
                    "; converted photo by photo, grid north turned by " +
                    Turned(placement.gridTurn_));
    return placement;
  }
  notes.push_back("poses are on the map grid, offset " + Exact(placement.offset_[0]) + ", " +
                  Exact(placement.offset_[1]) + why);
  if (finding.why.empty()) {
    notes.push_back("whether the poses are on the map grid or in a local frame turned by " +
                    Turned(placement.gridTurn_) + " (up to " +
                    Fixed(placement.FramesApart(file), 2) +
                    " m apart) is told by nothing in the project (" + undecided +
                    "); taken as the grid, say --frame local if the first ortho is off a map");
  }
  return placement;
}

std::optional<GroundPose> OdmPlacement::PlaceIn(
    OdmFrame frame, const OpenSfmShot& shot, const std::optional<TopocentricToGrid>& onward) const {
  const auto pose = frame == OdmFrame::kGrid
                        ? std::optional(PoseFromGrid(shot, offset_[0], offset_[1]))
                        : PoseFromTopocentric(shot, toGrid_);
  if (!pose || !onward) return pose;
  return PoseThrough(pose->centre, pose->cameraToGround, *onward);
}

bool OdmPlacement::ReadOffset(const std::string& projectDir, std::vector<std::string>& notes,
                              std::string& error) {
  const Vector3 reference = toGrid_({0, 0, 0}).value_or(Vector3{});
  const fs::path coords = fs::path(projectDir) / "odm_georeferencing/coords.txt";
  std::string text, ignoredWhy;
  if (tqfd::ReadWholeFile(coords.string(), limits::kListBytes, text, ignoredWhy)) {
    if (const auto offset = ParseCoordsOffset(text)) {
      offset_ = *offset;
      if (std::hypot(offset_[0] - reference[0], offset_[1] - reference[1]) < 1e5) return true;
      error = "its offset in " + coords.string() +
              " does not lie in the DSM's coordinate system; use the DSM as the project wrote it";
      return false;
    }
    notes.push_back(coords.string() + ": holds no offset; taken from the reference point instead");
  }
  offset_ = {reference[0], reference[1]};
  // Offsets are whole metres, and the reference point was computed from them.
  const std::array<double, 2> whole = {std::round(offset_[0]), std::round(offset_[1])};
  if (std::hypot(offset_[0] - whole[0], offset_[1] - whole[1]) < 0.01) offset_ = whole;
  return true;
}

double OdmPlacement::FramesApart(const OpenSfmReconstruction& file) const {
  double largest = 0;
  for (const OpenSfmShot& shot : file.shots) {
    const auto grid = PlaceIn(OdmFrame::kGrid, shot, std::nullopt);
    const auto local = PlaceIn(OdmFrame::kTopocentric, shot, std::nullopt);
    if (!grid || !local) continue;
    double square = 0;
    for (std::size_t i = 0; i < 3; ++i) square += std::pow(grid->centre[i] - local->centre[i], 2);
    largest = std::max(largest, std::sqrt(square));
  }
  return largest;
}

OdmPlacement::Finding OdmPlacement::FindByLayout(const OdmEvidence& evidence,
                                                 const OpenSfmReconstruction& file) const {
  const auto told = [](const FrameFinding& found, const char* whose) {
    return Finding{found.frame, std::string("turned by ") + Turned(found.foundTurn) + " +- " +
                                    Fixed(found.turnError * kDegrees, 3) + " against " + whose};
  };
  if (const auto found = FindFrame(file.shots, toGrid_); found && found->certain) {
    return told(*found, "the photos' own positions, which are local");
  }
  const auto positions = PositionsOf(
      fs::path(evidence.projectDir) / "odm_georeferencing/coords.txt", evidence.photoDir);
  if (const auto found = FindFrame(file.shots, positions, toGrid_); found && found->certain) {
    return told(*found, "the positions in coords.txt, which are on the grid");
  }
  return {};
}

OdmPlacement::Finding OdmPlacement::FindByControl(const OdmEvidence& evidence,
                                                  const OpenSfmReconstruction& file) const {
  std::string text, ignoredWhy;
  const fs::path control = fs::path(evidence.projectDir) / "gcp_list.txt";
  if (!tqfd::ReadWholeFile(control.string(), limits::kListBytes, text, ignoredWhy)) return {};
  const auto list = ParseControlList(text);
  if (!list) return {};
  std::map<std::string, const OpenSfmShot*> shots;
  for (const OpenSfmShot& shot : file.shots) shots.emplace(shot.name, &shot);
  const auto find = [&](const std::string& photo) -> std::optional<ControlView> {
    auto at = shots.find(photo);
    if (at == shots.end()) at = shots.find(fs::path(photo).stem().string());
    if (at == shots.end()) return std::nullopt;
    const OpenSfmShot* shot = at->second;
    const auto camera = file.cameras.find(shot->camera);
    const auto grid = PlaceIn(OdmFrame::kGrid, *shot, std::nullopt);
    const auto local = PlaceIn(OdmFrame::kTopocentric, *shot, std::nullopt);
    if (camera == file.cameras.end() || !camera->second.fault.empty() || !grid || !local) {
      return std::nullopt;
    }
    return ControlView{camera->second.lens, PlaceOf(*grid), PlaceOf(*local)};
  };
  const ControlResidual found = CompareControl(ControlOnMap(*list, evidence.projectWkt), find);
  const int decides = found.Decides();
  if (decides == 0) return {};
  const double better = std::min(found.first, found.second);
  return {decides < 0 ? OdmFrame::kGrid : OdmFrame::kTopocentric,
          "ground control is off by " + Fixed(better, 1) + " per mille of the photo's side so, " +
              Fixed(std::max(found.first, found.second), 1) + " otherwise, in " +
              std::to_string(found.count) + " marks"};
}

OdmPlacement::Finding OdmPlacement::FindByPhotos(const OdmEvidence& evidence,
                                                 const OpenSfmReconstruction& file,
                                                 std::string& undecided) const {
  std::vector<std::string> names;
  for (const OpenSfmShot& shot : file.shots) names.push_back(shot.name);
  const std::vector<std::string> paths = FindPhotoFiles(evidence.photoDir, names);
  std::vector<TwoPlaces> photos;
  for (std::size_t i = 0; i < file.shots.size(); ++i) {
    const OpenSfmShot& shot = file.shots[i];
    const auto camera = file.cameras.find(shot.camera);
    if (paths[i].empty() || camera == file.cameras.end() || !camera->second.fault.empty()) continue;
    const auto grid = PlaceIn(OdmFrame::kGrid, shot, toDsm_);
    const auto local = PlaceIn(OdmFrame::kTopocentric, shot, toDsm_);
    if (!grid || !local) continue;
    photos.push_back({paths[i], camera->second.lens, PlaceOf(*grid), PlaceOf(*local)});
  }
  const FrameAgreement found = CompareFrames(evidence.dsmPath, photos);
  const std::string figures = found.fit.count == 0
                                  ? std::string()
                                  : Fixed(found.fit.share, 2) + " +- " + Fixed(found.fit.error, 2) +
                                        " of the way from the grid to the local frame, by " +
                                        std::to_string(found.fit.count) + " patches of " +
                                        std::to_string(found.pairs) + " pairs";
  const int decides = found.fit.Decides();
  if (decides < 0) {
    undecided = figures.empty() ? "no two photos show relief of the DSM together"
                                : "photos see the DSM's relief at " + figures;
    return {};
  }
  return {decides == 0 ? OdmFrame::kGrid : OdmFrame::kTopocentric,
          "photos see the DSM's relief at " + figures};
}

}  // namespace tqtortho::host
