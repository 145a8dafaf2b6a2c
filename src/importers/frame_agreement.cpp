// SPDX-License-Identifier: Apache-2.0
#include "importers/frame_agreement.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "core/numeric.h"
#include "geo/CellSample.h"
#include "geo/RasterTools.h"
#include "geo/ScaledRead.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

constexpr int kAnchors = 24;           // photos whose surroundings are looked at
constexpr std::size_t kPairs = 8;      // of which these, with the most telling relief, are compared
constexpr std::size_t kPatches = 300;  // of a pair
constexpr int kMostCells = 1200;       // of the DSM on a side, for a pair
// Displacements are found up to a quarter of a patch.
constexpr double kFarthest = 0.2;
// Finer than the DSM's cells, since texture is; not much, since heights are not.
constexpr double kStepsInCell = 3;
// Photos are read no larger than this on a side, so that a survey of any camera takes as long.
constexpr int kMostPixels = 3000;
constexpr int kMostReduction = 64;
constexpr double kEnoughSteps = 4;
constexpr double kSteepest = 1;  // mean slope within a patch: walls hide, crowns do not register

/// Where a photo looks, under the first hypothesis.
struct View {
  std::size_t photo = 0;
  double x = 0, y = 0;  ///< the middle of the photo on level ground
  double height = 0;    ///< of the camera above it
  double gsd = 0;       ///< at the least reduction
  double shift = 0;     ///< of that between the hypotheses
};

/// The reduction, a power of two (at which JPEG files can be decoded), that no photo goes below.
int LeastReduction(const SourceLens& lens) {
  int reduction = 1;
  while (reduction < kMostReduction && lens.Size() > static_cast<double>(kMostPixels) * reduction) {
    reduction *= 2;
  }
  return reduction;
}

/// The point of level ground that a camera's axis meets; nothing for views near the horizon.
std::optional<Vector3> AxisOnGround(const CameraPlace& place, double ground) {
  const double down = place.cameraToGround[8], above = place.centre[2] - ground;
  if (!(down > 0.3) || !(above > 1)) return std::nullopt;
  return Vector3{place.centre[0] - place.cameraToGround[2] * above / down,
                 place.centre[1] - place.cameraToGround[5] * above / down, ground};
}

std::vector<View> ViewsOf(const std::vector<TwoPlaces>& photos, double ground) {
  std::vector<View> views;
  for (std::size_t i = 0; i < photos.size(); ++i) {
    const auto a = AxisOnGround(photos[i].first, ground),
               b = AxisOnGround(photos[i].second, ground);
    if (!a || !b) continue;
    View v;
    v.photo = i;
    v.x = (*a)[0];
    v.y = (*a)[1];
    v.height = photos[i].first.centre[2] - ground;
    v.gsd =
        v.height / (photos[i].lens.focalX * photos[i].lens.Size()) * LeastReduction(photos[i].lens);
    v.shift = std::hypot((*b)[0] - (*a)[0], (*b)[1] - (*a)[1]);
    const bool finite = std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.shift);
    if (finite && v.gsd > 0) views.push_back(v);
  }
  return views;
}

/// Views spread over the survey, beginning where the hypotheses differ most.
std::vector<std::size_t> SpreadViews(const std::vector<View>& views) {
  std::vector<std::size_t> chosen;
  std::vector<double> distance(views.size(), std::numeric_limits<double>::infinity());
  std::size_t next = 0;
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (views[i].shift > views[next].shift) next = i;
  }
  while (chosen.size() < std::min<std::size_t>(kAnchors, views.size()) && distance[next] > 0) {
    chosen.push_back(next);
    const View& c = views[next];
    for (std::size_t i = 0; i < views.size(); ++i) {
      distance[i] = std::min(distance[i], std::hypot(views[i].x - c.x, views[i].y - c.y));
    }
    next = static_cast<std::size_t>(std::max_element(distance.begin(), distance.end()) -
                                    distance.begin());
  }
  return chosen;
}

