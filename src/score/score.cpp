// SPDX-License-Identifier: Apache-2.0
#include "score/score.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <system_error>
#include <utility>
#include <vector>

#include "core/grid_view.h"
#include "core/numeric.h"
#include "core/stop_flag.h"
#include "geo/ScaledRead.h"
#include "score/patch_registration.h"
#include "stage/photo_files.h"
#include "tqimage/TqImage.h"
#include "tqorkit/PhotoInfo.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

constexpr double kPerfectPsnr = 99;  ///< reported for no difference at all
constexpr double kClearOfObjectsM = 1.5;
constexpr double kPatchM = 4;
constexpr int kSeen = 0, kHidden = 255, kOutside = 128;  ///< of the truth's visibility

/// What is counted before it becomes a score; pooling adds up.
struct Tally {
  double squares = 0, samples = 0;
  double both = 0, markedOnly = 0, hiddenOnly = 0;
  std::vector<double> shifts;

  void Add(const Tally& other) {
    squares += other.squares;
    samples += other.samples;
    both += other.both;
    markedOnly += other.markedOnly;
    hiddenOnly += other.hiddenOnly;
    shifts.insert(shifts.end(), other.shifts.begin(), other.shifts.end());
  }
};

/// Nothing found where nothing was to be found is right.
double Share(double part, double whole) { return whole > 0 ? part / whole : 1; }

PhotoScore ScoreOf(const std::string& name, Tally tally) {
  PhotoScore score;
  score.photo = name;
  if (tally.samples > 0) {
    const double mean = tally.squares / tally.samples;
    score.psnr =
        mean > 0 ? std::min(kPerfectPsnr, 10 * std::log10(255 * 255 / mean)) : kPerfectPsnr;
  }
  score.patches = static_cast<int>(tally.shifts.size());
  if (!tally.shifts.empty()) {
    const auto middle = tally.shifts.begin() + static_cast<std::ptrdiff_t>(tally.shifts.size() / 2);
    std::nth_element(tally.shifts.begin(), middle, tally.shifts.end());
    score.registration = *middle;
  }
  score.iou = Share(tally.both, tally.both + tally.markedOnly + tally.hiddenOnly);
  score.precision = Share(tally.both, tally.both + tally.markedOnly);
  score.recall = Share(tally.both, tally.both + tally.hiddenOnly);
  return score;
}

/// The part of a byte raster around another raster, addressed by ground position.
class Window {
 public:
  /// False when the file cannot be read or the two do not meet.
  bool Read(const std::string& path, const tqfd::Rect2_T<double>& area, int bands) {
    tqimage::TqImage image;
    if (!image.Open(path, true) || image.GetBandCount() < bands) return false;
    const tqimage::GeoCoefficients geo = image.GetGeoCoefficients();
    origin_ = geo.GetOrigin();
    cell_ = geo.GetResolution();
    if (!(cell_.x > 0) || !(cell_.y < 0)) return false;
    const double left = std::floor((area.minX - origin_.x) / cell_.x) - 1;
    const double right = std::ceil((area.maxX - origin_.x) / cell_.x) + 2;
    const double top = std::floor((area.maxY - origin_.y) / cell_.y) - 1;
    const double bottom = std::ceil((area.minY - origin_.y) / cell_.y) + 2;
    const tqfd::Rect2_T<int> rect{std::max(0, TruncToInt(left)), std::max(0, TruncToInt(top)),
                                  std::min(image.GetWidth(), TruncToInt(right)),
                                  std::min(image.GetHeight(), TruncToInt(bottom))};
    if (rect.minX >= rect.maxX || rect.minY >= rect.maxY) return false;
    left_ = rect.minX;
    top_ = rect.minY;
    cols_ = rect.maxX - rect.minX;
    rows_ = rect.maxY - rect.minY;
    planes_.assign(static_cast<std::size_t>(bands), {});
    for (int b = 0; b < bands; ++b) {
      auto& plane = planes_[static_cast<std::size_t>(b)];
      plane.resize(static_cast<std::size_t>(cols_) * static_cast<std::size_t>(rows_));
      if (!image.ReadImage(b, rect, tqimage::kByte, plane.data())) return false;
    }
    return true;
  }

  /// The cell that holds the position; `otherwise` outside.
  [[nodiscard]] int Nearest(double x, double y, int otherwise) const {
    const int col = FloorToInt(Column(x) + 0.5), row = FloorToInt(Row(y) + 0.5);
    return InWindow(row, col) ? planes_[0][Index(row, col)] : otherwise;
  }

