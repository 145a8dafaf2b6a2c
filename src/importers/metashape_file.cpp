// SPDX-License-Identifier: Apache-2.0
#include "importers/metashape_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <pugixml.hpp>
#include <utility>

#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

constexpr std::size_t kLargestFile = std::size_t{512} << 20;
constexpr int kDeepestGroup = 16;

/// Finds the line of a node; kept apart because it needs the text.
class LineNumbers {
 public:
  explicit LineNumbers(std::string_view text) : text_(text) {}
  [[nodiscard]] std::string At(std::ptrdiff_t offset) const {
    const auto end = text_.begin() + std::clamp<std::ptrdiff_t>(
                                         offset, 0, static_cast<std::ptrdiff_t>(text_.size()));
    return "line " + std::to_string(1 + std::count(text_.begin(), end, '\n'));
  }
  [[nodiscard]] std::string At(const pugi::xml_node& node) const { return At(node.offset_debug()); }

 private:
  std::string_view text_;
};

/// The numbers of an element, or nothing when they are not exactly `N` finite ones.
template <std::size_t N>
std::optional<std::array<double, N>> Numbers(const pugi::xml_node& node) {
  std::array<double, N> out{};
  std::string_view rest = node.text().get();
  for (std::size_t i = 0; i <= N; ++i) {
    const std::size_t from = std::min(rest.find_first_not_of(" \t\r\n"), rest.size());
    rest.remove_prefix(from);
    if (i == N) break;
    const std::size_t length = std::min(rest.find_first_of(" \t\r\n"), rest.size());
    const auto value = ReadDouble(rest.substr(0, length));
    if (!value || !std::isfinite(*value)) return std::nullopt;
    out[i] = *value;
    rest.remove_prefix(length);
  }
  if (!rest.empty()) return std::nullopt;
  return out;
}

bool IsOff(const pugi::xml_node& node, const char* attribute) {
  const std::string_view value = node.attribute(attribute).value();
  return value == "false" || value == "0";
}

pugi::xml_node CalibrationOf(const pugi::xml_node& sensor) {
  // A sensor may carry what the user started from and what adjustment made of it.
  const auto adjusted = sensor.find_child_by_attribute("calibration", "class", "adjusted");
  return adjusted ? adjusted : sensor.child("calibration");
}

/// A pixel count of a resolution element, 0 when it is none.
int PixelsOf(const pugi::xml_node& resolution, const char* attribute) {
  return ReadInt(resolution.attribute(attribute).value()).value_or(0);
}

/// The lens in terms of the source's manual: f, cx, cy, b1, b2 in pixels, the principal point as an
/// offset from the raster's centre, the first pixel's centre at half a pixel.
SourceCamera ReadSensor(const pugi::xml_node& sensor, const LineNumbers& lines) {
  SourceCamera out;
  SourceLens& lens = out.lens;
  const std::string label = OneLine(sensor.attribute("label").value());
  const std::string id = sensor.attribute("id").value();
  lens.name = label.empty() ? "sensor " + id : label;
  lens.projection = OneLine(sensor.attribute("type").value());
  if (lens.projection.empty()) lens.projection = "frame";
  const std::string who = lines.At(sensor) + ": sensor \"" + lens.name + "\"";
  const pugi::xml_node calibration = CalibrationOf(sensor);
  if (const char* type = calibration.attribute("type").value(); *type != 0)
    lens.projection = OneLine(type);
  if (lens.projection != "frame") {
    out.fault = who + ": camera type " + lens.projection +
                " cannot be expressed; undistort the photos and align them as frame cameras";
    return out;
  }
  if (!calibration || calibration.child("fx")) {
    out.fault = who +
                (calibration ? ": calibration of an old program version (fx, fy)"
                             : ": has no calibration") +
                "; export the cameras again with a current version";
    return out;
  }
  auto resolution = calibration.child("resolution");
  if (!resolution) resolution = sensor.child("resolution");
  lens.width = PixelsOf(resolution, "width");
  lens.height = PixelsOf(resolution, "height");
  if (lens.width < 2 || lens.height < 2) {
    out.fault = who + ": has no resolution in pixels; export the cameras again";
    return out;
  }
  double f = 0, cx = 0, cy = 0, b1 = 0, b2 = 0, unused = 0;
  // The source's p1 is the factor of r^2 + 2 x^2 and p2 that of 2 x y in the x equation.
  const std::pair<const char*, double*> fields[] = {
      {"f", &f},        {"cx", &cx},      {"cy", &cy},      {"k1", &lens.k1}, {"k2", &lens.k2},
      {"k3", &lens.k3}, {"k4", &lens.k4}, {"p1", &lens.p2}, {"p2", &lens.p1}, {"b1", &b1},
      {"b2", &b2},      {"p3", &unused},  {"p4", &unused}};
  for (const auto& [name, target] : fields) {
    const pugi::xml_node field = calibration.child(name);
    if (!field) continue;
    const auto value = Numbers<1>(field);
    if (!value || (target == &unused && (*value)[0] != 0)) {
      out.fault = lines.At(field) + ": sensor \"" + lens.name + "\": " + name +
                  (value ? " is not zero and cannot be expressed; calibrate without it"
                         : " is no finite number; export the cameras again");
      return out;
    }
    *target = (*value)[0];
  }
  if (!(f > 0)) {
    out.fault = who + ": has no focal length f; export the cameras again";
    return out;
  }
  const double size = lens.Size();
  lens.focalX = (f + b1) / size;
  lens.focalY = f / size;
  lens.skew = b2 / size;
  lens.centreX = cx / size;
  lens.centreY = cy / size;
  return out;
}

