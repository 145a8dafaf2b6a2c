// SPDX-License-Identifier: Apache-2.0
#include "prepare/band_choice.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/limits.h"
#include "geo/BandChoice.h"
#include "geo/RasterTools.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "stage/file_stamp.h"
#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

bool WriteIfOther(const fs::path& path, const std::string& text) {
  std::string before, ignored;
  if (tqfd::ReadWholeFile(path.string(), limits::kSmallFileBytes, before, ignored) &&
      before == text)
    return true;
  std::error_code failed;
  fs::create_directories(path.parent_path(), failed);
  return WriteWholeFile(path.string(), text);
}

}  // namespace

bool ChooseBands(const BandChoice& choice, const std::string& dir, Survey& survey,
                 std::string& error) {
  if (choice.bands.empty()) return true;
  std::vector<SurveyBlock> chosen = survey.blocks;
  for (std::size_t b = 0; b < chosen.size(); ++b) {
    const fs::path folder = fs::path(dir) / ("bands" + std::to_string(b + 1));
    for (const SurveyPhoto& photo : chosen[b].photos) {
      const fs::path source = fs::absolute(fs::path(chosen[b].path) / photo.name);
      const fs::path target = folder / photo.name;
      geo::RasterSummary ignored;
      std::string why;
      if (!geo::DescribeRaster(source.string(), ignored, why)) {
        std::error_code failed;
        fs::create_directories(target.parent_path(), failed);
        fs::remove(target, failed);
        fs::create_symlink(source, target, failed);
        continue;
      }
      const auto text = geo::BandChoiceVrt(source.string(), choice.bands, choice.range, error);
      if (!text) return false;
      if (!WriteIfOther(target, *text + "<!-- " + FileStamp(source.string()) + " -->\n")) {
        error = target.string() + ": cannot be written; is the disk full?";
        return false;
      }
    }
    chosen[b].path = folder.string();
  }
  survey.blocks = std::move(chosen);
  survey.bandsChosen = true;
  return true;
}

}  // namespace tqtortho::host