  /// Bilinear between the four nearest cell centres. False where one of them is missing; a position
  /// on the last centre (up to rounding) needs only what is there.
  bool Bilinear(double x, double y, std::array<double, 3>& value) const {
    const double fx = Snapped(Column(x)), fy = Snapped(Row(y));
    const double floorX = std::floor(fx), floorY = std::floor(fy);
    const int col = TruncToInt(floorX), row = TruncToInt(floorY);
    const double u = fx - floorX, v = fy - floorY;
    const int nextCol = u > 0 ? col + 1 : col, nextRow = v > 0 ? row + 1 : row;
    if (!InWindow(row, col) || !InWindow(nextRow, nextCol)) return false;
    for (std::size_t b = 0; b < planes_.size(); ++b) {
      const auto& p = planes_[b];
      const double upper = p[Index(row, col)] * (1 - u) + p[Index(row, nextCol)] * u;
      const double lower = p[Index(nextRow, col)] * (1 - u) + p[Index(nextRow, nextCol)] * u;
      value[b] = upper * (1 - v) + lower * v;
    }
    return true;
  }

 private:
  [[nodiscard]] double Column(double x) const { return (x - origin_.x) / cell_.x - left_; }
  [[nodiscard]] double Row(double y) const { return (y - origin_.y) / cell_.y - top_; }
  /// Map coordinates carry about 1e-9 m; a lattice that coincides must give whole numbers.
  static double Snapped(double position) {
    const double whole = std::floor(position + 0.5);
    return std::abs(position - whole) < 1e-6 ? whole : position;
  }
  [[nodiscard]] bool InWindow(int row, int col) const {
    return row >= 0 && col >= 0 && row < rows_ && col < cols_;
  }
  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols_) +
           static_cast<std::size_t>(col);
  }

  tqfd::Point2_T<double> origin_, cell_;
  int left_ = 0, top_ = 0, cols_ = 0, rows_ = 0;
  std::vector<std::vector<std::uint8_t>> planes_;
};

/// From centre to centre of the outermost cells.
tqfd::Rect2_T<double> AreaOf(const tqimage::GeoCoefficients& geo, int width, int height) {
  const auto first = geo.Raster2World(0, 0), last = geo.Raster2World(width - 1, height - 1);
  return {std::min(first.x, last.x), std::min(first.y, last.y), std::max(first.x, last.x),
          std::max(first.y, last.y)};
}

/// A photo's ortho beside the truth on the ortho's own cells.
struct Comparison {
  int rows = 0, cols = 0;
  double cellM = 0;
  double inside = 0;   ///< cells where the truth is known
  double facades = 0;  ///< compared cells of a facade's colour
  std::vector<float> truthGrey, orthoGrey;
  std::vector<std::uint8_t> seen;      ///< 1: the photo truly sees the cell and the ortho shows it
  std::vector<std::uint8_t> noObject;  ///< 0: building or tree
};

bool ReadOrtho(const std::string& path, tqorkit::PhotoInfo& ortho, tqimage::GeoCoefficients& geo) {
  return tqimage::TqImage::QuickReadImage(path, ortho, &geo) && ortho.dataType == tqimage::kByte &&
         ortho.bands >= 3 && ortho.width > 0 && ortho.height > 0;
}

/// Facades are painted in strong magenta and cyan, hues that nothing else in a town has.
bool IsFacade(const std::uint8_t* pixel) {
  const int r = pixel[0], g = pixel[1], b = pixel[2];
  const int high = std::max({r, g, b}), low = std::min({r, g, b});
  if (high < 77 || 2 * (high - low) < high) return false;
  const bool magenta = low == g && r > (high + low) / 2 && b > (high + low) / 2;
  const bool cyan = low == r && g > (high + low) / 2 && b > (high + low) / 2;
  return magenta || cyan;
}

