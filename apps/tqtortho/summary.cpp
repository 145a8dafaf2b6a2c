// SPDX-License-Identifier: Apache-2.0
#include "summary.h"

#include <algorithm>
#include <cstdio>

#include "survey/number_text.h"

namespace tqtortho::app {

std::string PhotosLine(const host::RunReport& report) {
  constexpr std::size_t kNamed = 10;
  const auto done = std::count_if(report.photos.begin(), report.photos.end(),
                                  [](const host::PhotoOutcome& p) { return p.done; });
  const auto& left = report.leftOut;
  std::string line = std::to_string(done) + " of " +
                     std::to_string(static_cast<std::size_t>(done) + left.size()) + " photos done";
  if (left.empty()) return line;
  line += ", " + std::to_string(left.size()) + " left out: ";
  for (std::size_t i = 0; i < std::min(left.size(), kNamed); ++i) {
    line += (i > 0 ? ", " : "") + left[i];
  }
  return left.size() > kNamed ? line + " ..." : line;
}

std::vector<std::string> MosaicLines(const host::MosaicReport& m) {
  const std::int64_t framed = m.seen + m.filled + m.neverCovered;
  const double percent = framed > 0 ? 100.0 / static_cast<double>(framed) : 0;
  char cells[300];
  std::snprintf(cells, sizeof cells,
                "mosaic: %s in the photos; %.2f %% seen, %.2f %% by one photo "
                "only, %.2f %% filled from around, %.2f %% seen by none and left empty",
                host::Cells(static_cast<double>(framed)).c_str(),
                percent * static_cast<double>(m.seen), percent * static_cast<double>(m.seenByOne),
                percent * static_cast<double>(m.filled),
                percent * static_cast<double>(m.neverCovered));
  char seams[200];
  std::snprintf(seams, sizeof seams,
                "        %.0f m of seams, colour step %.2f before, %.2f after balancing",
                m.seamLength, m.colourStepBefore, m.colourStepAfter);
  return {cells, seams};
}

}  // namespace tqtortho::app
