// SPDX-License-Identifier: Apache-2.0
#include "importers/pix4d_file.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "core/numeric.h"
#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

constexpr std::string_view kBlanks = " \t";

/// The words of a text line by line, lines without words passed over.
class WordLines {
 public:
  explicit WordLines(std::string_view text) : lines_(text) {}
  bool Next() {
    while (lines_.Next(line_)) {
      words_.clear();
      for (std::size_t at = line_.find_first_not_of(kBlanks); at != std::string_view::npos;) {
        const std::size_t stop = std::min(line_.find_first_of(kBlanks, at), line_.size());
        words_.push_back(line_.substr(at, stop - at));
        at = line_.find_first_not_of(kBlanks, stop);
      }
      if (!words_.empty()) return true;
    }
    return false;
  }
  [[nodiscard]] const std::vector<std::string_view>& Words() const { return words_; }
  [[nodiscard]] std::string_view Line() const { return line_; }
  [[nodiscard]] std::string At() const { return "line " + std::to_string(lines_.Number()) + ": "; }

 private:
  TextLines lines_;
  std::string_view line_;
  std::vector<std::string_view> words_;
};

std::optional<double> Finite(std::string_view word) {
  const auto value = ReadDouble(word);
  return value && std::isfinite(*value) && std::fabs(*value) < 1e12 ? value : std::nullopt;
}

/// The last `count` words as numbers; a name may hold blanks, so counting starts at the end.
std::optional<std::vector<double>> LastNumbers(const std::vector<std::string_view>& words,
                                               std::size_t count) {
  if (words.size() < count) return std::nullopt;
  std::vector<double> out;
  for (std::size_t i = words.size() - count; i < words.size(); ++i) {
    const auto value = Finite(words[i]);
    if (!value) return std::nullopt;
    out.push_back(*value);
  }
  return out;
}

/// A line without its last `count` words and the blanks around them.
std::string NameBefore(const WordLines& lines, std::size_t count) {
  const auto& words = lines.Words();
  const std::string_view last = words[words.size() - count - 1];
  return {words.front().data(),
          static_cast<std::size_t>(last.data() + last.size() - words.front().data())};
}

Matrix3 FromAxes(double omega, double phi, double kappa) {
  return Product(Product(RotationFromAxisAngle({omega, 0, 0}), RotationFromAxisAngle({0, phi, 0})),
                 RotationFromAxisAngle({0, 0, kappa}));
}

constexpr const char* kExportAgain = "; process the project to the end and take the file as it is";

/// "17.49998592x13.12498944mm" of the comment that states the sensor.
bool ReadSensorSize(std::string_view line, Pix4dCamera& camera) {
  const std::size_t digit = line.find_first_of("0123456789");
  const std::size_t cross = line.find('x', std::min(digit, line.size()));
  const std::size_t unit = line.find("mm", std::min(cross, line.size()));
  if (unit == std::string_view::npos) return false;
  const auto width = Finite(line.substr(digit, cross - digit));
  const auto height = Finite(line.substr(cross + 1, unit - cross - 1));
  if (!width || !height || !(*width > 0) || !(*height > 0)) return false;
  camera.sensorWidth = *width;
  camera.sensorHeight = *height;
  return true;
}

}  // namespace

bool IsPix4dExternalText(std::string_view start) {
  WordLines lines(start);
  if (!lines.Next() || lines.Words().size() < 7) return false;
  const char* const names[] = {"imagename", "x", "y", "z", "omega", "phi", "kappa"};
  for (std::size_t i = 0; i < std::size(names); ++i) {
    if (Lower(lines.Words()[i]) != names[i]) return false;
  }
  return true;
}

bool IsPix4dInternalText(std::string_view start) {
  return Lower(start.substr(0, 200)).find("pix4d camera calibration file") != std::string::npos;
}