/// A patch with what the surface changes by when it is moved to the other hypothesis's place.
struct TellingPatch {
  GroundPatch ground;
  double rise = 0;      ///< from here to where the second hypothesis puts what is seen here
  double riseBack = 0;  ///< the same the other way
};

/// Two photos of one place with a base that shows its relief, and what can be compared there.
struct Pair {
  std::size_t one = 0, other = 0;  ///< photos
  std::vector<TellingPatch> patches;
  SurfacePatch surface;
  double telling = 0;  ///< sum of squares of the rises: the share's precision grows with it
  double gsd = 0;
};

/// The view that goes best with another one, or nothing.
std::optional<std::size_t> PartnerOf(std::size_t anchor, const std::vector<View>& views,
                                     const std::vector<TwoPlaces>& photos) {
  constexpr double kBestBase = 0.4;  // of the height: relief shows, and walls do not hide it
  std::optional<std::size_t> best;
  double bestCost = std::numeric_limits<double>::infinity();
  const View& a = views[anchor];
  const Vector3& from = photos[a.photo].first.centre;
  for (std::size_t i = 0; i < views.size(); ++i) {
    const View& b = views[i];
    const Vector3& to = photos[b.photo].first.centre;
    const double base = std::hypot(to[0] - from[0], to[1] - from[1], to[2] - from[2]) / a.height;
    const double apart = std::hypot(b.x - a.x, b.y - a.y) / a.height;
    if (i == anchor || !(base > 0.1 && base < 1.2 && apart < 1.2)) continue;
    if (!(b.gsd < 2 * a.gsd && a.gsd < 2 * b.gsd)) continue;
    const double cost = apart + 2 * std::fabs(base - kBestBase);
    if (cost >= bestCost) continue;
    bestCost = cost;
    best = i;
  }
  return best;
}

/// The heights about a place, `reach` metres to each side; empty when they cannot be read.
SurfacePatch ReadSurface(const tqimage::TqImage& file, double x, double y, double reach) {
  SurfacePatch out;
  const auto at = file.GetGeoCoefficients();
  out.cell = at.GetResolution().x;
  const auto middle = at.World2Raster(x, y, -1, -1);
  const int half = std::min(TruncToInt(reach / out.cell), kMostCells / 2);
  const int cols = file.GetWidth(), rows = file.GetHeight();
  if (middle.x < 0 || middle.y < 0 || middle.x >= cols || middle.y >= rows) return out;
  const int left = std::max(0, middle.x - half), top = std::max(0, middle.y - half);
  const int right = middle.x + std::min(half, cols - middle.x);
  const int bottom = middle.y + std::min(half, rows - middle.y);
  if (half < 2 || right - left < 2 || bottom - top < 2) return out;
  out.heights.resize(static_cast<std::size_t>(right - left) *
                     static_cast<std::size_t>(bottom - top));
  if (!file.ReadImage(0, {left, top, right, bottom}, tqimage::kFloat32, out.heights.data())) {
    out.heights.clear();
    return out;
  }
  const double noData = file.HasNoDataValue(0) ? file.GetNoDataValue(0) : -9999.0;
  for (float& h : out.heights) {
    if (h == static_cast<float>(noData) || h == -9999.0F) {
      h = std::numeric_limits<float>::quiet_NaN();
    }
  }
  out.cols = right - left;
  out.rows = bottom - top;
  const auto first = at.Raster2World(left, top);
  out.west = first.x;
  out.north = first.y;
  return out;
}

/// Where a ground point comes to lie when a photo is moved from one place to another.
Vector3 MovedWith(const Vector3& ground, const CameraPlace& from, const CameraPlace& to) {
  Vector3 ray{};
  for (std::size_t i = 0; i < 3; ++i) ray[i] = ground[i] - from.centre[i];
  Vector3 moved = Product(to.cameraToGround, Product(Transposed(from.cameraToGround), ray));
  for (std::size_t i = 0; i < 3; ++i) moved[i] += to.centre[i];
  return moved;
}

