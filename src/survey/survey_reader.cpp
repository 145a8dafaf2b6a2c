// SPDX-License-Identifier: Apache-2.0
#include "survey/survey_reader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <numbers>
#include <set>
#include <system_error>
#include <utility>

#include "core/limits.h"
#include "core/stop_flag.h"
#include "survey/number_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostProblems = 100;
constexpr std::size_t kLongestName = limits::kNameBytes;
constexpr double kLargestImage = 1e6;
// A principal point lies within a few per cent of the image centre; nearer to the border than this
// it was given in another unit or measured from the centre.
constexpr double kPrincipalMargin = 0.05;
constexpr double kFocalLow = 0.05, kFocalHigh = 100;  // of the sensor width

/// Lines of one file with their numbers, and the problems found in them.
class LineReader {
 public:
  LineReader(std::string_view text, const std::string& file, std::vector<std::string>& problems)
      : text_(text), file_(file), problems_(problems) {
    if (text_.starts_with("\xEF\xBB\xBF")) text_.remove_prefix(3);
  }

  /// The next line without its end; false at the end of the file.
  bool Next(std::string_view& line) {
    if (text_.empty()) return false;
    const std::size_t end = text_.find('\n');
    line = text_.substr(0, end);
    text_.remove_prefix(end == std::string_view::npos ? text_.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    ++number_;
    return true;
  }
  void Problem(const std::string& what) {
    if (problems_.size() < kMostProblems) {
      problems_.push_back(file_ + ":" + std::to_string(number_) + ": " + what);
    } else if (problems_.size() == kMostProblems) {
      problems_.push_back(file_ + ": more problems follow; mend these first");
    }
  }
  /// A count or id that stands alone on the next line.
  std::optional<int> WholeNumber(const std::string& what, int lowest) {
    std::string_view line;
    if (!Next(line)) {
      ++number_;
      Problem("the file ends where " + what + " should stand; complete it");
      return std::nullopt;
    }
    const auto fields = Fields(line);
    const auto value = fields.size() == 1 ? ReadInt(fields[0]) : std::nullopt;
    if (!value || *value < lowest || *value > 2'000'000'000) {
      Problem("expected " + what + ", a whole number from " + std::to_string(lowest) + ", found " +
              Quoted(line) + "; check the counts above");
      return std::nullopt;
    }
    return value;
  }
  void ExpectEnd(const std::string& what) {
    std::string_view line;
    while (Next(line)) {
      if (Fields(line).empty()) continue;
      Problem("more lines follow than the count of " + what + " says; correct the count");
      return;
    }
  }

  static std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> fields;
    constexpr std::string_view kBlank = " \t\v\f\r";
    for (std::size_t at = line.find_first_not_of(kBlank); at != std::string_view::npos;) {
      const std::size_t end = line.find_first_of(kBlank, at);
      fields.push_back(line.substr(at, end - at));
      at = end == std::string_view::npos ? end : line.find_first_not_of(kBlank, end);
    }
    return fields;
  }
  /// A piece of the file for a message: short, without control characters.
  static std::string Quoted(std::string_view text) {
    std::string out(text.substr(0, 60));
    std::replace_if(
        out.begin(), out.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return "\"" + out + (text.size() > 60 ? "...\"" : "\"");
  }

 private:
  std::string_view text_;
  const std::string& file_;
  std::vector<std::string>& problems_;
  int number_ = 0;
};

/// Restores the raster size that the writer notes behind the name of a camera with a virtual frame.
void TakeRasterNote(SurveyCamera& camera) {
  constexpr std::string_view kMark = " [raster ";
  const std::size_t at = camera.name.rfind(kMark);
  if (at == std::string::npos || !camera.name.ends_with(']')) return;
  const std::string_view size =
      std::string_view(camera.name)
          .substr(at + kMark.size(), camera.name.size() - at - kMark.size() - 1);
  const std::size_t cross = size.find('x');
  if (cross == std::string_view::npos) return;
  const auto width = ReadInt(size.substr(0, cross)), height = ReadInt(size.substr(cross + 1));
  if (!width || !height || *width < 1 || *height < 1) return;
  camera.rasterWidth = *width;
  camera.rasterHeight = *height;
  camera.name.resize(at);
}

/// Displacement of the image corner by the lens model, in pixels.
double CornerDisplacement(const SurveyCamera& c) {
  if (c.model == 0) return 0;
  const double unit = c.model == 3 ? c.focalLength * c.width / c.sensorWidth : 1;
  const double x = 0.5 * c.width / unit, y = 0.5 * c.height / unit, r2 = x * x + y * y;
  const double* k = c.coefficients;
  const double radial = r2 * (k[0] + r2 * (k[1] + r2 * k[2]));
  const double affine = c.model == 1 ? std::fabs(k[5] * x) + std::fabs(k[6] * y) : 0;
  return unit * (std::fabs(radial) * std::sqrt(r2) + 3 * r2 * (std::fabs(k[3]) + std::fabs(k[4])) +
                 affine);
}

void CheckCamera(const SurveyCamera& c, LineReader& lines) {
  for (const double size : {c.width, c.height}) {
    if (!(size >= 1 && size <= kLargestImage)) {
      return lines.Problem("image size " + Exact(c.width) + " x " + Exact(c.height) +
                           " is no size in pixels; give width and height first");
    }
  }
  if (!(c.focalLength > 0)) {
    return lines.Problem("focal length is " + Exact(c.focalLength) +
                         "; give it above zero, in the unit of the sensor width");
  }
  if (!(c.sensorWidth > 0)) {
    return lines.Problem("sensor width is " + Exact(c.sensorWidth) +
                         "; give it above zero, in the unit of the focal length");
  }
  const double ratio = c.focalLength / c.sensorWidth;
  if (ratio < kFocalLow || ratio > kFocalHigh) {
    return lines.Problem("focal length " + Exact(c.focalLength) + " and sensor width " +
                         Exact(c.sensorWidth) + " do not fit; give both in one unit");
  }
  const auto inside = [](double at, double size) {
    return at > kPrincipalMargin * size && at < (1 - kPrincipalMargin) * size;
  };
  if (!inside(c.principalX, c.width) || !inside(c.principalY, c.height)) {
    return lines.Problem("principal point (" + Exact(c.principalX) + ", " + Exact(c.principalY) +
                         ") is far from the image centre; give it in pixels, x from the left, y "
                         "from the bottom (width and height swapped?)");
  }
  if (c.model != 0 && c.model != 1 && c.model != 3) {
    return lines.Problem("distortion model " + std::to_string(c.model) +
                         " is unknown; 0 is none, 1 correction in pixels, 3 radial-tangential");
  }
  const double corner = CornerDisplacement(c);
  if (!(corner <= 0.5 * std::hypot(c.width, c.height))) {
    lines.Problem("distortion moves the image corner by " + Exact(std::round(corner)) +
                  " pixels; coefficients of model 1 are for pixels, of model 3 for coordinates "
                  "divided by the focal length");
  }
}

/// One camera's line of values into `camera`; false when it is not sixteen numbers.
bool ReadCameraValues(std::string_view line, SurveyCamera& camera, LineReader& lines) {
  const auto fields = LineReader::Fields(line);
  if (fields.size() != 16) {
    lines.Problem("camera " + std::to_string(camera.id) + " has " + std::to_string(fields.size()) +
                  " values instead of sixteen; fill in zeros for coefficients that are not used");
    return false;
  }
  double values[16] = {};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const auto value = ReadDouble(fields[i]);
    if (!value || !std::isfinite(*value)) {
      lines.Problem("value " + std::to_string(i + 1) + " of camera " + std::to_string(camera.id) +
                    " is " + LineReader::Quoted(fields[i]) + "; give a finite number");
      return false;
    }
    values[i] = *value;
  }
  const auto model = ReadInt(fields[7]);
  if (!model) {
    lines.Problem("value 8 of camera " + std::to_string(camera.id) + " is " +
                  LineReader::Quoted(fields[7]) + "; the distortion model is a whole number");
    return false;
  }
  camera.width = values[0];
  camera.height = values[1];
  camera.focalLength = values[2];
  camera.sensorWidth = values[3];
  camera.sensorHeight = values[4];
  camera.principalX = values[5];
  camera.principalY = values[6];
  camera.model = *model;
  std::copy(values + 8, values + 16, camera.coefficients);
  return true;
}