std::optional<std::vector<Pix4dPose>> ParsePix4dExternal(std::string_view text,
                                                         std::string& error) {
  if (!IsPix4dExternalText(text)) {
    error = std::string("line 1: is not the header imageName X Y Z Omega Phi Kappa") + kExportAgain;
    return std::nullopt;
  }
  WordLines lines(text);
  lines.Next();
  std::vector<Pix4dPose> out;
  std::set<std::string> names;
  while (lines.Next()) {
    const auto values = LastNumbers(lines.Words(), 6);
    if (!values || lines.Words().size() < 7) {
      error = lines.At() + "is no name and six finite numbers" + kExportAgain;
      return std::nullopt;
    }
    const auto& v = *values;
    out.push_back({NameBefore(lines, 6),
                   {v[0], v[1], v[2]},
                   FromAxes(v[3] * kDegree, v[4] * kDegree, v[5] * kDegree)});
    if (!names.insert(out.back().name).second) {
      error = lines.At() + "names " + out.back().name + " a second time" + kExportAgain;
      return std::nullopt;
    }
  }
  if (out.empty()) {
    error = std::string("line 1: no photo follows the header") + kExportAgain;
    return std::nullopt;
  }
  return out;
}

std::optional<std::vector<Pix4dCamera>> ParsePix4dInternal(std::string_view text,
                                                           std::string& error) {
  WordLines lines(text);
  std::vector<Pix4dCamera> out;
  std::set<std::string> seen;
  const char* const needed[] = {"sensor", "f", "px", "py", "k1", "k2", "k3", "t1", "t2"};
  const auto complete = [&] {
    for (const char* key : needed) {
      if (seen.contains(key)) continue;
      error = lines.At() + "camera " + std::to_string(out.size()) + " ends without " + key +
              "; only the file of a perspective camera, named ..._pix4d_calibrated_internal_" +
              "camera_parameters.cam, can be read";
      return false;
    }
    return true;
  };
  while (lines.Next()) {
    const auto& words = lines.Words();
    const std::string low = Lower(lines.Line());
    if (low.find("camera calibration file") != std::string::npos) {
      if (!out.empty() && !complete()) return std::nullopt;
      out.emplace_back();
      seen.clear();
      continue;
    }
    if (low.find("fisheye") != std::string::npos) {
      error = lines.At() + "fisheye cameras cannot be expressed; undistort the photos";
      return std::nullopt;
    }
    if (out.empty()) continue;
    Pix4dCamera& camera = out.back();
    if (low.find("assuming a sensor width of") != std::string::npos) {
      if (!ReadSensorSize(lines.Line(), camera)) {
        error = lines.At() + "states no sensor size in mm" + kExportAgain;
        return std::nullopt;
      }
      seen.insert("sensor");
      continue;
    }
    const std::pair<const char*, double*> fields[] = {
        {"f", &camera.focal}, {"px", &camera.principalX}, {"py", &camera.principalY},
        {"k1", &camera.k1},   {"k2", &camera.k2},         {"k3", &camera.k3},
        {"t1", &camera.t1},   {"t2", &camera.t2}};
    for (const auto& [key, target] : fields) {
      if (Lower(words[0]) != key) continue;
      const auto value = words.size() == 2 ? Finite(words[1]) : std::nullopt;
      if (!value || !seen.insert(key).second) {
        error = lines.At() + std::string(words[0]) +
                (value ? " stands twice" : " is not followed by one finite number") + kExportAgain;
        return std::nullopt;
      }
      *target = *value;
    }
  }
  if (out.empty()) {
    error = "line 1: holds no \"Pix4D camera calibration file\"; take the file named " +
            std::string("..._pix4d_calibrated_internal_camera_parameters.cam");
    return std::nullopt;
  }
  if (!complete()) return std::nullopt;
  return out;
}

