// SPDX-License-Identifier: Apache-2.0
#include "report/report_data.h"

#include <cmath>
#include <map>
#include <numeric>

#include "camera/photo_camera.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "geo/Crs.h"
#include "report/seam_lines.h"
#include "stage/photo_files.h"

namespace tqtortho::host {
namespace {

using nlohmann::json;

/// Two cells of a stair are drawn as the slope that they mean.
constexpr double kSeamTolerance = 0.8;

/// To a thousandth: coordinates are read by people here. Null when it is no number.
json Rounded(double value) {
  if (!std::isfinite(value)) return nullptr;
  return std::round(value * 1000) / 1000;
}

/// Mean height of a box on the grid, from a few hundred of its cells.
double MeanHeight(const ReportLayers& layers, const tqfd::Rect2_T<double>& ground,
                  double otherwise) {
  if (layers.heights.empty()) return otherwise;
  const ReportSpan span = CellsIn(layers.grid, ground);
  const int stepCol = std::max(span.cols / 20, 1), stepRow = std::max(span.rows / 20, 1);
  double sum = 0;
  int count = 0;
  for (int row = 0; row < span.rows; row += stepRow) {
    for (int col = 0; col < span.cols; col += stepCol) {
      const float h = layers.heights[layers.grid.Index(span.firstRow + row, span.firstCol + col)];
      if (std::isnan(h)) continue;
      sum += h;
      ++count;
    }
  }
  return count > 0 ? sum / count : otherwise;
}

/// The frame's four corners on the plane of the mean height below; the box itself where a corner
/// looks past the horizon.
json FrameOutline(const GroundPhoto& photo, double height) {
  const PhotoCamera& camera = photo.camera;
  const auto box = photo.ground;
  json outline = json::array();
  for (const auto& [right, up] : {std::pair{-0.5, 0.5}, {0.5, 0.5}, {0.5, -0.5}, {-0.5, -0.5}}) {
    const auto p = GroundFromImage(camera, right * camera.width * camera.pixelSize - camera.offsetX,
                                   up * camera.height * camera.pixelSize - camera.offsetY, height);
    const double reach = 3 * std::max(box.maxX - box.minX, box.maxY - box.minY);
    if (!(std::hypot(p.x - camera.centre.x, p.y - camera.centre.y) < reach)) {
      return {{Rounded(box.minX), Rounded(box.maxY)},
              {Rounded(box.maxX), Rounded(box.maxY)},
              {Rounded(box.maxX), Rounded(box.minY)},
              {Rounded(box.minX), Rounded(box.minY)}};
    }
    outline.push_back({Rounded(p.x), Rounded(p.y)});
  }
  return outline;
}

/// What share of the supplied cells each photo supplied, by number: as the mosaic counted them,
/// else as many as the source layer shows. Empty when there is neither.
std::vector<double> SuppliedShares(const MosaicReport& mosaic, const ReportLayers& layers,
                                   std::size_t photos) {
  std::vector<double> cells(photos + 1, 0);
  if (mosaic.supplied.size() == cells.size()) {
    std::copy(mosaic.supplied.begin() + 1, mosaic.supplied.end(), cells.begin() + 1);
  } else if (!layers.source.empty()) {
    for (const std::uint16_t number : layers.source) {
      if (number > 0 && number <= photos) ++cells[number];
    }
  } else {
    return {};
  }
  const double sum = std::accumulate(cells.begin(), cells.end(), 0.0);
  for (double& share : cells) share = sum > 0 ? share / sum : 0;
  return cells;
}

json PhotoTable(const ReportInput& input, const ReportLayers& layers,
                const std::vector<GroundPhoto>& grounds) {
  std::map<std::pair<int, std::string>, const PhotoOutcome*> outcomes;
  for (const auto& outcome : input.run.photos) outcomes[{outcome.block, outcome.name}] = &outcome;
  std::map<int, const GroundPhoto*> byNumber;
  for (const auto& ground : grounds) byNumber[ground.number] = &ground;
  std::size_t count = 0;
  for (const auto& block : input.mosaic.blocks) count += block.GetPhotos().size();
  const std::vector<double> shares = SuppliedShares(input.run.mosaic, layers, count);

  json table = json::array();
  for (const auto& block : input.mosaic.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      const int number = static_cast<int>(table.size()) + 1;
      const auto& record = photo.Get();
      json row = {{"number", number},
                  {"name", photo.GetPhotoName()},
                  {"block", photo.GetImgBlkId()},
                  {"camera",
                   {Rounded(record.position[0]), Rounded(record.position[1]),
                    Rounded(record.position[2])}}};
      const auto outcome = outcomes.find({photo.GetImgBlkId(), photo.GetPhotoName()});
      if (outcome != outcomes.end()) {
        row["done"] = outcome->second->done;
        row["reason"] = outcome->second->reason;
        if (outcome->second->done) row["hidden"] = outcome->second->hiddenShare;
      }
      if (!shares.empty()) row["supplied"] = shares[static_cast<std::size_t>(number)];
      const auto ground = byNumber.find(number);
      if (ground != byNumber.end()) {
        row["frame"] = FrameOutline(*ground->second, MeanHeight(layers, ground->second->ground,
                                                                input.run.facts.dsm.meanHeight));
      }
      table.push_back(std::move(row));
    }
  }
  return table;
}

json SeamTable(const ReportLayers& layers) {
  json lines = json::array();
  if (layers.source.empty()) return lines;
  const GridView<const std::uint16_t> numbers(layers.source.data(), layers.grid.rows,
                                              layers.grid.cols);
  for (const SeamLine& line : TraceSeams(numbers)) {
    json flat = json::array();
    for (const auto& corner : Simplified(line, kSeamTolerance)) {
      flat.push_back(corner.x);
      flat.push_back(corner.y);
    }
    lines.push_back(std::move(flat));
  }
  return lines;
}

json Summary(const RunReport& run) {
  const MosaicReport& m = run.mosaic;
  return {{"gsd", run.gsd},
          {"mosaicMade", !run.mosaicPath.empty()},
          {"cells", m.cells},
          {"seen", m.seen},
          {"seenByOne", m.seenByOne},
          {"filled", m.filled},
          {"neverCovered", m.neverCovered},
          {"seamLength", m.seamLength},
          {"colourStepBefore", m.colourStepBefore},
          {"colourStepAfter", m.colourStepAfter},
          {"photosKept", run.photosKept},
          {"seconds", run.seconds},
          {"peakMemoryBytes", run.peakMemoryBytes},
          {"dsmCell", run.facts.dsm.cell},
          {"photoResolution", run.facts.photoResolution}};
}

json Pairs(const std::vector<std::pair<std::string, std::string>>& pairs) {
  json list = json::array();
  for (const auto& [name, value] : pairs) list.push_back({name, value});
  return list;
}

}  // namespace

