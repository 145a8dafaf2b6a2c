// SPDX-License-Identifier: Apache-2.0
#include "survey/survey.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

#include "internal/safe_file.h"
#include "survey/number_text.h"

namespace tqtortho::host {
namespace {

// One line of text: a name with a line break would shift every line after it.
std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ');
  return text;
}

bool IsListableName(const std::string& name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    return c == ' ' || static_cast<unsigned char>(c) < ' ' || c == '\x7f';
  });
}

bool IsListablePath(const std::string& path) {
  return !path.empty() && std::none_of(path.begin(), path.end(),
                                       [](char c) { return c == '\n' || c == '\r' || c == '\0'; });
}

bool AllFinite(std::initializer_list<double> values) {
  return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

}  // namespace

bool WriteCameraFile(const std::string& path, const Survey& survey) {
  std::string text = std::to_string(survey.cameras.size()) + "\n";
  for (const SurveyCamera& c : survey.cameras) {
    if (!AllFinite({c.width, c.height, c.focalLength, c.sensorWidth, c.sensorHeight, c.principalX,
                    c.principalY}) ||
        !std::all_of(std::begin(c.coefficients), std::end(c.coefficients),
                     [](double v) { return std::isfinite(v); })) {
      return false;
    }
    text += std::to_string(c.id) + "\n" + OneLine(c.name);
    if (c.rasterWidth > 0 && c.rasterHeight > 0) {
      text +=
          " [raster " + std::to_string(c.rasterWidth) + "x" + std::to_string(c.rasterHeight) + "]";
    }
    text += "\n";
    for (const double v : {c.width, c.height, c.focalLength, c.sensorWidth, c.sensorHeight,
                           c.principalX, c.principalY}) {
      text += Exact(v) + " ";
    }
    text += std::to_string(c.model);
    for (const double v : c.coefficients) text += " " + Exact(v);
    text += "\n";
  }
  return WriteWholeFile(path, text);
}

int SplitBlocksByCamera(Survey& survey) {
  int divided = 0;
  std::vector<SurveyBlock> added;
  for (SurveyBlock& block : survey.blocks) {
    std::vector<SurveyBlock> parts;
    std::map<int, std::size_t> partOf;
    for (SurveyPhoto& photo : block.photos) {
      const auto [part, isNew] = partOf.emplace(photo.cameraId, parts.size());
      if (isNew) parts.push_back({block.path, {}});
      parts[part->second].photos.push_back(std::move(photo));
    }
    block.photos.clear();
    if (parts.empty()) continue;
    divided += parts.size() > 1 ? 1 : 0;
    block = std::move(parts.front());
    std::move(parts.begin() + 1, parts.end(), std::back_inserter(added));
  }
  std::move(added.begin(), added.end(), std::back_inserter(survey.blocks));
  return divided;
}

bool WritePhotoList(const std::string& path, const Survey& survey) {
  std::string text = std::to_string(survey.blocks.size()) + "\n";
  for (const SurveyBlock& block : survey.blocks) {
    if (!IsListablePath(block.path)) return false;
    text += std::to_string(block.photos.size()) + "\n" + block.path + "\n";
    for (const SurveyPhoto& p : block.photos) {
      if (!IsListableName(p.name) || !AllFinite({p.x, p.y, p.z, p.omega, p.phi, p.kappa})) {
        return false;
      }
      text += p.name;
      for (const double v : {p.x, p.y, p.z}) text += " " + Fixed(v, 6);
      for (const double v : {p.omega, p.phi, p.kappa}) text += " " + Fixed(v, 12);
      text += " " + std::to_string(p.cameraId) + "\n";
    }
  }
  return WriteWholeFile(path, text);
}

}  // namespace tqtortho::host
