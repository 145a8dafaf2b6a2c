// SPDX-License-Identifier: Apache-2.0
#include "host/job_estimate.h"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <set>

#include "core/numeric.h"
#include "core/rect_ops.h"
#include "host/photo_outline.h"

namespace tqtortho::host {
namespace {

using Box = tqfd::Rect2_T<double>;
using Point = tqfd::Point2_T<double>;

// Measured on finished jobs: a town of 150 m, one of 300 m, fields with a village. Bytes are those
// of files on disk; an ortho lies there twice, as rectified and as finished.
constexpr double kBytesPerOrthoCell = 3.0;
constexpr double kBytesPerMosaicCell = 4.2;  // mosaic, texture, numbers, regions
constexpr double kMosaicTifBytes = 2.0;      // of a mosaic cell
constexpr double kBytesPerDsmCell = 4.5;
constexpr double kBaseMemory = 150e6;
constexpr double kMemoryPerOrthoCell = 25;  // and thread
constexpr double kMemoryPerDsmCell = 22;    // while holes are filled
// Seconds of one core.
constexpr double kSecondsPerOrthoCell = 6e-7;
constexpr double kSecondsPerMosaicCell = 8e-7;
constexpr double kSecondsPerDsmCell = 1.5e-7;
constexpr double kSecondsBase = 1;

constexpr int kGridSide = 100;  // of the coarse grid that overlap is counted on

struct View {
  std::vector<Point> ring;  ///< empty: the frame reaches the horizon
  Box box;                  ///< cut to the DSM; without area when they do not meet
};

View ViewOf(const SurveyCamera& camera, const SurveyPhoto& photo, const DsmFacts& dsm,
            const Box& ground) {
  View view;
  view.ring = PhotoOutline(CameraOfSurvey(camera, photo), camera.rasterWidth, camera.rasterHeight,
                           dsm.meanHeight);
  if (view.ring.empty()) {
    // Toward the horizon: what is near enough to be of use.
    const double reach = 3 * std::max(photo.z - dsm.meanHeight, 1.0);
    view.box = {photo.x - reach, photo.y - reach, photo.x + reach, photo.y + reach};
  } else {
    view.box = {view.ring[0].x, view.ring[0].y, view.ring[0].x, view.ring[0].y};
    for (const Point& p : view.ring) FoldInto(view.box, Box{p.x, p.y, p.x, p.y});
  }
  view.box = Intersection(view.box, ground);
  return view;
}

/// Median number of views over the cells of a coarse grid that any view shows.
double MedianOverlap(const std::vector<View>& views, const Box& all) {
  std::vector<int> counts(static_cast<std::size_t>(kGridSide) * kGridSide, 0);
  const double stepX = (all.maxX - all.minX) / kGridSide, stepY = (all.maxY - all.minY) / kGridSide;
  for (const View& view : views) {
    if (!HasArea(view.box) || view.ring.empty()) continue;
    const int firstRow = std::max(FloorToInt((view.box.minY - all.minY) / stepY), 0);
    const int firstCol = std::max(FloorToInt((view.box.minX - all.minX) / stepX), 0);
    for (int row = firstRow; row < kGridSide; ++row) {
      const double y = all.minY + (row + 0.5) * stepY;
      if (y > view.box.maxY) break;
      for (int col = firstCol; col < kGridSide; ++col) {
        const double x = all.minX + (col + 0.5) * stepX;
        if (x > view.box.maxX) break;
        if (!Contains(view.ring, x, y)) continue;
        ++counts[static_cast<std::size_t>(row) * kGridSide + static_cast<std::size_t>(col)];
      }
    }
  }
  counts.erase(std::remove(counts.begin(), counts.end(), 0), counts.end());
  if (counts.empty()) return 0;
  const auto middle = counts.begin() + static_cast<std::ptrdiff_t>(counts.size() / 2);
  std::nth_element(counts.begin(), middle, counts.end());
  return *middle;
}

__attribute__((format(printf, 1, 2))) std::string Line(const char* format, ...) {
  char text[500];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

/// Two digits are all that an estimate knows.
std::string Size(double bytes) {
  if (bytes < 0) return "unknown";
  if (bytes < 1e9) return Line("%.0f MB", std::max(RoundUpTwoDigits(bytes / 1e6), 1.0));
  return Line("%.3g GB", RoundUpTwoDigits(bytes / 1e9));
}

std::string Time(double seconds) {
  const double s = std::max(RoundUpTwoDigits(seconds), 1.0);
  if (s < 90) return Line("%.0f s", s);
  if (s < 5400) return Line("%.0f min", s / 60);
  return Line("%.2g h", s / 3600);
}

std::string Count(std::size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

}  // namespace

JobEstimate EstimateJob(const Survey& survey, const DsmFacts& dsm, double gsd, int threads) {
  JobEstimate estimate;
  estimate.gsd = gsd;
  if (!(gsd > 0) || dsm.cols < 1) return estimate;
  const auto first = dsm.coefficients.Raster2World(0, 0);
  const auto last = dsm.coefficients.Raster2World(dsm.cols - 1, dsm.rows - 1);
  const Box ground{first.x, last.y, last.x, first.y};
  std::map<int, const SurveyCamera*> cameras;
  for (const auto& camera : survey.cameras) cameras.emplace(camera.id, &camera);
  std::vector<View> views;
  Box all{1e300, 1e300, -1e300, -1e300};
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) {
      const auto camera = cameras.find(photo.cameraId);
      if (camera == cameras.end()) continue;
      views.push_back(ViewOf(*camera->second, photo, dsm, ground));
      const Box& box = views.back().box;
      if (!HasArea(box)) {
        estimate.outside.push_back(photo.name);
        continue;
      }
      const double cells = (box.maxX - box.minX) / gsd * ((box.maxY - box.minY) / gsd);
      estimate.orthoCells += cells;
      estimate.largestOrthoCells = std::max(estimate.largestOrthoCells, cells);
      FoldInto(all, box);
    }
  }
  if (!HasArea(all)) return estimate;
  estimate.overlap = MedianOverlap(views, all);
  estimate.mosaicCells = (all.maxX - all.minX) / gsd * ((all.maxY - all.minY) / gsd);
  const double dsmCells = static_cast<double>(dsm.cols) * dsm.rows;
  const int workers = threads > 0 ? threads : omp_get_num_procs();
  estimate.mosaicBytes = kMosaicTifBytes * estimate.mosaicCells;
  estimate.diskBytes = kBytesPerOrthoCell * estimate.orthoCells +
                       kBytesPerMosaicCell * estimate.mosaicCells + kBytesPerDsmCell * dsmCells;
  estimate.memoryBytes =
      kBaseMemory + std::max(kMemoryPerOrthoCell * workers * estimate.largestOrthoCells,
                             kMemoryPerDsmCell * dsmCells);
  const double useful = std::min(workers, omp_get_num_procs());
  estimate.seconds =
      kSecondsBase + kSecondsPerDsmCell * dsmCells +
      (kSecondsPerOrthoCell * estimate.orthoCells + kSecondsPerMosaicCell * estimate.mosaicCells) /
          useful;
  return estimate;
}

std::vector<std::string> DescribeDsm(const std::string& path, const DsmFacts& dsm) {
  return {
      "DSM      " + path,
      Line("         %d x %d cells of %.6g, %s %s", dsm.cols, dsm.rows, dsm.cell,
           dsm.crsName.empty() ? "no coordinate system" : dsm.crsName.c_str(), dsm.crsCode.c_str()),
      Line("         heights %.2f to %.2f, mean %.2f; no data %.1f %%", dsm.minHeight,
           dsm.maxHeight, dsm.meanHeight, 100 * dsm.noDataShare)};
}

std::vector<std::string> DescribeJob(const Survey& survey, const SurveyFacts& facts,
                                     const JobEstimate& e, std::int64_t freeBytes) {
  std::set<int> used, models;
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) used.insert(photo.cameraId);
  }
  for (const auto& camera : survey.cameras) {
    if (used.contains(camera.id)) models.insert(camera.model);
  }
  std::string lenses;
  for (const int model : models) lenses += (lenses.empty() ? "" : ", ") + std::to_string(model);
  return {Line("photos   %d usable in %s of %s, lens model %s", facts.photos,
               Count(survey.blocks.size(), "block").c_str(), Count(used.size(), "camera").c_str(),
               lenses.c_str()),
          Line("         %.1f m above ground, ground resolution %.3g m, each place on about %s",
               facts.meanHeightAboveGround, facts.photoResolution,
               Count(static_cast<std::size_t>(FloorToInt(std::max(e.overlap, 0.0) + 0.5)), "photo")
                   .c_str()),
          Line("job      --gsd %.3g: mosaic of %.3g million cells, orthos of %.3g million", e.gsd,
               e.mosaicCells / 1e6, e.orthoCells / 1e6),
          Line("         about %s on disk (mosaic %s; %s free), %s of memory, %s of time",
               Size(e.diskBytes).c_str(), Size(e.mosaicBytes).c_str(),
               Size(static_cast<double>(freeBytes)).c_str(), Size(e.memoryBytes).c_str(),
               Time(e.seconds).c_str())};
}

