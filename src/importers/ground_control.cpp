// SPDX-License-Identifier: Apache-2.0
#include "importers/ground_control.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <sstream>

#include "survey/number_text.h"
#include "survey/table_text.h"

namespace tqtortho::host {
namespace {

// Marks are set to a pixel or two; what fits three times better than the other is the truth.
constexpr double kFewestMarks = 4;
constexpr double kRatio = 3;
constexpr double kWellFitting = 6;  // pixels of a photo 1000 pixels long

/// "WGS84 UTM 15N" as a code; other texts as they are.
std::string SystemOf(const std::string& line) {
  std::istringstream in(line);
  std::string datum, utm, zone;
  if (!(in >> datum >> utm >> zone) || datum != "WGS84" || utm != "UTM" || zone.size() < 2) {
    return line;
  }
  const auto number = ReadInt(std::string_view(zone).substr(0, zone.size() - 1));
  const bool south = zone.back() == 'S';
  if (!number || *number < 1 || *number > 60 || (!south && zone.back() != 'N')) return line;
  return "EPSG:" + std::to_string((south ? 32700 : 32600) + *number);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

std::optional<ControlList> ParseControlList(std::string_view text) {
  ControlList list;
  TextLines lines(text);
  std::string_view line;
  while (lines.Next(line)) {
    const std::string content(Trimmed(line));
    if (content.empty() || content[0] == '#') continue;
    if (list.crs.empty()) {
      list.crs = SystemOf(content);
      continue;
    }
    std::istringstream in(content);
    double numbers[5];
    std::string field;
    bool good = true;
    for (double& number : numbers) {
      const auto value = in >> field ? ReadDouble(field) : std::nullopt;
      good = good && value && std::isfinite(*value);
      if (good) number = *value;
    }
    if (!good || !(in >> field)) continue;
    list.marks.push_back({{numbers[0], numbers[1], numbers[2]}, numbers[3], numbers[4], field});
  }
  if (list.marks.empty()) return std::nullopt;
  return list;
}

int ControlResidual::Decides() const {
  if (count < kFewestMarks || !(std::min(first, second) < kWellFitting)) return 0;
  if (first * kRatio < second) return -1;
  return second * kRatio < first ? 1 : 0;
}

ControlResidual CompareControl(const std::vector<ControlMark>& onMap, const FindControlView& find) {
  std::vector<double> first, second;
  for (const ControlMark& mark : onMap) {
    const auto view = find(mark.photo);
    if (!view) continue;
    const auto a = SeenAt(view->lens, view->first, mark.ground);
    const auto b = SeenAt(view->lens, view->second, mark.ground);
    if (!a || !b) continue;
    const double unit = 1000 / view->lens.Size();
    first.push_back(unit * std::hypot(a->x - mark.col, a->y - mark.row));
    second.push_back(unit * std::hypot(b->x - mark.col, b->y - mark.row));
  }
  ControlResidual out;
  out.count = static_cast<int>(first.size());
  if (out.count == 0) return out;
  out.first = Median(std::move(first));
  out.second = Median(std::move(second));
  return out;
}

}  // namespace tqtortho::host