/// Fills the rises of a patch. False beside cells without height and on walls.
bool FindRises(const SurfacePatch& surface, const TwoPlaces& photo, TellingPatch& patch) {
  const GroundPatch& g = patch.ground;
  const double middle = surface.HeightAt(g.x, g.y);
  if (!std::isfinite(middle)) return false;
  const Vector3 there = MovedWith({g.x, g.y, middle}, photo.first, photo.second);
  const Vector3 back = MovedWith({g.x, g.y, middle}, photo.second, photo.first);
  constexpr int kLooks = 5;
  double low = middle, high = middle;
  patch.rise = patch.riseBack = 0;
  for (int i = 0; i < kLooks * kLooks; ++i) {
    const double side = g.step * (g.samples - 1);
    const double dx = (i % kLooks / (kLooks - 1.0) - 0.5) * side;
    const double dy = (i / kLooks / (kLooks - 1.0) - 0.5) * side;
    const double h = surface.HeightAt(g.x + dx, g.y + dy);
    low = std::min(low, h);
    high = std::max(high, h);
    patch.rise += (surface.HeightAt(there[0] + dx, there[1] + dy) - h) / (kLooks * kLooks);
    patch.riseBack += (surface.HeightAt(back[0] + dx, back[1] + dy) - h) / (kLooks * kLooks);
  }
  return std::isfinite(patch.rise) && std::isfinite(patch.riseBack) &&
         high - low < kSteepest * g.step * g.samples;
}

Pair MakePair(const View& a, const View& b, const std::vector<TwoPlaces>& photos,
              const tqimage::TqImage& dsm) {
  Pair pair;
  pair.one = a.photo;
  pair.other = b.photo;
  pair.gsd = std::max(a.gsd, b.gsd);
  const Vector3 &from = photos[a.photo].first.centre, &to = photos[b.photo].first.centre;
  const double base = std::hypot(to[0] - from[0], to[1] - from[1], to[2] - from[2]) / a.height;
  pair.surface = ReadSurface(dsm, 0.5 * (a.x + b.x), 0.5 * (a.y + b.y), 0.5 * a.height);
  const SurfacePatch& surface = pair.surface;
  if (surface.heights.empty()) return pair;
  TellingPatch patch;
  patch.ground.step = std::max(surface.cell / kStepsInCell, pair.gsd);
  const double side = patch.ground.step * patch.ground.samples;
  const int across = TruncToInt(surface.cols * surface.cell / side);
  const int down = TruncToInt(surface.rows * surface.cell / side);
  for (int row = 0; row < down; ++row) {
    for (int col = 0; col < across; ++col) {
      patch.ground.x = surface.west + (col + 0.5) * side;
      patch.ground.y = surface.north - (row + 0.5) * side;
      if (!FindRises(surface, photos[a.photo], patch)) continue;
      if (std::max(std::fabs(patch.rise), std::fabs(patch.riseBack)) * base > kFarthest * side) {
        continue;
      }
      pair.patches.push_back(patch);
    }
  }
  // The same number of rises and falls would be best; the largest of either is near enough.
  std::stable_sort(pair.patches.begin(), pair.patches.end(),
                   [](const TellingPatch& p, const TellingPatch& q) {
                     return std::fabs(p.rise - p.riseBack) > std::fabs(q.rise - q.riseBack);
                   });
  if (pair.patches.size() > kPatches) pair.patches.resize(kPatches);
  for (const TellingPatch& p : pair.patches) {
    // More than a few samples of displacement mostly means trees, which do not register.
    const double rise = std::min(std::fabs(p.rise - p.riseBack), kEnoughSteps * patch.ground.step);
    pair.telling += rise * rise;
  }
  return pair;
}