/// @param stem  of the photo; empty for a mosaic, whose cells all count
bool CompareColours(const std::string& truthDir, const std::string& stem,
                    const std::string& orthoPath, Comparison& c, Tally& tally) {
  tqorkit::PhotoInfo ortho;
  tqimage::GeoCoefficients geo;
  if (!ReadOrtho(orthoPath, ortho, geo)) return false;
  const auto area = AreaOf(geo, ortho.width, ortho.height);
  Window colour, classes, visibility;
  if (!colour.Read(truthDir + "/ortho.tif", area, 3)) return false;
  if (!classes.Read(truthDir + "/class.tif", area, 1)) return false;
  if (!stem.empty() && !visibility.Read(truthDir + "/visibility/" + stem + ".tif", area, 1)) {
    return false;
  }
  c.rows = ortho.height;
  c.cols = ortho.width;
  c.cellM = geo.GetResolution().x;
  const std::size_t count = static_cast<std::size_t>(c.rows) * static_cast<std::size_t>(c.cols);
  // A mosaic tells its cells by mask or alpha, an ortho by the codes 0 (no data) and 1 (the sample
  // lies outside the photo).
  std::vector<std::uint8_t> valid;
  if (stem.empty()) {
    const auto cols = static_cast<double>(c.cols), rows = static_cast<double>(c.rows);
    if (!geo::ReadScaled(orthoPath, 0, {0, 0, cols, rows, c.cols, c.rows}, geo::Scaling::kNearest,
                         valid)) {
      return false;
    }
  }
  c.truthGrey.assign(count, 0);
  c.orthoGrey.assign(count, 0);
  c.seen.assign(count, 0);
  c.noObject.assign(count, 1);
  const auto bands = static_cast<std::size_t>(ortho.bands);
  for (int row = 0; row < c.rows; ++row) {
    if (processStop.Raised()) return false;
    for (int col = 0; col < c.cols; ++col) {
      const std::size_t i = static_cast<std::size_t>(row) * static_cast<std::size_t>(c.cols) +
                            static_cast<std::size_t>(col);
      const auto at = geo.Raster2World(col, row);
      c.noObject[i] = classes.Nearest(at.x, at.y, 0) < 2 ? 1 : 0;
      const auto* pixel = ortho.data.data() + i * bands;
      std::array<double, 3> truth{};
      if (!colour.Bilinear(at.x, at.y, truth)) continue;
      c.inside += 1;
      if (stem.empty() ? valid[i] == 0
                       : pixel[0] <= 1 || visibility.Nearest(at.x, at.y, kOutside) != kSeen) {
        continue;
      }
      c.facades += IsFacade(pixel) ? 1 : 0;
      c.seen[i] = 1;
      for (std::size_t b = 0; b < 3; ++b) {
        const double difference = pixel[b] - truth[b];
        tally.squares += difference * difference;
      }
      tally.samples += 3;
      c.truthGrey[i] = NarrowToFloat((truth[0] + truth[1] + truth[2]) / 3);
      c.orthoGrey[i] = static_cast<float>(pixel[0] + pixel[1] + pixel[2]) / 3;
    }
  }
  return true;
}

/// Displacements of patches that the photo sees whole and that lie clear of buildings and trees,
/// where a wrong height would move the picture by itself.
void RegisterPatches(const Comparison& c, Tally& tally) {
  cv::Mat distance;
  cv::distanceTransform(
      cv::Mat(c.rows, c.cols, CV_8U, const_cast<std::uint8_t*>(c.noObject.data())), distance,
      cv::DIST_L2, cv::DIST_MASK_PRECISE);
  const double clear = kClearOfObjectsM / c.cellM;
  const int size = std::clamp(TruncToInt(kPatchM / c.cellM + 0.5), 20, 48);
  const int step = std::max(1, 3 * size / 4);
  const auto usable = [&](int top, int left) {
    for (int row = top; row < top + size; ++row) {
      const std::uint8_t* seen = c.seen.data() + static_cast<std::ptrdiff_t>(row) * c.cols;
      const float* away = distance.ptr<float>(row);
      for (int col = left; col < left + size; ++col) {
        if (seen[col] == 0 || away[col] < clear) return false;
      }
    }
    return true;
  };
  for (int top = 0; top + size <= c.rows && !processStop.Raised(); top += step) {
    for (int left = 0; left + size <= c.cols; left += step) {
      if (!usable(top, left)) continue;
      const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(top) * c.cols + left;
      PatchShift shift;
      if (RegisterPatch({c.truthGrey.data() + first, size, size, c.cols},
                        {c.orthoGrey.data() + first, size, size, c.cols}, shift)) {
        tally.shifts.push_back(std::hypot(shift.dx, shift.dy));
      }
    }
  }
}

