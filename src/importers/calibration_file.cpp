// SPDX-License-Identifier: Apache-2.0
#include "importers/calibration_file.h"

#include <yaml-cpp/anchor.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <cmath>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "core/numeric.h"
#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestText = std::size_t{16} << 20;
constexpr std::size_t kDeepest = 64;

/// Builds a JSON tree from YAML events, so that one reader serves both. Numbers stay texts. Events
/// cost what the text costs: nothing is expanded, because anchors are refused.
class TreeBuilder : public YAML::EventHandler {
 public:
  [[nodiscard]] const json& Tree() const { return root_; }
  [[nodiscard]] const std::string& Fault() const { return fault_; }

  void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    Add(mark, anchor, nullptr);
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override { Refuse(mark); }
  void OnScalar(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                const std::string& value) override {
    Add(mark, anchor, value);
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    if (anchor != 0) Refuse(mark);
    Open(mark, json::array());
  }
  void OnSequenceEnd() override { Close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    if (anchor != 0) Refuse(mark);
    Open(mark, json::object());
  }
  void OnMapEnd() override { Close(); }

 private:
  struct Level {
    json value;
    std::optional<std::string> key;  ///< of a map, once read
  };

  void Refuse(const YAML::Mark& mark) {
    if (fault_.empty()) {
      fault_ = "line " + std::to_string(mark.line + 1) + ": anchors and aliases are not read";
    }
  }
  void Open(const YAML::Mark& mark, json value) {
    // Thrown, because only that stops a parser.
    if (open_.size() >= kDeepest) throw YAML::ParserException(mark, "nested too deeply");
    open_.push_back({std::move(value), {}});
  }
  void Close() {
    json value = std::move(open_.back().value);
    open_.pop_back();
    Put(std::move(value));
  }
  void Add(const YAML::Mark& mark, YAML::anchor_t anchor, json value) {
    if (anchor != 0) Refuse(mark);
    Put(std::move(value));
  }
  void Put(json value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return;
    }
    Level& level = open_.back();
    if (level.value.is_array()) {
      level.value.push_back(std::move(value));
    } else if (!level.key) {
      // A list or a map as a key is none that is asked for.
      level.key = value.is_string() ? value.get<std::string>() : std::string();
    } else {
      level.value[*level.key] = std::move(value);
      level.key.reset();
    }
  }

  std::vector<Level> open_;
  json root_;
  std::string fault_;
};

/// The text as a tree, whichever of the two it is: JSON is YAML but for a few blanks.
std::optional<json> ReadTree(std::string_view text, std::string& error) {
  if (text.size() > kLargestText) {
    error = "is larger than 16 MiB";
    return std::nullopt;
  }
  std::string copy(text);
  for (char& c : copy) {
    if (c == '\t') c = ' ';
  }
  std::istringstream in(copy);
  TreeBuilder builder;
  try {
    YAML::Parser parser(in);
    if (!parser.HandleNextDocument(builder)) {
      error = "is empty";
      return std::nullopt;
    }
  } catch (const YAML::Exception& failed) {
    error = "line " + std::to_string(failed.mark.line + 1) + ": is neither YAML nor JSON (" +
            OneLine(failed.msg) + ")";
    return std::nullopt;
  }
  if (error = builder.Fault(); !error.empty()) return std::nullopt;
  return builder.Tree();
}

/// The fields of one camera; the first fault is kept.
class Fields {
 public:
  explicit Fields(const json& fields) : fields_(fields) {}

  [[nodiscard]] bool Has(const char* name) const { return fields_.contains(name); }
  /// Up to `most` numbers of a field, a single one or a list; empty when it is not there.
  std::vector<double> Numbers(const char* name, std::size_t most) {
    std::vector<double> out;
    const auto it = fields_.find(name);
    if (it == fields_.end()) return out;
    const json list = it->is_array() ? *it : json::array({*it});
    for (const json& item : list) {
      const auto value =
          item.is_string() ? ReadDouble(item.get_ref<const std::string&>()) : std::nullopt;
      if (!value || !std::isfinite(*value)) {
        Fault(std::string(name) + " is no finite number");
        return {};
      }
      out.push_back(*value);
    }
    if (out.empty() || out.size() > most) {
      Fault(std::string(name) + " has " + std::to_string(out.size()) + " values, not " +
            std::to_string(most));
      return {};
    }
    return out;
  }
  /// The first of several spellings that is there.
  std::optional<double> Number(std::initializer_list<const char*> names) {
    for (const char* name : names) {
      if (const auto values = Numbers(name, 1); !values.empty()) return values[0];
    }
    return std::nullopt;
  }
  [[nodiscard]] std::string Text(std::initializer_list<const char*> names) const {
    for (const char* name : names) {
      const auto it = fields_.find(name);
      if (it != fields_.end() && it->is_string()) return it->get<std::string>();
    }
    return {};
  }
  void Fault(std::string fault) {
    if (fault_.empty()) fault_ = std::move(fault);
  }
  [[nodiscard]] const std::string& Fault() const { return fault_; }