std::vector<GroundPhoto> PhotosOnGround(const MosaicInput& input) {
  std::vector<GroundPhoto> photos;
  int number = 0;
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      ++number;
      const auto camera = input.cameras.find(photo.GetCameraId());
      if (!HasArea(photo.GetGeoRect()) || camera == input.cameras.end()) continue;
      GroundPhoto ground;
      ground.number = number;
      ground.camera = CameraOf(camera->second, photo);
      ground.photoPath = block.GetPhotoPath() + "/" + photo.GetPhotoName();
      ground.maskPath =
          ObscuredMaskName(OrthoName(input.orthoPrefix, photo.GetPhotoName(), photo.GetImgBlkId()));
      ground.ground = photo.GetGeoRect();
      photos.push_back(std::move(ground));
    }
  }
  return photos;
}

json ReportData(const ReportInput& input, const ReportLayers& layers,
                const std::vector<GroundPhoto>& photos) {
  const ReportGrid& grid = layers.grid;
  json stages = json::array();
  for (std::size_t i = 0; i < input.run.stages.size(); ++i) {
    const StageTime& stage = input.run.stages[i];
    json row = {{"name", stage.name}, {"seconds", stage.seconds}};
    if (i < input.stagePeakMemoryBytes.size()) row["memory"] = input.stagePeakMemoryBytes[i];
    stages.push_back(std::move(row));
  }
  json crs = nullptr;
  if (const auto system = geo::DescribeCrs(grid.projection)) {
    crs = {{"name", system->name},
           {"code", system->authority},
           {"metresPerUnit", system->metresPerUnit}};
  }
  return {{"title", input.title},
          {"crs", crs},
          {"grid",
           {{"minX", grid.minX},
            {"maxY", grid.maxY},
            {"cellX", grid.cellX},
            {"cellY", grid.cellY},
            {"cols", grid.cols},
            {"rows", grid.rows}}},
          {"summary", Summary(input.run)},
          {"photos", PhotoTable(input, layers, photos)},
          {"seams", SeamTable(layers)},
          {"stages", stages},
          {"settings", Pairs(input.settings)},
          {"versions", Pairs(input.versions)},
          {"notes", input.notes}};
}

}  // namespace tqtortho::host
