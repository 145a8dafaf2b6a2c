// SPDX-License-Identifier: Apache-2.0
#include "check/job_estimate.h"

#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <set>

#include "check/job_needs.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "survey/number_text.h"
#include "survey/photo_outline.h"

namespace tqtortho::host {
namespace {

using Box = tqfd::Rect2_T<double>;
using Point = tqfd::Point2_T<double>;

constexpr int kGridSide = 100;  // of the coarse grid that overlap is counted on

struct View {
  std::vector<Point> ring;  ///< cut to the ground; empty: the frame reaches the horizon
  Box box;                  ///< without area when frame and ground do not meet
};

/// The part of a ring on one side of an upright or level line: `sign` times the coordinate is at
/// least `sign` times `limit`.
std::vector<Point> CutAt(const std::vector<Point>& ring, double Point::*axis, double sign,
                         double limit) {
  std::vector<Point> kept;
  for (std::size_t i = 0; i < ring.size(); ++i) {
    const Point& p = ring[i];
    const Point& q = ring[(i + 1) % ring.size()];
    const double a = sign * (p.*axis - limit);
    const double b = sign * (q.*axis - limit);
    if (a >= 0) kept.push_back(p);
    if ((a >= 0) != (b >= 0)) {
      const double t = a / (a - b);
      kept.push_back({p.x + t * (q.x - p.x), p.y + t * (q.y - p.y)});
    }
  }
  return kept;
}

/// What a frame shows of the ground, on the plane of its mean height.
View ViewOf(const SurveyCamera& camera, const SurveyPhoto& photo, double height,
            const Box& ground) {
  View view;
  view.ring =
      PhotoOutline(CameraOfSurvey(camera, photo), camera.rasterWidth, camera.rasterHeight, height);
  if (view.ring.empty()) {
    // Toward the horizon: what is near enough to be of use.
    const double reach = 3 * std::max(photo.z - height, 1.0);
    view.box = Intersection(Box{photo.x - reach, photo.y - reach, photo.x + reach, photo.y + reach},
                            ground);
    return view;
  }
  // The frame is cut before its box is taken: a tilted frame's box holds corners it never shows.
  view.ring = CutAt(view.ring, &Point::x, 1, ground.minX);
  view.ring = CutAt(view.ring, &Point::x, -1, ground.maxX);
  view.ring = CutAt(view.ring, &Point::y, 1, ground.minY);
  view.ring = CutAt(view.ring, &Point::y, -1, ground.maxY);
  view.box = {1, 1, -1, -1};
  if (view.ring.size() < 3) return view;
  view.box = {view.ring[0].x, view.ring[0].y, view.ring[0].x, view.ring[0].y};
  for (const Point& p : view.ring) FoldInto(view.box, Box{p.x, p.y, p.x, p.y});
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

/// Two digits, rounded up.
std::string Size(double bytes) {
  if (bytes < 0) return "unknown";
  const double rounded = std::max(RoundUpTwoDigits(bytes / 1e6), 1.0);
  if (rounded < 1e3) return Readable(rounded) + " MB";
  if (rounded < 1e6) return Readable(rounded / 1e3) + " GB";
  return Readable(rounded / 1e6) + " TB";
}

std::string Time(double seconds) {
  const double s = std::max(RoundUpTwoDigits(seconds), 1.0);
  if (s < 90) return Line("%.0f s", s);
  if (s < 5400) return Line("%.0f min", s / 60);
  if (s < 48 * 3600.0) return Line("%.2g h", s / 3600);
  return Readable(std::ceil(s / 86400)) + " days";
}

std::string Count(std::size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

}  // namespace

JobEstimate EstimateJob(const Survey& survey, const DsmFacts& dsm, double gsd, int threads,
                        const std::vector<Point>& area) {
  JobEstimate estimate;
  estimate.gsd = gsd;
  if (!(gsd > 0) || dsm.cols < 1) return estimate;
  const auto first = dsm.coefficients.Raster2World(0, 0);
  const auto last = dsm.coefficients.Raster2World(dsm.cols - 1, dsm.rows - 1);
  Box ground{first.x, last.y, last.x, first.y};
  if (!area.empty()) {
    Box part{area[0].x, area[0].y, area[0].x, area[0].y};
    for (const Point& p : area) FoldInto(part, Box{p.x, p.y, p.x, p.y});
    ground = Intersection(ground, part);
  }
  std::map<int, const SurveyCamera*> cameras;
  for (const auto& camera : survey.cameras) cameras.emplace(camera.id, &camera);
  std::vector<View> views;
  JobSizes sizes;
  Box all{1e300, 1e300, -1e300, -1e300};
  for (const auto& block : survey.blocks) {
    for (const auto& photo : block.photos) {
      const auto camera = cameras.find(photo.cameraId);
      if (camera == cameras.end()) continue;
      const SurveyCamera& c = *camera->second;
      views.push_back(ViewOf(c, photo, dsm.meanHeight, ground));
      const Box& box = views.back().box;
      if (!HasArea(box)) {
        estimate.outside.push_back(photo.name);
        continue;
      }
      const double cells = (box.maxX - box.minX) / gsd * ((box.maxY - box.minY) / gsd);
      const double pixels = c.rasterWidth > 0 && c.rasterHeight > 0
                                ? static_cast<double>(c.rasterWidth) * c.rasterHeight
                                : c.width * c.height;
      sizes.photos.push_back({pixels, cells});
      estimate.orthoCells += cells;
      FoldInto(all, box);
    }
  }
  if (!HasArea(all)) return estimate;
  estimate.overlap = MedianOverlap(views, all);
  estimate.mosaicCells = (all.maxX - all.minX) / gsd * ((all.maxY - all.minY) / gsd);
  sizes.orthoCells = estimate.orthoCells;
  sizes.mosaicCells = estimate.mosaicCells;
  sizes.dsmCells = static_cast<double>(dsm.cols) * dsm.rows;
  sizes.overlap = estimate.overlap;
  sizes.workers = threads > 0 ? threads : omp_get_max_threads();
  estimate.mosaicBytes = MosaicFileBytes(sizes);
  estimate.diskBytes = DiskNeeded(sizes);
  estimate.memoryBytes = MemoryNeeded(sizes);
  estimate.seconds = SecondsNeeded(sizes);
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
          Line("         %.1f m above ground, ground resolution %.3g m, each place in about %s",
               facts.meanHeightAboveGround, facts.photoResolution,
               Count(static_cast<std::size_t>(FloorToInt(std::max(e.overlap, 0.0) + 0.5)), "photo")
                   .c_str()),
          Line("job      --gsd %s: mosaic of %s, orthos of %s", ShortNumber(e.gsd).c_str(),
               Cells(e.mosaicCells).c_str(), Cells(e.orthoCells).c_str()),
          Line("         about %s on disk (mosaic %s; %s free), %s of memory, %s of time",
               Size(e.diskBytes).c_str(), Size(e.mosaicBytes).c_str(),
               Size(static_cast<double>(freeBytes)).c_str(), Size(e.memoryBytes).c_str(),
               Time(e.seconds).c_str())};
}

void CheckCost(const JobEstimate& estimate, double photoResolution, const std::string& directory,
               const Machine& machine, bool allowed, std::vector<Finding>& findings) {
  const auto level = allowed ? Finding::Level::kWarning : Finding::Level::kError;
  const std::string goOn = allowed ? "" : "; to run it all the same, give --allow-large-job";
  const auto add = [&](const std::string& text) { findings.push_back({level, text + goOn}); };
  const auto room = static_cast<double>(machine.freeBytes);
  if (machine.freeBytes >= 0 && room < estimate.diskBytes) {
    add(directory + ": the job needs about " + Size(estimate.diskBytes) + " there, " + Size(room) +
        " are free; choose another --out, free some space or give a coarser --gsd");
  }
  const auto memory = static_cast<double>(machine.memoryBytes);
  if (machine.memoryBytes > 0 && memory < estimate.memoryBytes) {
    add("the job needs about " + Size(estimate.memoryBytes) + " of memory, this machine has " +
        Size(memory) + "; give fewer --threads or a coarser --gsd, or a coarser DSM");
  }
  if (estimate.seconds > kLongJob && estimate.gsd < kFarFiner * photoResolution) {
    add("the job would take about " + Time(estimate.seconds) + ", because --gsd " +
        ShortNumber(estimate.gsd) + " is far finer than the photos (" +
        ShortNumber(RoundUpTwoDigits(photoResolution)) +
        "), which hold no more detail; leave --gsd out");
  }
}

std::int64_t MachineMemory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES), bytes = ::sysconf(_SC_PAGE_SIZE);
  return pages > 0 && bytes > 0 ? static_cast<std::int64_t>(pages) * bytes : -1;
}

}  // namespace tqtortho::host
