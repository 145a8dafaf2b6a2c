// SPDX-License-Identifier: Apache-2.0
#include "importers/pose_table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <utility>

#include "core/numeric.h"
#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

constexpr double kLargestAngle = 1e4;
// Steeper than this a pitch cannot be that of a body whose camera looks down.
constexpr double kGimbalPitch = -45;
constexpr int kColumns = 13;

enum Column {
  kName,
  kX,
  kY,
  kZ,
  kLongitude,
  kLatitude,
  kOmega,
  kPhi,
  kKappa,
  kRoll,
  kPitch,
  kYaw,
  kCamera
};
const char* const kTitles[kColumns] = {"name",     "x",     "y",     "z",     "longitude",
                                       "latitude", "omega", "phi",   "kappa", "roll",
                                       "pitch",    "yaw",   "camera"};

struct Spelling {
  const char* text;
  Column column;
};
constexpr Spelling kSpellings[] = {{"filename", kName},
                                   {"file", kName},
                                   {"name", kName},
                                   {"image", kName},
                                   {"imagename", kName},
                                   {"photo", kName},
                                   {"label", kName},
                                   {"x", kX},
                                   {"east", kX},
                                   {"easting", kX},
                                   {"x/east", kX},
                                   {"x/easting", kX},
                                   {"y", kY},
                                   {"north", kY},
                                   {"northing", kY},
                                   {"y/north", kY},
                                   {"y/northing", kY},
                                   {"z", kZ},
                                   {"height", kZ},
                                   {"altitude", kZ},
                                   {"alt", kZ},
                                   {"elevation", kZ},
                                   {"z/altitude", kZ},
                                   {"z/height", kZ},
                                   {"longitude", kLongitude},
                                   {"lon", kLongitude},
                                   {"lng", kLongitude},
                                   {"long", kLongitude},
                                   {"latitude", kLatitude},
                                   {"lat", kLatitude},
                                   {"omega", kOmega},
                                   {"phi", kPhi},
                                   {"kappa", kKappa},
                                   {"roll", kRoll},
                                   {"pitch", kPitch},
                                   {"yaw", kYaw},
                                   {"heading", kYaw},
                                   {"gimbalroll", kRoll},
                                   {"gimbalpitch", kPitch},
                                   {"gimbalyaw", kYaw},
                                   {"camera", kCamera},
                                   {"cameraid", kCamera},
                                   {"sensor", kCamera}};

enum class Unit { kNone, kDegrees, kRadians, kMetres, kOther };

/// Takes the unit off a column's title: "omega[deg]", "omega (deg)", "omega_deg".
Unit TakeUnit(std::string& title) {
  static const std::map<std::string, Unit> kUnits = {
      {"deg", Unit::kDegrees},      {"degree", Unit::kDegrees}, {"degrees", Unit::kDegrees},
      {"\xC2\xB0", Unit::kDegrees}, {"rad", Unit::kRadians},    {"radian", Unit::kRadians},
      {"radians", Unit::kRadians},  {"m", Unit::kMetres},       {"metre", Unit::kMetres},
      {"metres", Unit::kMetres},    {"meter", Unit::kMetres},   {"meters", Unit::kMetres}};
  const std::size_t open = title.find_first_of("[(");
  if (open != std::string::npos) {
    const std::size_t close = title.find_first_of("])", open);
    const std::string inside(Trimmed(std::string_view(title).substr(
        open + 1, close == std::string::npos ? close : close - open - 1)));
    title = Trimmed(std::string_view(title).substr(0, open));
    const auto unit = kUnits.find(inside);
    return unit != kUnits.end() ? unit->second : Unit::kOther;
  }
  const std::size_t bar = title.rfind('_');
  if (bar == std::string::npos) return Unit::kNone;
  const auto unit = kUnits.find(title.substr(bar + 1));
  if (unit == kUnits.end()) return Unit::kNone;
  title.resize(bar);
  return unit->second;
}

/// Where which column stands, and in which unit angles are.
struct Header {
  char separator = ',';
  std::size_t count = 0;
  std::array<int, kColumns> at{};
  Unit angles = Unit::kNone;
  bool gimbal = false;

  [[nodiscard]] bool Has(std::initializer_list<Column> columns) const {
    return std::all_of(columns.begin(), columns.end(), [this](Column c) { return at[c] >= 0; });
  }
  [[nodiscard]] bool Plane() const { return Has({kX, kY, kZ}); }
  [[nodiscard]] bool MapAngles() const { return Has({kOmega, kPhi, kKappa}); }
};

