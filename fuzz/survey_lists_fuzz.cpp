// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "host/survey_reader.h"

// Camera file and photo list, separated by a zero byte: no crash; either a survey or problems, and
// an accepted survey holds what the strict reader promises.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t cut = text.find('\0');
  const std::string_view photos =
      cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
  std::vector<std::string> problems;
  const auto survey =
      tqtortho::host::ParseSurvey(text.substr(0, cut), "c.txt", photos, "p.txt", problems);
  if (survey.has_value() != problems.empty()) std::abort();
  for (const std::string& line : problems) {
    if (line.find('\n') != std::string::npos) std::abort();
  }
  if (!survey) return 0;
  for (const auto& camera : survey->cameras) {
    if (!(camera.focalLength > 0) || !(camera.width >= 1)) std::abort();
  }
  for (const auto& block : survey->blocks) {
    for (const auto& photo : block.photos) {
      if (!std::isfinite(photo.x) || !std::isfinite(photo.kappa)) std::abort();
    }
  }
  return 0;
}