std::optional<std::vector<Pix4dCalibratedPhoto>> ParsePix4dCalibrated(std::string_view text,
                                                                      std::string& error) {
  WordLines lines(text);
  // The legend: what follows for each photo, one item a line, up to the projection.
  bool legend = false;
  while (!legend && lines.Next()) {
    legend = Lower(lines.Line()).find("camera model") != std::string::npos;
  }
  if (!legend) {
    error = std::string("line 1: does not begin with a legend of camera parameters") + kExportAgain;
    return std::nullopt;
  }
  std::vector<Pix4dCalibratedPhoto> out;
  while (lines.Next()) {
    Pix4dCalibratedPhoto photo;
    const auto size = LastNumbers(lines.Words(), 2);
    if (!size || lines.Words().size() < 3 || !((*size)[0] >= 2 && (*size)[0] <= 1e6) ||
        !((*size)[1] >= 2 && (*size)[1] <= 1e6)) {
      error = lines.At() + "is no name, width and height" + kExportAgain;
      return std::nullopt;
    }
    photo.name = NameBefore(lines, 2);
    SourceLens& lens = photo.lens;
    lens.projection = "perspective";
    lens.width = static_cast<int>((*size)[0]);
    lens.height = static_cast<int>((*size)[1]);
    // K in three lines, radial, tangential, position, then rotation in three lines.
    std::vector<double> values;
    for (const std::size_t count : {3U, 3U, 3U, 3U, 2U, 3U, 3U, 3U, 3U}) {
      const auto row = lines.Next() && lines.Words().size() == count
                           ? LastNumbers(lines.Words(), count)
                           : std::nullopt;
      if (!row) {
        error = lines.At() + "photo " + photo.name + ": not " + std::to_string(count) +
                " finite numbers" + kExportAgain;
        return std::nullopt;
      }
      values.insert(values.end(), row->begin(), row->end());
    }
    const double longer = lens.Size();
    lens.focalX = values[0] / longer;
    lens.skew = values[1] / longer;
    lens.focalY = values[4] / longer;
    lens.centreX = (values[2] - 0.5 * lens.width) / longer;
    lens.centreY = (values[5] - 0.5 * lens.height) / longer;
    lens.k1 = values[9];
    lens.k2 = values[10];
    lens.k3 = values[11];
    lens.p1 = values[12];
    lens.p2 = values[13];
    out.push_back(std::move(photo));
  }
  return out;
}

std::optional<Vector3> ParsePix4dOffset(std::string_view text) {
  WordLines lines(text);
  std::vector<double> values;
  while (lines.Next()) {
    for (const std::string_view word : lines.Words()) {
      const auto value = Finite(word);
      if (!value || values.size() == 3) return std::nullopt;
      values.push_back(*value);
    }
  }
  if (values.size() != 3) return std::nullopt;
  return Vector3{values[0], values[1], values[2]};
}

std::optional<SourceLens> LensOfPix4d(const Pix4dCamera& camera, int width, int height,
                                      std::string& error) {
  const double size = camera.sensorWidth / width;
  // A row or column more or less is within what a sensor size rounded to a micrometre says.
  if (!(std::fabs(camera.sensorHeight / size - height) < 1)) {
    error = "its sensor of " + Exact(camera.sensorWidth) + " x " + Exact(camera.sensorHeight) +
            " mm does not have the shape of photos of " + std::to_string(width) + " x " +
            std::to_string(height) + " pixels; give the photos that were calibrated with --images";
    return std::nullopt;
  }
  SourceLens lens;
  lens.projection = "perspective";
  lens.width = width;
  lens.height = height;
  const double longer = lens.Size();
  lens.focalX = lens.focalY = camera.focal / size / longer;
  lens.centreX = (camera.principalX / size - 0.5 * width) / longer;
  lens.centreY = (camera.principalY / size - 0.5 * height) / longer;
  lens.k1 = camera.k1;
  lens.k2 = camera.k2;
  lens.k3 = camera.k3;
  lens.p1 = camera.t1;
  lens.p2 = camera.t2;
  return lens;
}

}  // namespace tqtortho::host
