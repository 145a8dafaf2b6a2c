// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "fuzz/require.h"
#include "survey/survey_reader.h"

using namespace tqtortho::fuzz;

// Camera file and photo list, separated by a zero byte: no crash; either a survey or problems, and
// an accepted survey holds what the strict reader promises.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Text(data, size);
  const std::size_t cut = text.find('\0');
  const std::string_view photos =
      cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
  std::vector<std::string> problems;
  const auto survey =
      tqtortho::host::ParseSurvey(text.substr(0, cut), "c.txt", photos, "p.txt", problems);
  Require(survey.has_value() == problems.empty());
  for (const std::string& line : problems) RequireReason(line);
  if (!survey) return 0;
  for (const auto& camera : survey->cameras) Require(camera.focalLength > 0 && camera.width >= 1);
  for (const auto& block : survey->blocks) {
    for (const auto& photo : block.photos) Require(std::isfinite(photo.x + photo.kappa));
  }
  return 0;
}