/// False when the file is not laid out as it should be, so that later cameras were not read.
bool ReadCameras(LineReader& lines, Survey& survey) {
  const auto count = lines.WholeNumber("the number of cameras", 1);
  if (!count) return false;
  std::set<int> ids;
  for (int i = 0; i < *count; ++i) {
    const auto id = lines.WholeNumber(
        "the id of camera " + std::to_string(i + 1) + " of " + std::to_string(*count),
        -2'000'000'000);
    if (!id) return false;
    SurveyCamera camera;
    camera.id = *id;
    if (!ids.insert(*id).second) {
      lines.Problem("camera id " + std::to_string(*id) + " is used twice; give each its own");
    }
    std::string_view name, values;
    if (!lines.Next(name) || !lines.Next(values)) {
      lines.Problem("the file ends inside camera " + std::to_string(*id) +
                    "; a camera has three lines: id, name, sixteen values");
      return false;
    }
    camera.name = name;
    TakeRasterNote(camera);
    if (ReadCameraValues(values, camera, lines)) CheckCamera(camera, lines);
    survey.cameras.push_back(std::move(camera));
  }
  lines.ExpectEnd("cameras");
  return true;
}

void CheckAngles(const SurveyPhoto& p, const std::string& who, LineReader& lines) {
  const double largest = std::max({std::fabs(p.omega), std::fabs(p.phi), std::fabs(p.kappa)});
  if (largest > 400) {
    return lines.Problem(who + " has an angle of " + Exact(largest) +
                         "; the order is name X Y Z omega phi kappa camera");
  }
  if (largest > 2 * std::numbers::pi + 0.01) {
    return lines.Problem(who + " has an angle of " + Exact(largest) +
                         ", which looks like degrees; give radians");
  }
  if (!(std::cos(p.omega) * std::cos(p.phi) > 0)) {
    lines.Problem(who +
                  " looks at or above the horizon; check that the angles are omega phi kappa, in "
                  "this order and in radians");
  }
}

void ReadPhotoLine(std::string_view line, const std::string& path, LineReader& lines,
                   std::set<std::string>& seen, const std::set<int>* cameras, SurveyBlock& block) {
  const auto fields = LineReader::Fields(line);
  if (fields.size() != 8) {
    return lines.Problem(
        "a photo line has eight fields (name X Y Z omega phi kappa camera), this one " +
        std::to_string(fields.size()) + ": " + LineReader::Quoted(line) +
        (fields.size() > 8 ? "; a name must not hold blanks, rename the photo" : "; complete it"));
  }
  SurveyPhoto photo;
  photo.name = fields[0];
  const std::string who = "photo " + LineReader::Quoted(photo.name);
  if (photo.name.size() > kLongestName) {
    return lines.Problem(who + ": name is longer than " + std::to_string(kLongestName) +
                         " bytes; rename the photo");
  }
  // A block's folder may lie anywhere; its line says where. A photo's name says no more than which.
  const fs::path name(photo.name);
  if (name.is_absolute() || std::find(name.begin(), name.end(), "..") != name.end()) {
    return lines.Problem(who +
                         " leads out of the folder of its block; name its own folder in the "
                         "line below the count of a block");
  }
  double* const targets[] = {&photo.x, &photo.y, &photo.z, &photo.omega, &photo.phi, &photo.kappa};
  for (std::size_t i = 0; i < std::size(targets); ++i) {
    const auto value = ReadDouble(fields[i + 1]);
    if (!value || !std::isfinite(*value)) {
      return lines.Problem(who + ": field " + std::to_string(i + 2) + " is " +
                           LineReader::Quoted(fields[i + 1]) + "; give a finite number");
    }
    *targets[i] = *value;
  }
  const auto camera = ReadInt(fields[7]);
  if (!camera) {
    return lines.Problem(who + ": camera id is " + LineReader::Quoted(fields[7]) +
                         "; give a whole number");
  }
  photo.cameraId = *camera;
  if (cameras != nullptr && !cameras->contains(*camera)) {
    lines.Problem(who + " names camera " + std::to_string(*camera) +
                  ", which the camera file does not hold; add the camera or correct the id");
  }
  if (!seen.insert((fs::path(path) / photo.name).lexically_normal().string()).second) {
    lines.Problem(who + " is listed twice; remove one of the lines");
  }
  CheckAngles(photo, who, lines);
  block.photos.push_back(std::move(photo));
}

/// @param cameras  known ids, or null when they could not be read
void ReadBlocks(LineReader& lines, const fs::path& folder, const std::set<int>* cameras,
                Survey& survey) {
  const auto count = lines.WholeNumber("the number of photo blocks", 1);
  if (!count) return;
  std::set<std::string> seen;
  std::int64_t total = 0;
  for (int b = 0; b < *count; ++b) {
    const std::string which = "block " + std::to_string(b + 1) + " of " + std::to_string(*count);
    const auto photos = lines.WholeNumber("the number of photos of " + which, 0);
    if (!photos) return;
    total += *photos;
    if (total > limits::kPhotos) {
      return lines.Problem("the list holds " + std::to_string(total) +
                           " photos so far; a job has "
                           "at most " +
                           std::to_string(limits::kPhotos) + ", split the survey");
    }
    std::string_view path;
    if (!lines.Next(path) || LineReader::Fields(path).empty()) {
      return lines.Problem("the folder of " + which + " is missing; it stands below the count");
    }
    SurveyBlock block;
    const fs::path given = fs::path(std::string(path));
    block.path = (given.is_absolute() ? given : folder / given).lexically_normal().string();
    for (int i = 0; i < *photos; ++i) {
      if (processStop.Raised()) return lines.Problem("interrupted");
      std::string_view line;
      if (!lines.Next(line)) {
        return lines.Problem("the file ends after " + std::to_string(i) + " of " +
                             std::to_string(*photos) + " photos of " + which +
                             "; complete it or correct the count");
      }
      ReadPhotoLine(line, block.path, lines, seen, cameras, block);
    }
    survey.blocks.push_back(std::move(block));
  }
  lines.ExpectEnd("photo blocks");
}

bool ReadList(const std::string& path, std::string& text, std::vector<std::string>& problems) {
  std::string error;
  if (tqfd::ReadWholeFile(path, limits::kListBytes, text, error)) return true;
  problems.push_back(error + "; check the path");
  return false;
}

}  // namespace