 private:
  const json& fields_;
  std::string fault_;
};

void ReadSize(Fields& fields, SourceLens& lens) {
  std::vector<double> size = fields.Numbers("im_size", 2);
  if (size.size() != 2) {
    size = {fields.Number({"width"}).value_or(0), fields.Number({"height"}).value_or(0)};
  }
  lens.width = TruncToInt(size[0]);
  lens.height = TruncToInt(size[1]);
  if (lens.width < 2 || lens.height < 2 || lens.width > 1000000 || lens.height > 1000000 ||
      lens.width != size[0] || lens.height != size[1]) {
    fields.Fault("im_size is not the width and height of its photos in pixels");
    lens.width = lens.height = 2;
  }
}

void ReadPixels(Fields& fields, SourceLens& lens) {
  const double longer = lens.Size();
  const double fx = fields.Number({"fx"}).value_or(0);
  lens.focalX = fx / longer;
  lens.focalY = fields.Number({"fy"}).value_or(fx) / longer;
  const double middleX = 0.5 * (lens.width - 1), middleY = 0.5 * (lens.height - 1);
  lens.centreX = (fields.Number({"cx"}).value_or(middleX) - middleX) / longer;
  lens.centreY = (fields.Number({"cy"}).value_or(middleY) - middleY) / longer;
}

void ReadRelative(Fields& fields, SourceLens& lens) {
  std::vector<double> focal = fields.Numbers("focal_len", 2);
  const auto single = fields.Number({"focal", "focal_x"});
  if (focal.empty() && single) focal = {*single, fields.Number({"focal_y"}).value_or(*single)};
  if (focal.empty()) {
    fields.Fault("has no focal length (focal_len, or fx in pixels)");
    return;
  }
  const std::vector<double> sensor = fields.Numbers("sensor_size", 2);
  double unitX = 1, unitY = 1;
  if (!sensor.empty()) {
    if (sensor.size() != 2 || !(sensor[0] > 0) || !(sensor[1] > 0)) {
      fields.Fault("sensor_size is not a width and a height");
      return;
    }
    unitX = lens.width / sensor[0] / lens.Size();
    unitY = lens.height / sensor[1] / lens.Size();
  }
  lens.focalX = focal[0] * unitX;
  lens.focalY = focal.back() * unitY;
  lens.centreX = fields.Number({"cx", "c_x"}).value_or(0);
  lens.centreY = fields.Number({"cy", "c_y"}).value_or(0);
}

SourceCamera ReadCamera(const std::string& name, const json& tree) {
  SourceCamera out;
  SourceLens& lens = out.lens;
  Fields fields(tree);
  lens.name = name.empty() ? "camera" : OneLine(name);
  lens.projection = OneLine(fields.Text({"type", "projection_type"}));
  if (lens.projection.empty()) lens.projection = "pinhole";
  bool known = false;
  for (const char* type :
       {"pinhole", "perspective", "brown", "opencv", "simple_radial", "radial"}) {
    known = known || lens.projection == type;
  }
  if (!known) {
    fields.Fault("type " + lens.projection + " cannot be expressed; undistort the photos");
  }
  ReadSize(fields, lens);
  if (fields.Has("fx") || fields.Has("fy")) {
    if (!fields.Has("fx")) fields.Fault("has fy but no fx");
    ReadPixels(fields, lens);
  } else {
    ReadRelative(fields, lens);
  }
  const std::pair<const char*, double*> terms[] = {
      {"k1", &lens.k1}, {"k2", &lens.k2}, {"k3", &lens.k3}, {"p1", &lens.p1}, {"p2", &lens.p2}};
  for (const auto& [key, target] : terms) *target = fields.Number({key}).value_or(0);
  for (const char* key : {"k4", "k5", "k6", "s1", "s2", "s3", "s4", "tx", "ty", "tau_x", "tau_y"}) {
    if (fields.Number({key}).value_or(0) != 0) {
      fields.Fault(std::string(key) + " is not zero and cannot be expressed; undistort the photos");
    }
  }
  if (!fields.Fault().empty()) out.fault = "camera \"" + lens.name + "\": " + fields.Fault();
  return out;
}

}  // namespace

std::optional<std::map<std::string, SourceCamera>> ParseCalibrations(std::string_view text,
                                                                     std::string& error) {
  const auto tree = ReadTree(text, error);
  if (!tree) return std::nullopt;
  std::map<std::string, SourceCamera> cameras;
  const auto isCamera = [](const json& node) {
    return node.is_object() && (node.contains("im_size") || node.contains("width") ||
                                node.contains("focal_len") || node.contains("fx"));
  };
  if (isCamera(*tree)) {
    cameras[""] = ReadCamera("", *tree);
  } else if (tree->is_object()) {
    for (const auto& [name, fields] : tree->items()) {
      if (isCamera(fields)) cameras[name] = ReadCamera(name, fields);
    }
  }
  if (cameras.empty()) {
    error = "describes no camera; its fields are im_size and focal_len, or im_size and fx";
    return std::nullopt;
  }
  return cameras;
}

}  // namespace tqtortho::host
