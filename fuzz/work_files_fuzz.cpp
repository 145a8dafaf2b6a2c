// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <nlohmann/json.hpp>

#include "fuzz/require.h"
#include "importers/ground_control.h"
#include "mosaic/mosaic_stage.h"
#include "run/job_state.h"
#include "run/stage_records.h"
#include "testing/temp_dir.h"
#include "tqorkit/tqBinaryData.h"

namespace {

using namespace tqtortho::host;
using namespace tqtortho::fuzz;

/// A record of a finished stage: forgotten, or a report.
void Record(const tqtortho::testing::TempDir& dir, std::string_view text) {
  dir.Write("state/mosaic.json", std::string(text));
  JobState state(dir.Path(), dir.Path() + "/ortho/", dir.File("none"));
  const auto said = state.Stage("mosaic", "as made");
  Require(said.has_value() == std::filesystem::exists(dir.File("state/mosaic.json")));
  const auto record = said ? *said : nlohmann::json::parse(text, nullptr, false);
  if (record.is_discarded()) return;
  MosaicReport mosaic;
  DsmPrepareReport surface;
  (void)FromRecord(record, mosaic);
  (void)FromRecord(record, surface);
}

/// A plan and, behind a zero byte, a list of photos.
void Plan(const tqtortho::testing::TempDir& dir, std::string_view text) {
  const std::size_t cut = std::min(text.find('\0'), text.size());
  dir.Write("ortho_data/orParam.txt", std::string(text.substr(0, cut)));
  dir.Write("photos.txt", std::string(text.substr(std::min(cut + 1, text.size()))));
  MosaicInput input;
  std::string error;
  if (!LoadMosaicInput(dir.Path(), input, error)) RequireReason(error);
}

void PixelMap(const tqtortho::testing::TempDir& dir, std::string_view bytes) {
  const std::string path = dir.Write("pix_map.bin", std::string(bytes));
  tqorkit::tqBinaryData map;
  if (!map.Open(std::wstring(path.begin(), path.end()))) return;
  const int cols = std::min(map.GetWidth(), 64), rows = std::min(map.GetHeight(), 64);
  Require(cols > 0 && rows > 0 && map.GetBytesPerCell() > 0);
  std::vector<std::uint8_t> cells(static_cast<std::size_t>(cols) * rows * map.GetBytesPerCell());
  (void)map.ReadBlkData(0, 0, cols, rows, cells.data());
  Require(!map.ReadBlkData(0, 0, map.GetWidth(), 0, cells.data()));
}

}  // namespace

// What a job leaves in its folder, as a damaged disk or a stranger may leave it, and the list of
// ground control that lies beside a project. The first byte chooses.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest = Text(data + 1, size - 1);
  static const tqtortho::testing::TempDir dir;
  switch (data[0] % 4) {
    case 0:
      Record(dir, rest);
      break;
    case 1:
      Plan(dir, rest);
      break;
    case 2:
      PixelMap(dir, rest);
      break;
    default:
      if (const auto list = ParseControlList(rest)) {
        for (const ControlMark& mark : list->marks) RequireFinite(mark.ground);
      }
      break;
  }
  return 0;
}
