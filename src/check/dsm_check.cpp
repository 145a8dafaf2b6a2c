// SPDX-License-Identifier: Apache-2.0
//
// What is wrong with a surface model alone.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <string_view>

#include "check/input_check.h"
#include "check/job_estimate.h"
#include "core/limits.h"
#include "geo/CellSample.h"
#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "stage/surface_limit.h"
#include "survey/map_scale.h"

namespace tqtortho::host {
namespace {

using Level = Finding::Level;

/// Metres of a unit's name; 0 when it is not known.
double MetresOf(std::string_view unit) {
  for (const std::string_view name : {"m", "metre", "meter", "metres", "meters"}) {
    if (unit == name) return 1;
  }
  for (const std::string_view name : {"ft", "foot", "feet", "international foot"}) {
    if (unit == name) return 0.3048;
  }
  for (const std::string_view name : {"US survey foot", "us-ft", "ftUS", "US survey feet"}) {
    if (unit == name) return 1200.0 / 3937;
  }
  return 0;
}

void CheckUnits(const std::string& path, const geo::CrsInfo& crs, const std::string& bandUnit,
                std::vector<Finding>& findings) {
  const double flat = crs.metresPerUnit;
  const double high = crs.metresPerHeightUnit > 0 ? crs.metresPerHeightUnit : MetresOf(bandUnit);
  const bool metric = std::abs(flat - 1) < 1e-6;
  // US survey and international feet differ by 2 millionths: no matter for heights.
  if (high > 0 && std::abs(high / flat - 1) > 1e-5) {
    findings.push_back(
        {Level::kError,
         path + ": its heights are in units of " + ShortNumber(high) + " m, its coordinates in " +
             ShortNumber(flat) + " m; " +
             (metric ? "convert the heights, for instance gdal_calc.py --calc=\"A*" +
                           ShortNumber(high) + "\", and set their unit to metre"
                     : "reproject it to a metric system (gdalwarp -t_srs EPSG:326xx) and convert "
                       "the heights to metres")});
  } else if (!metric) {
    findings.push_back(
        {Level::kWarning,
         path + ": its units are " + ShortNumber(flat) +
             " m; heights and photo positions must be in the same unit (and thresholds meant as "
             "metres count in it); a metric system is safer"});
  }
}

void CheckCrs(const std::string& path, const std::string& bandUnit, DsmFacts& facts,
              std::vector<Finding>& findings) {
  const std::string& wkt = facts.coefficients.GetProjection();
  if (wkt.empty()) {
    findings.push_back(
        {Level::kWarning, path + ": names no coordinate system; outputs will name none either"});
  }
  const auto crs = wkt.empty() ? std::nullopt : geo::DescribeCrs(wkt);
  if (!crs) return CheckUnits(path, {}, bandUnit, findings);
  facts.crsName = crs->name;
  facts.crsCode = crs->authority;
  if (crs->geographic) {
    findings.push_back(
        {Level::kError, path + ": is in degrees (" + crs->name +
                            "); reproject it to a metric system, for instance gdalwarp -t_srs "
                            "EPSG:326xx"});
    return;
  }
  CheckUnits(path, *crs, bandUnit, findings);
}

/// Height statistics from a sample: a surface of any size costs the same.
bool SampleHeights(const std::string& path, DsmFacts& facts) {
  geo::CellSample sample;
  if (!geo::SampleCells(path, sample) || sample.looked == 0) return false;
  const auto& heights = sample.heights;
  facts.noDataShare = 1 - static_cast<double>(heights.size()) / static_cast<double>(sample.looked);
  if (heights.empty()) return true;
  const auto [low, high] = std::minmax_element(heights.begin(), heights.end());
  facts.minHeight = *low;
  facts.maxHeight = *high;
  facts.meanHeight =
      std::accumulate(heights.begin(), heights.end(), 0.0) / static_cast<double>(heights.size());
  return true;
}

/// What makes a raster no usable surface whatever its values; empty when nothing does.
std::string ShapeFault(const std::string& path, const geo::RasterSummary& summary) {
  const auto cell = summary.coefficients.GetResolution();
  if (!summary.hasGeoreference) {
    return path + ": has no georeference; write one into it, for instance gdal_edit.py -a_ullr";
  }
  if (summary.rotated || !(cell.x > 0) || !(cell.y < 0)) {
    return path + ": is rotated or not north-up; resample it with gdalwarp";
  }
  if (std::abs(cell.x + cell.y) > 1e-6 * cell.x) {
    return path + ": cells are not square (" + ShortNumber(cell.x) + " x " + ShortNumber(-cell.y) +
           "); resample it, for instance gdalwarp -tr " + ShortNumber(cell.x) + " " +
           ShortNumber(cell.x);
  }
  if (summary.bands > 1 && summary.sampleType == "Byte") {
    return path + ": has " + std::to_string(summary.bands) +
           " bands of bytes: a picture, not a surface; give the DSM with --dsm";
  }
  if (summary.sampleType.rfind('C', 0) == 0) {
    return path + ": holds complex numbers (" + summary.sampleType +
           "), not heights; give the DSM with --dsm";
  }
  if (summary.scale != 1 || summary.offset != 0) {
    return path + ": keeps heights scaled (value * " + ShortNumber(summary.scale) + " + " +
           ShortNumber(summary.offset) +
           "); write them out with gdal_translate -unscale -ot Float32";
  }
  return {};
}

}  // namespace

std::string SurfaceSizeFault(const std::string& path, int cols, int rows,
                             std::int64_t machineBytes) {
  std::string fault = SurfaceTooLarge(path, cols, rows);
  if (!fault.empty()) return fault;
  const std::int64_t bytes = static_cast<std::int64_t>(cols) * rows * limits::kSurfaceBytesPerCell;
  if (machineBytes <= 0 || bytes <= machineBytes) return {};
  return path + ": has " + std::to_string(cols) + " x " + std::to_string(rows) +
         " cells; preparing them takes " + ShortNumber(static_cast<double>(bytes) / 1e9) +
         " GB of memory, this machine has " + ShortNumber(static_cast<double>(machineBytes) / 1e9) +
         " GB; cut the surface model or make it coarser";
}

void CheckSurface(const std::string& dsmPath, DsmFacts& facts, std::vector<Finding>& findings) {
  geo::RasterSummary summary;
  std::string why;
  if (dsmPath.empty()) {
    findings.push_back({Level::kError, "no DSM given; name one with --dsm FILE"});
    return;
  }
  if (!geo::DescribeRaster(dsmPath, summary, why)) {
    findings.push_back({Level::kError, why});
    return;
  }
  const std::string large =
      SurfaceSizeFault(dsmPath, summary.width, summary.height, MachineMemory());
  if (!large.empty()) {
    findings.push_back({Level::kError, large});
    return;
  }
  facts.cols = summary.width;
  facts.rows = summary.height;
  facts.coefficients = summary.coefficients;
  facts.cell = summary.coefficients.GetResolution().x;
  std::string fault = SurfaceSizeFault(dsmPath, facts.cols, facts.rows, MachineMemory());
  if (fault.empty()) fault = ShapeFault(dsmPath, summary);
  if (!fault.empty()) {
    findings.push_back({Level::kError, fault});
    return;
  }
  CheckCrs(dsmPath, summary.unit, facts, findings);
  if (!SampleHeights(dsmPath, facts)) {
    findings.push_back(
        {Level::kError, dsmPath + ": heights cannot be read; the file may be truncated"});
  } else if (facts.noDataShare >= 1) {
    findings.push_back({Level::kError, dsmPath + ": holds no height (every cell is no data)"});
  }
}

void CheckDsm(const std::string& dsmPath, DsmFacts& facts, std::vector<Finding>& findings) {
  CheckSurface(dsmPath, facts, findings);
  if (!(facts.cell > 0)) return;
  const auto middle = facts.coefficients.Raster2World(facts.cols / 2.0, facts.rows / 2.0);
  if (auto scale = CheckMapScale(dsmPath, facts.coefficients.GetProjection(), middle.x, middle.y)) {
    findings.push_back(*std::move(scale));
  }
}

}  // namespace tqtortho::host