/// A missing mask hides nothing.
void CompareMask(const std::string& truthDir, const std::string& stem, const std::string& maskPath,
                 const std::string& orthoPath, Tally& tally) {
  tqorkit::PhotoInfo mask;
  tqimage::GeoCoefficients geo;
  const bool present = tqimage::TqImage::QuickReadImage(maskPath, mask, &geo) &&
                       mask.dataType == tqimage::kByte && mask.bands >= 1;
  if (!present && !ReadOrtho(orthoPath, mask, geo)) return;
  Window visibility;
  if (!visibility.Read(truthDir + "/visibility/" + stem + ".tif",
                       AreaOf(geo, mask.width, mask.height), 1)) {
    return;
  }
  const auto bands = static_cast<std::size_t>(mask.bands);
  std::size_t i = 0;
  for (int row = 0; row < mask.height && !processStop.Raised(); ++row) {
    for (int col = 0; col < mask.width; ++col, ++i) {
      const auto at = geo.Raster2World(col, row);
      const int truth = visibility.Nearest(at.x, at.y, kOutside);
      if (truth == kOutside) continue;
      const bool hidden = truth == kHidden;
      const bool marked = present && mask.data[i * bands] == 255;
      if (hidden && marked) tally.both += 1;
      if (hidden && !marked) tally.hiddenOnly += 1;
      if (!hidden && marked) tally.markedOnly += 1;
    }
  }
}

/// The ortho of a photo: <stem>_<block>.<extension>; empty when there is none.
std::string FindOrtho(const std::vector<fs::path>& files, const std::string& stem) {
  static const std::array<std::string, 6> kExtensions = {".png", ".jpg",  ".jpeg",
                                                         ".tif", ".tiff", ".bmp"};
  for (const fs::path& file : files) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    const std::string name = file.stem().string();
    if (std::find(kExtensions.begin(), kExtensions.end(), extension) == kExtensions.end()) continue;
    if (name.size() <= stem.size() + 1 || name.compare(0, stem.size() + 1, stem + "_") != 0)
      continue;
    if (name.find_first_not_of("0123456789", stem.size() + 1) == std::string::npos) {
      return file.string();
    }
  }
  return {};
}

std::vector<fs::path> FilesOf(const std::string& folder) {
  std::vector<fs::path> files;
  std::error_code failed;
  for (fs::directory_iterator it(folder, failed), end; !failed && it != end; it.increment(failed)) {
    if (it->is_regular_file(failed)) files.push_back(it->path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// The folder of the town serves as well as the one of its truth.
std::string TruthFolder(const std::string& dir) {
  std::error_code ignored;
  return fs::is_directory(dir + "/visibility", ignored) ? dir : dir + "/truth";
}

}  // namespace

bool ScoreJob(const std::string& truthDir, const std::string& orthoDir, JobScore& score,
              std::string& error) {
  score = {};
  error.clear();
  const std::string truth = TruthFolder(truthDir);
  const std::vector<fs::path> photos = FilesOf(truth + "/visibility");
  if (photos.empty()) {
    error = truthDir + " holds no truth (visibility of photos)";
    return false;
  }
  const std::vector<fs::path> orthos = FilesOf(orthoDir);
  Tally total;
  for (const fs::path& photo : photos) {
    const std::string stem = photo.stem().string(), ortho = FindOrtho(orthos, stem);
    Comparison comparison;
    Tally tally;
    if (ortho.empty() || !CompareColours(truth, stem, ortho, comparison, tally)) continue;
    RegisterPatches(comparison, tally);
    CompareMask(truth, stem, ObscuredMaskName(ortho), ortho, tally);
    score.photos.push_back(ScoreOf(stem, tally));
    total.Add(tally);
  }
  if (score.photos.empty()) {
    error = orthoDir + " holds no ortho of the truth's photos";
    return false;
  }
  score.total = ScoreOf("all", std::move(total));
  return true;
}

bool ScoreMosaic(const std::string& truthDir, const std::string& mosaicPath, MosaicScore& score,
                 std::string& error) {
  score = {};
  error.clear();
  Comparison comparison;
  Tally tally;
  if (!CompareColours(TruthFolder(truthDir), "", mosaicPath, comparison, tally)) {
    error = mosaicPath + " cannot be read, or " + truthDir + " holds no truth for its place";
    return false;
  }
  RegisterPatches(comparison, tally);
  const double cells = tally.samples / 3;
  const PhotoScore common = ScoreOf("mosaic", std::move(tally));
  score.psnr = common.psnr;
  score.registration = common.registration;
  score.patches = common.patches;
  score.covered = comparison.inside > 0 ? cells / comparison.inside : 0;
  score.facades = cells > 0 ? comparison.facades / cells : 0;
  return true;
}

}  // namespace tqtortho::host