/// The similarity of a chunk or component, nothing in `out` when it has none. False when it is
/// damaged.
bool ReadSimilarity(const pugi::xml_node& transform, std::optional<Similarity>& out) {
  if (!transform.child("rotation") && !transform.child("translation")) return true;
  const auto rotation = Numbers<9>(transform.child("rotation"));
  const auto translation = Numbers<3>(transform.child("translation"));
  const auto scale = transform.child("scale") ? Numbers<1>(transform.child("scale"))
                                              : std::optional(std::array<double, 1>{1});
  if (!rotation || !translation || !scale || !((*scale)[0] > 0)) return false;
  out = Similarity{*rotation, *translation, (*scale)[0]};
  return true;
}

void ListCameras(const pugi::xml_node& list, int depth, std::vector<pugi::xml_node>& out) {
  if (depth > kDeepestGroup) return;
  for (const pugi::xml_node& node : list.children()) {
    if (std::strcmp(node.name(), "camera") == 0) out.push_back(node);
    if (std::strcmp(node.name(), "group") == 0) ListCameras(node, depth + 1, out);
  }
}

/// Unit rows that span a volume of one are at right angles and right-handed. Exported numbers have
/// all their digits.
bool IsRotation(const Matrix3& m) {
  const double volume = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                        m[2] * (m[3] * m[7] - m[4] * m[6]);
  bool unit = std::fabs(volume - 1) < 1e-4;
  for (std::size_t r = 0; r < 9; r += 3) {
    unit = unit && std::fabs(std::hypot(m[r], m[r + 1], m[r + 2]) - 1) < 1e-4;
  }
  return unit;
}

/// A camera's pose in the outer frame; nothing when its transform is damaged.
std::optional<MetashapeCamera> ReadCamera(const pugi::xml_node& node, const Similarity& outer) {
  const auto t = Numbers<16>(node.child("transform"));
  if (!t) return std::nullopt;
  MetashapeCamera camera;
  camera.label = OneLine(node.attribute("label").value());
  camera.sensor = node.attribute("sensor_id").value();
  // Axes right, down, forward: the second and third columns change sign.
  const auto& m = *t;
  const Matrix3 inChunk = {m[0], -m[1], -m[2], m[4], -m[5], -m[6], m[8], -m[9], -m[10]};
  const Matrix3 product = Product(outer.rotation, inChunk);
  camera.cameraToFrame = NearestRotation(product);
  const Vector3 turned = Product(outer.rotation, Vector3{m[3], m[7], m[11]});
  for (std::size_t i = 0; i < 3; ++i) {
    camera.centre[i] = outer.scale * turned[i] + outer.translation[i];
    if (!std::isfinite(camera.centre[i]) || std::fabs(camera.centre[i]) > 1e9) return std::nullopt;
  }
  if (camera.label.empty() || !IsRotation(product)) return std::nullopt;
  return camera;
}

void NoteLeftOut(std::size_t count, const char* reason, std::vector<std::string>& notes) {
  if (count == 0) return;
  notes.push_back(std::to_string(count) + (count == 1 ? " camera" : " cameras") +
                  " left out: " + reason);
}

/// Reads one chunk after another of its parts; holds what they share.
class ChunkReader {
 public:
  ChunkReader(const pugi::xml_node& chunk, const LineNumbers& lines)
      : chunk_(chunk), lines_(lines) {}

