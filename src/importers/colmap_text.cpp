// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "importers/colmap_records.h"
#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

/// Takes the next word off a line.
std::string_view NextWord(std::string_view& rest) {
  rest = Trimmed(rest);
  const std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
  rest.remove_prefix(word.size());
  return word;
}

/// The lines of a stream, numbered; files of any size pass line by line.
class RecordLines {
 public:
  explicit RecordLines(std::istream& in) : in_(in) {}
  bool Next(std::string_view& line) {
    if (!std::getline(in_, text_)) return false;
    ++number_;
    line = text_;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return true;
  }
  /// The next line that is neither empty nor a comment.
  bool NextRecord(std::string_view& line) {
    while (Next(line)) {
      line = Trimmed(line);
      if (!line.empty() && line.front() != '#') return true;
    }
    return false;
  }
  [[nodiscard]] std::string Where() const { return "line " + std::to_string(number_) + ": "; }

 private:
  std::istream& in_;
  std::string text_;
  int number_ = 0;
};

std::optional<ColmapCamera> ReadCameraLine(std::string_view line) {
  ColmapCamera camera;
  const auto id = ReadInt(NextWord(line));
  camera.model = NextWord(line);
  const auto width = ReadInt(NextWord(line)), height = ReadInt(NextWord(line));
  if (!id || !width || !height) return std::nullopt;
  camera.id = std::to_string(*id);
  camera.width = *width;
  camera.height = *height;
  while (!Trimmed(line).empty()) {
    const auto value = ReadDouble(NextWord(line));
    if (!value) return std::nullopt;
    camera.parameters.push_back(*value);
  }
  return camera;
}

/// Image points are triples that end with a whole number. What else stands there is the next photo
/// of a file that lacks these lines, and would be lost in silence.
bool IsPointLine(std::string_view line) {
  std::size_t words = 0;
  std::string_view last;
  for (line = Trimmed(line); !line.empty(); ++words) last = NextWord(line);
  return words == 0 || (words % 3 == 0 && ReadDouble(last).has_value());
}

}  // namespace

bool ReadColmapCamerasText(std::istream& in, ColmapCameras& cameras, std::string& error) {
  RecordLines lines(in);
  std::string_view line;
  while (lines.NextRecord(line)) {
    const auto camera = ReadCameraLine(line);
    if (!camera) {
      error = lines.Where() + "is not number, model, width, height and parameters of a camera";
      return false;
    }
    if (!AddColmapCamera(*camera, cameras, error)) return false;
  }
  return true;
}

bool ReadColmapPhotosText(std::istream& in, std::vector<ColmapPhoto>& photos, std::string& error) {
  RecordLines lines(in);
  std::string_view line;
  while (lines.NextRecord(line)) {
    bool good = ReadInt(NextWord(line)).has_value();
    std::array<double, 7> pose{};
    for (double& value : pose) {
      const auto read = ReadDouble(NextWord(line));
      good = good && read;
      value = read.value_or(0);
    }
    const auto camera = ReadInt(NextWord(line));
    const std::string name(Trimmed(line));  // may hold blanks
    if (!good || !camera || name.empty()) {
      error = lines.Where() + "is not number, four of rotation, three of translation, camera and " +
              "name of a photo";
      return false;
    }
    if (!AddColmapPhoto(name, std::to_string(*camera), pose, photos, error)) {
      error.insert(0, lines.Where());
      return false;
    }
    if (lines.Next(line) && !IsPointLine(line)) {
      error = lines.Where() + "is no list of points: every photo takes two lines, of which the " +
              "second may be empty";
      return false;
    }
  }
  return true;
}

bool IsColmapCamerasText(std::istream& in) {
  RecordLines lines(in);
  std::string_view line;
  if (!lines.NextRecord(line)) return false;
  const auto camera = ReadCameraLine(line);
  // A model is named in capital letters; lists of other programs have a number there.
  return camera && !camera->model.empty() && camera->model[0] >= 'A' && camera->model[0] <= 'Z';
}

}  // namespace tqtortho::host