void CheckRoom(const JobEstimate& estimate, const std::string& directory, std::int64_t freeBytes,
               std::int64_t machineBytes, std::vector<Finding>& findings) {
  const auto room = static_cast<double>(freeBytes);
  if (freeBytes >= 0 && room < estimate.diskBytes) {
    const bool clearly = room < estimate.diskBytes / 3;
    findings.push_back({clearly ? Finding::Level::kError : Finding::Level::kWarning,
                        directory + ": the job needs about " + Size(estimate.diskBytes) +
                            " there, " + Size(room) +
                            " are free; choose another --out, free some space or give a coarser "
                            "--gsd"});
  }
  if (machineBytes > 0 && estimate.memoryBytes > static_cast<double>(machineBytes)) {
    findings.push_back({Finding::Level::kWarning,
                        "the job needs about " + Size(estimate.memoryBytes) +
                            " of memory, this machine has " +
                            Size(static_cast<double>(machineBytes)) +
                            "; give fewer --threads or a coarser --gsd, or a coarser DSM"});
  }
}

std::int64_t MachineMemory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES), bytes = ::sysconf(_SC_PAGE_SIZE);
  return pages > 0 && bytes > 0 ? static_cast<std::int64_t>(pages) * bytes : -1;
}

}  // namespace tqtortho::host