bool ReadUnit(Column column, Unit unit, const std::string& title, Header& header,
              std::string& error) {
  const bool angle = column >= kOmega && column <= kYaw;
  const bool fits = unit == Unit::kNone ||
                    (angle && unit != Unit::kMetres && unit != Unit::kOther) ||
                    (column >= kX && column <= kZ && unit == Unit::kMetres) ||
                    ((column == kLongitude || column == kLatitude) && unit == Unit::kDegrees);
  if (!fits) {
    error = "line 1: the unit of column \"" + title + "\" is not known; use " +
            (angle                          ? "deg or rad"
             : column >= kX && column <= kZ ? "m"
                                            : "deg");
    return false;
  }
  if (!angle || unit == Unit::kNone) return true;
  if (header.angles != Unit::kNone && header.angles != unit) {
    error = "line 1: column \"" + title + "\" has another unit than the angles before it";
    return false;
  }
  header.angles = unit;
  return true;
}

bool ReadHeader(std::string_view line, Header& header, std::string& error) {
  if (!line.empty() && line.front() == '#') line.remove_prefix(1);
  header.separator = SeparatorOf(line);
  header.at.fill(-1);
  std::vector<std::string> titles;
  if (!SplitFields(line, header.separator, titles)) {
    error = "line 1: a quote is not closed";
    return false;
  }
  header.count = titles.size();
  for (std::size_t i = 0; i < titles.size(); ++i) {
    std::string title = Lower(titles[i]);
    const Unit unit = TakeUnit(title);
    std::string plain;
    for (const char c : title) {
      if (c != ' ' && c != '_' && c != '-') plain += c;
    }
    for (const auto& [text, column] : kSpellings) {
      if (plain != text) continue;
      if (header.at[column] >= 0) {
        error = "line 1: column \"" + titles[i] + "\" is a second one for " + kTitles[column] +
                "; keep one";
        return false;
      }
      if (!ReadUnit(column, unit, titles[i], header, error)) return false;
      header.at[column] = static_cast<int>(i);
      header.gimbal = header.gimbal || plain == "gimbalpitch";
    }
  }
  const bool position = header.Plane() || header.Has({kLongitude, kLatitude, kZ});
  const bool attitude = header.MapAngles() || header.Has({kRoll, kPitch, kYaw});
  if (header.at[kName] >= 0 && position && attitude) return true;
  error = std::string("line 1: the header names no column for ") +
          (header.at[kName] < 0 ? "the photo (filename)"
           : !position          ? "the position (x, y, z or longitude, latitude, altitude)"
                                : "the attitude (omega, phi, kappa or roll, pitch, yaw)");
  return false;
}

/// A number, with a decimal comma where no comma separates.
std::optional<double> ReadNumber(std::string text, char separator) {
  if (separator != ',' && std::count(text.begin(), text.end(), ',') == 1 &&
      text.find('.') == std::string::npos) {
    std::replace(text.begin(), text.end(), ',', '.');
  }
  const auto value = ReadDouble(text);
  return value && std::isfinite(*value) && std::fabs(*value) < 1e12 ? value : std::nullopt;
}

Matrix3 AboutAxes(std::initializer_list<std::pair<int, double>> turns) {
  Matrix3 out = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (const auto& [axis, angle] : turns) {
    Vector3 v{};
    v[static_cast<std::size_t>(axis)] = angle;
    out = Product(out, RotationFromAxisAngle(v));
  }
  return out;
}

/// Camera to true east, north, up. The body's axes are nose, right, belly, its frame north, east,
/// down; the camera's axes are right, up, backward.
Matrix3 FromBody(double roll, double pitch, double yaw, bool gimbal) {
  const Matrix3 bodyToNed = AboutAxes({{2, yaw}, {1, pitch}, {0, roll}});
  const Matrix3 nedToEnu = {0, 1, 0, 1, 0, 0, 0, 0, -1};
  // A gimbal's nose is its line of sight; a body's belly is.
  const Matrix3 cameraToBody =
      gimbal ? Matrix3{0, 0, -1, 1, 0, 0, 0, -1, 0} : Matrix3{0, 1, 0, 1, 0, 0, 0, 0, -1};
  return Product(nedToEnu, Product(bodyToNed, cameraToBody));
}

using Angles = std::array<double, 3>;