/// Photos as grey rasters, each read once.
class GreyPhotos {
 public:
  /// Reduced so far that a pixel is not larger than `step` on the ground; an empty view when it
  /// cannot be read as the camera's own raster.
  GridView<const std::uint8_t> Read(const TwoPlaces& photo, double gsd, double step) {
    auto [it, isNew] = read_.try_emplace(photo.path);
    Grey& grey = it->second;
    if (isNew) {
      geo::RasterSummary summary;
      std::string ignored;
      if (!geo::DescribeRaster(photo.path, summary, ignored) || summary.width != photo.lens.width ||
          summary.height != photo.lens.height) {
        return {};
      }
      const int least = LeastReduction(photo.lens);
      int reduction = least;
      while (reduction < kMostReduction && 2.0 * reduction / least * gsd <= step) reduction *= 2;
      grey.cols = (summary.width + reduction - 1) / reduction;
      grey.rows = (summary.height + reduction - 1) / reduction;
      const geo::ScaledWindow whole{0,
                                    0,
                                    static_cast<double>(summary.width),
                                    static_cast<double>(summary.height),
                                    grey.cols,
                                    grey.rows};
      // Green where there are colours.
      if (!geo::ReadScaled(photo.path, summary.bands >= 3 ? 2 : 1, whole, geo::Scaling::kSmooth,
                           grey.cells)) {
        grey.cells.clear();
      }
    }
    if (grey.cells.empty()) return {};
    return {grey.cells.data(), grey.rows, grey.cols};
  }

 private:
  struct Grey {
    std::vector<std::uint8_t> cells;
    int cols = 0, rows = 0;
  };
  std::map<std::string, Grey> read_;
};

}  // namespace

FrameAgreement CompareFrames(const std::string& dsmPath, const std::vector<TwoPlaces>& photos) {
  FrameAgreement out;
  geo::CellSample sample;
  tqimage::TqImage dsm;
  if (!geo::SampleCells(dsmPath, sample) || sample.heights.empty() || !dsm.Open(dsmPath, true) ||
      !(dsm.GetGeoCoefficients().GetResolution().x > 0)) {
    return out;
  }
  auto& heights = sample.heights;
  const auto middle = heights.begin() + static_cast<std::ptrdiff_t>(heights.size() / 2);
  std::nth_element(heights.begin(), middle, heights.end());
  const std::vector<View> views = ViewsOf(photos, *middle);
  if (views.size() < 2) return out;
  std::vector<Pair> pairs;
  for (const std::size_t anchor : SpreadViews(views)) {
    const auto partner = PartnerOf(anchor, views, photos);
    if (!partner) continue;
    // Two neighbours that are each other's best are one pair.
    const std::size_t one = views[anchor].photo, other = views[*partner].photo;
    if (std::any_of(pairs.begin(), pairs.end(),
                    [&](const Pair& p) { return p.one == other && p.other == one; })) {
      continue;
    }
    Pair pair = MakePair(views[anchor], views[*partner], photos, dsm);
    if (!pair.patches.empty()) pairs.push_back(std::move(pair));
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const Pair& p, const Pair& q) { return p.telling > q.telling; });
    if (pairs.size() > kPairs) pairs.resize(kPairs);
  }
  GreyPhotos greys;
  std::vector<RelationSample> samples;
  for (const Pair& pair : pairs) {
    const TwoPlaces &one = photos[pair.one], &other = photos[pair.other];
    const double step = pair.patches[0].ground.step;
    const AgreeingPhoto a{one.lens, one.first, greys.Read(one, pair.gsd, step)};
    const AgreeingPhoto b{other.lens, other.first, greys.Read(other, pair.gsd, step)};
    if (a.grey.Empty() || b.grey.Empty()) continue;
    const AgreeingPhoto a2{a.lens, one.second, a.grey}, b2{b.lens, other.second, b.grey};
    const std::size_t before = samples.size();
    for (const TellingPatch& patch : pair.patches) {
      if (const auto seen = HeightAboveSurface(a, b, pair.surface, patch.ground)) {
        samples.push_back({patch.rise, *seen, 2 * out.pairs});
      }
      // Placed as the second says, what is missing is the way back from it.
      if (const auto seen = HeightAboveSurface(a2, b2, pair.surface, patch.ground)) {
        samples.push_back({-patch.riseBack, *seen - patch.riseBack, 2 * out.pairs + 1});
      }
    }
    if (samples.size() > before) ++out.pairs;
  }
  out.fit = FitShare(std::move(samples));
  return out;
}

}  // namespace tqtortho::host