  bool Read(MetashapeChunk& out, std::string& error) {
    for (const auto& sensor : chunk_.child("sensors").children("sensor")) {
      out.sensors[sensor.attribute("id").value()] = ReadSensor(sensor, lines_);
      if (sensor.find_node([](const pugi::xml_node& n) {
            return std::strcmp(n.name(), "rolling_shutter") == 0;
          })) {
        out.notes.push_back("sensor \"" + OneLine(sensor.attribute("label").value()) +
                            "\": its rolling shutter is not corrected");
      }
    }
    if (out.sensors.empty()) {
      error = lines_.At(chunk_) + ": the chunk has no sensors; export the cameras again";
      return false;
    }
    out.referenceWkt = chunk_.child("reference").text().get();
    return ReadTransforms(out, error) && ReadCameras(out, error);
  }

 private:
  bool ReadTransforms(MetashapeChunk& out, std::string& error) {
    if (!ReadSimilarity(chunk_.child("transform"), own_)) {
      error = lines_.At(chunk_.child("transform")) +
              ": the chunk's transform is damaged; export the cameras again";
      return false;
    }
    for (const auto& component : chunk_.child("components").children("component")) {
      std::optional<Similarity> similarity;
      if (!ReadSimilarity(component.child("transform"), similarity)) {
        error = lines_.At(component) +
                ": the component's transform is damaged; export the cameras again";
        return false;
      }
      if (similarity) components_[component.attribute("id").value()] = *similarity;
    }
    out.placed = own_ || !components_.empty();
    return true;
  }

  bool ReadCameras(MetashapeChunk& out, std::string& error) {
    std::vector<pugi::xml_node> nodes;
    ListCameras(chunk_.child("cameras"), 0, nodes);
    std::size_t off = 0, unaligned = 0, free = 0;
    for (const auto& node : nodes) {
      if (IsOff(node, "enabled")) {
        ++off;
        continue;
      }
      if (!node.child("transform")) {
        ++unaligned;
        continue;
      }
      const auto component = components_.find(node.attribute("component_id").value());
      if (out.placed && component == components_.end() && !own_) {
        ++free;
        continue;
      }
      const auto camera = ReadCamera(
          node, component != components_.end() ? component->second : own_.value_or(Similarity{}));
      if (!camera) {
        error = lines_.At(node) + ": camera \"" + OneLine(node.attribute("label").value()) +
                "\": its transform is no rigid motion of 16 finite numbers, or it has no label; " +
                "export the cameras again";
        return false;
      }
      out.cameras.push_back(*camera);
    }
    NoteLeftOut(off, "disabled", out.notes);
    NoteLeftOut(unaligned, "not aligned", out.notes);
    NoteLeftOut(free, "in a component without a place", out.notes);
    if (!out.cameras.empty()) return true;
    error = lines_.At(chunk_) + ": none of its " + std::to_string(nodes.size()) +
            " cameras is enabled and aligned; align the photos and export again";
    return false;
  }

  pugi::xml_node chunk_;
  const LineNumbers& lines_;
  std::optional<Similarity> own_;
  std::map<std::string, Similarity> components_;
};

}  // namespace

bool IsMetashapeText(std::string_view start) {
  start = start.substr(0, 4096);
  const std::size_t document = start.find("<document");
  const std::size_t chunk = start.find("<chunk");
  return document != std::string_view::npos && chunk != std::string_view::npos &&
         document < chunk && start.find("<sensors", chunk) != std::string_view::npos;
}

std::optional<MetashapeChunk> ParseMetashape(std::string_view xml, std::string& error) {
  if (xml.size() > kLargestFile) {
    error = "is larger than 512 MiB; export the cameras without points and markers";
    return std::nullopt;
  }
  const LineNumbers lines(xml);
  pugi::xml_document document;
  const auto parsed = document.load_buffer(xml.data(), xml.size());
  if (!parsed) {
    error = lines.At(parsed.offset) + ": is no well-formed XML (" + parsed.description() +
            "); export the cameras again";
    return std::nullopt;
  }
  pugi::xml_node best;
  std::size_t most = 0, chunks = 0;
  const pugi::xml_node root = document.child("document");
  for (const char* list : {"", "chunks"}) {
    for (const auto& chunk : (*list == 0 ? root : root.child(list)).children("chunk")) {
      std::vector<pugi::xml_node> cameras;
      ListCameras(chunk.child("cameras"), 0, cameras);
      ++chunks;
      if (best && cameras.size() <= most) continue;
      best = chunk;
      most = cameras.size();
    }
  }
  if (!best) {
    error = "line 1: holds no chunk of cameras; export them as Agisoft XML";
    return std::nullopt;
  }
  MetashapeChunk out;
  if (chunks > 1) {
    out.notes.push_back("of " + std::to_string(chunks) + " chunks the one with the most cameras " +
                        "is taken");
  }
  if (!ChunkReader(best, lines).Read(out, error)) return std::nullopt;
  return out;
}

}  // namespace tqtortho::host