/// Reads one row but its angles' meaning, which only all rows together tell.
bool ReadRow(const Header& header, const std::vector<std::string>& fields, PoseRow& row,
             Angles& angles, std::string& error) {
  const std::string at = "line " + std::to_string(row.line) + ": ";
  if (fields.size() != header.count) {
    error = at + "has " + std::to_string(fields.size()) + " columns, the header " +
            std::to_string(header.count) + "; quote names that hold separators";
    return false;
  }
  const auto field = [&](Column c) { return fields[static_cast<std::size_t>(header.at[c])]; };
  row.name = field(kName);
  if (header.at[kCamera] >= 0) row.camera = field(kCamera);
  if (row.name.empty()) {
    error = at + "names no photo";
    return false;
  }
  const bool plane = header.Plane(), map = header.MapAngles();
  const Column wanted[] = {plane ? kX : kLongitude, plane ? kY : kLatitude, kZ,
                           map ? kOmega : kRoll,    map ? kPhi : kPitch,    map ? kKappa : kYaw};
  for (std::size_t i = 0; i < std::size(wanted); ++i) {
    const auto value = ReadNumber(field(wanted[i]), header.separator);
    if (!value || (i > 2 && std::fabs(*value) > kLargestAngle)) {
      error = at + kTitles[wanted[i]] + " \"" + field(wanted[i]).substr(0, 30) + "\" is no " +
              (value ? "angle" : "finite number");
      return false;
    }
    (i < 3 ? row.position[i] : angles[i - 3]) = *value;
  }
  if (!plane && !(std::fabs(row.position[0]) <= 360 && std::fabs(row.position[1]) <= 90)) {
    error = at + "longitude and latitude are not degrees on the earth (exchanged?)";
    return false;
  }
  return true;
}

/// Turns the angles of all rows into rotations, saying what was taken for granted.
void FinishAngles(const Header& header, std::vector<Angles>& angles, PoseTable& table) {
  double largest = 0;
  for (const Angles& a : angles) {
    for (const double v : a) largest = std::max(largest, std::fabs(v));
  }
  const bool radians = header.angles == Unit::kRadians;
  if (header.angles == Unit::kNone) {
    table.notes.push_back(
        largest > 2 * std::numbers::pi
            ? "angles are taken as degrees: one of them is " + Fixed(largest, 1)
            : "angles are taken as degrees, though all are below 6.3; head the columns "
              "omega[rad] ... if they are radians");
  }
  if (!radians) {
    for (Angles& a : angles) {
      for (double& v : a) v *= kDegree;
    }
  }
  bool gimbal = header.gimbal;
  if (table.trueNorth && !gimbal) {
    gimbal = std::all_of(angles.begin(), angles.end(),
                         [](const Angles& a) { return a[1] < kGimbalPitch * kDegree; });
    if (gimbal) table.notes.push_back("pitch is taken as a gimbal's, where -90 looks down");
  }
  for (std::size_t i = 0; i < angles.size(); ++i) {
    const Angles& a = angles[i];
    table.rows[i].cameraToFrame = table.trueNorth ? FromBody(a[0], a[1], a[2], gimbal)
                                                  : AboutAxes({{0, a[0]}, {1, a[1]}, {2, a[2]}});
  }
}

}  // namespace

bool IsPoseTableText(std::string_view start) {
  TextLines lines(start);
  std::string_view line;
  Header header;
  std::string error;
  return lines.Next(line) && ReadHeader(line, header, error);
}

std::optional<PoseTable> ParsePoseTable(std::string_view text, std::string& error) {
  TextLines lines(text);
  std::string_view line;
  Header header;
  if (!lines.Next(line)) {
    error = "line 1: the file is empty";
    return std::nullopt;
  }
  if (!ReadHeader(line, header, error)) return std::nullopt;
  PoseTable table;
  table.geographic = !header.Plane();
  table.trueNorth = !header.MapAngles();
  std::vector<Angles> angles;
  std::map<std::string, int> names;
  std::vector<std::string> fields;
  while (lines.Next(line)) {
    if (Trimmed(line).empty() || line.front() == '#') continue;
    PoseRow row;
    row.line = lines.Number();
    const std::string at = "line " + std::to_string(row.line) + ": ";
    if (!SplitFields(line, header.separator, fields)) {
      error = at + "a quote is not closed, or text follows it";
      return std::nullopt;
    }
    Angles attitude{};
    if (!ReadRow(header, fields, row, attitude, error)) return std::nullopt;
    const auto [known, fresh] = names.insert({row.name, row.line});
    if (!fresh) {
      error = at + "names " + row.name + " again, after line " + std::to_string(known->second);
      return std::nullopt;
    }
    table.rows.push_back(std::move(row));
    angles.push_back(attitude);
  }
  if (table.rows.empty()) {
    error = "line 1: no photo follows the header";
    return std::nullopt;
  }
  FinishAngles(header, angles, table);
  return table;
}

}  // namespace tqtortho::host