std::optional<Survey> ParseSurvey(std::string_view cameraText, const std::string& cameraFile,
                                  std::string_view photoText, const std::string& photoList,
                                  std::vector<std::string>& problems) {
  const std::size_t before = problems.size();
  Survey survey;
  survey.source = "camera file " + cameraFile + " and photo list " + photoList;
  LineReader cameraLines(cameraText, cameraFile, problems);
  const bool complete = ReadCameras(cameraLines, survey);
  std::set<int> ids;
  for (const SurveyCamera& camera : survey.cameras) ids.insert(camera.id);
  LineReader photoLines(photoText, photoList, problems);
  ReadBlocks(photoLines, fs::path(photoList).parent_path(), complete ? &ids : nullptr, survey);
  if (problems.size() > before) return std::nullopt;
  std::set<int> used;
  for (const SurveyBlock& block : survey.blocks) {
    for (const SurveyPhoto& photo : block.photos) used.insert(photo.cameraId);
  }
  for (const SurveyCamera& camera : survey.cameras) {
    if (used.contains(camera.id)) continue;
    survey.notes.push_back("camera " + std::to_string(camera.id) + " has no photo");
  }
  return survey;
}

std::optional<Survey> ReadSurvey(const std::string& cameraFile, const std::string& photoList,
                                 std::vector<std::string>& problems) {
  std::string cameras, photos;
  const bool camerasRead = ReadList(cameraFile, cameras, problems);
  const bool photosRead = ReadList(photoList, photos, problems);
  if (!camerasRead || !photosRead) return std::nullopt;
  return ParseSurvey(cameras, cameraFile, photos, photoList, problems);
}

}  // namespace tqtortho::host
