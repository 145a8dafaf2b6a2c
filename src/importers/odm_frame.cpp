// SPDX-License-Identifier: Apache-2.0
#include "importers/odm_frame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <sstream>
#include <utility>

#include "survey/number_text.h"

namespace tqtortho::host {
namespace {

// Half the distance over which the map's derivative is taken. The map curves so little that
// rounding of coordinates in millions of metres is what counts.
constexpr double kStepM = 50;
// A turn is decided when the two candidates are this many standard errors apart.
constexpr double kTurnSureness = 4;
constexpr std::size_t kFewestPhotos = 3;

/// Derivative of the map at a point, or nothing.
std::optional<Matrix3> MapDerivative(const Vector3& at, const TopocentricToGrid& toGrid) {
  Matrix3 out{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Vector3 before = at, after = at;
    before[axis] -= kStepM;
    after[axis] += kStepM;
    const auto a = toGrid(before), b = toGrid(after);
    if (!a || !b) return std::nullopt;
    for (std::size_t i = 0; i < 3; ++i) out[3 * i + axis] = ((*b)[i] - (*a)[i]) / (2 * kStepM);
  }
  return out;
}

struct Turn {
  double angle = 0;
  double error = std::numeric_limits<double>::infinity();
};

/// Turn in the plane that takes positions (first two of a pair) best onto projection centres.
Turn TurnOfCentres(std::vector<std::array<double, 4>> pairs) {
  std::array<double, 4> mean{};
  for (const auto& p : pairs) {
    for (std::size_t i = 0; i < 4; ++i) mean[i] += p[i];
  }
  if (pairs.size() < kFewestPhotos) return {};
  const double count = static_cast<double>(pairs.size());
  double dot = 0, cross = 0, spread = 0;
  for (auto& p : pairs) {
    for (std::size_t i = 0; i < 4; ++i) p[i] -= mean[i] / count;
    dot += p[0] * p[2] + p[1] * p[3];
    cross += p[0] * p[3] - p[1] * p[2];
    spread += p[0] * p[0] + p[1] * p[1];
  }
  Turn turn;
  turn.angle = std::atan2(cross, dot);
  const double c = std::cos(turn.angle), s = std::sin(turn.angle);
  double square = 0;
  for (const auto& p : pairs) {
    const double dx = p[2] - (c * p[0] - s * p[1]), dy = p[3] - (s * p[0] + c * p[1]);
    square += dx * dx + dy * dy;
  }
  // Of 2n equations three unknowns (turn and shift) are taken; each residual component turns by its
  // size over the lever arm.
  if (spread > 0) turn.error = std::sqrt(square / (2 * count - 3) / spread);
  return turn;
}

/// A finding that knows the map's turn only.
std::optional<FrameFinding> GridTurn(const TopocentricToGrid& toGrid) {
  const auto derivative = MapDerivative({0, 0, 0}, toGrid);
  if (!derivative) return std::nullopt;
  FrameFinding finding;
  finding.gridTurn = std::atan2((*derivative)[3], (*derivative)[0]);
  return finding;
}

/// Decides between the turns that either frame would show.
void Judge(const Turn& turn, double ifGrid, double ifLocal, FrameFinding& finding) {
  finding.foundTurn = turn.angle;
  finding.turnError = turn.error;
  const double apart = std::fabs(ifGrid - ifLocal);
  const double toGrid = std::fabs(turn.angle - ifGrid), toLocal = std::fabs(turn.angle - ifLocal);
  // A turn that is neither (positions of other photos, of another map) tells nothing.
  finding.certain = apart > kTurnSureness * turn.error && std::min(toGrid, toLocal) < apart / 2;
  if (finding.certain && toLocal < toGrid) finding.frame = OdmFrame::kTopocentric;
}

}  // namespace

std::optional<FrameFinding> FindFrame(const std::vector<OpenSfmShot>& shots,
                                      const TopocentricToGrid& toGrid) {
  std::vector<std::array<double, 4>> pairs;
  for (const OpenSfmShot& shot : shots) {
    if (!shot.gps) continue;
    pairs.push_back({(*shot.gps)[0], (*shot.gps)[1], shot.centre[0], shot.centre[1]});
  }
  auto finding = GridTurn(toGrid);
  if (finding) Judge(TurnOfCentres(std::move(pairs)), finding->gridTurn, 0, *finding);
  return finding;
}

std::optional<FrameFinding> FindFrame(const std::vector<OpenSfmShot>& shots,
                                      const GridPositions& positions,
                                      const TopocentricToGrid& toGrid) {
  std::vector<std::array<double, 4>> pairs;
  for (const OpenSfmShot& shot : shots) {
    const auto at = positions.find(shot.name);
    if (at == positions.end()) continue;
    pairs.push_back({at->second[0], at->second[1], shot.centre[0], shot.centre[1]});
  }
  auto finding = GridTurn(toGrid);
  if (finding) Judge(TurnOfCentres(std::move(pairs)), 0, -finding->gridTurn, *finding);
  return finding;
}

std::optional<GroundPose> PoseThrough(const Vector3& centre, const Matrix3& cameraToFrame,
                                      const TopocentricToGrid& toGrid) {
  const auto onGrid = toGrid(centre);
  const auto derivative = MapDerivative(centre, toGrid);
  if (!onGrid || !derivative) return std::nullopt;
  return GroundPose{*onGrid, Product(NearestRotation(*derivative), cameraToFrame)};
}

std::optional<GroundPose> PoseFromTopocentric(const OpenSfmShot& shot,
                                              const TopocentricToGrid& toGrid) {
  return PoseThrough(shot.centre, CameraToGround(shot.rotation), toGrid);
}

GroundPose PoseFromGrid(const OpenSfmShot& shot, double offsetEast, double offsetNorth) {
  return {{shot.centre[0] + offsetEast, shot.centre[1] + offsetNorth, shot.centre[2]},
          CameraToGround(shot.rotation)};
}

std::optional<std::array<double, 2>> ParseCoordsOffset(std::string_view text) {
  // First line: the name of the grid; second: the offset; then one line per photo.
  std::istringstream in{std::string(text)};
  std::string grid, east, north;
  if (!std::getline(in, grid) || !(in >> east >> north)) return std::nullopt;
  const auto e = ReadDouble(east), n = ReadDouble(north);
  if (!e || !n || !std::isfinite(*e) || !std::isfinite(*n)) return std::nullopt;
  return std::array<double, 2>{*e, *n};
}

std::vector<std::array<double, 2>> ParseCoordsPositions(std::string_view text) {
  std::istringstream in{std::string(text)};
  std::string line, east, north;
  if (!std::getline(in, line) || !std::getline(in, line)) return {};
  std::vector<std::array<double, 2>> out;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    if (!(fields >> east)) continue;  // an empty line
    const auto e = ReadDouble(east), n = fields >> north ? ReadDouble(north) : std::nullopt;
    if (!e || !n || !std::isfinite(*e) || !std::isfinite(*n)) return {};
    out.push_back({*e, *n});
  }
  return out;
}

}  // namespace tqtortho::host
