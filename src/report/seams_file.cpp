// SPDX-License-Identifier: Apache-2.0
#include "report/seams_file.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "camera/photo_camera.h"
#include "core/numeric.h"
#include "core/rect_ops.h"
#include "geo/RasterTools.h"
#include "geo/VectorFile.h"
#include "report/seam_lines.h"
#include "survey/photo_outline.h"
#include "tqimage/TqImage.h"

namespace tqtortho::host {
namespace {

using geo::FieldKind;
using geo::FieldValue;
using Point3 = tqfd::Point3_T<double>;
using tqimage::TqImage;

/// One photo of the job, by its number.
struct ListedPhoto {
  std::string name;
  std::string path;
  int block = 0;
  tqfd::Rect2_T<double> box;
  std::optional<PhotoCamera> camera;
  std::int64_t supplied = 0;  ///< cells
};

std::vector<ListedPhoto> ListPhotos(const MosaicInput& input) {
  std::vector<ListedPhoto> photos;
  for (const auto& block : input.blocks) {
    for (const auto& photo : block.GetPhotos()) {
      ListedPhoto entry;
      entry.name = photo.GetPhotoName();
      entry.path = block.GetPhotoPath() + "/" + entry.name;
      entry.block = photo.GetImgBlkId();
      entry.box = photo.GetGeoRect();
      const auto camera = input.cameras.find(photo.GetCameraId());
      if (camera != input.cameras.end()) entry.camera = CameraOf(camera->second, photo);
      photos.push_back(std::move(entry));
    }
  }
  return photos;
}

/// Makes the layers from one mosaic.
class SeamsWriter {
 public:
  SeamsWriter(const MosaicInput& input, const std::string& outDir, const std::string& workDir,
              const std::function<bool(double)>& progress)
      : sourcePath_(outDir + "/source.tif"),
        targetPath_(outDir + "/seams.gpkg"),
        progress_(progress),
        photos_(ListPhotos(input)) {
    (void)source_.Open(sourcePath_, true);
    (void)dsm_.Open(workDir + "/dsm.tif", true);
    at_ = source_.GetGeoCoefficients();
  }

  bool Write(const std::vector<PhotoStanding>& standings, std::string& error) {
    if (source_.GetWidth() < 1) {
      error = sourcePath_ + ": cannot be read; make the mosaic again";
      return false;
    }
    const bool written = file_.Start(targetPath_, at_.GetProjection()) && AddLayers() &&
                         AddSeams() && AddRegions() && AddPhotos(standings) && file_.Finish();
    if (!written) {
      error = targetPath_ + (stopped_ ? ": interrupted" : ": cannot be written; is the disk full?");
    }
    return written;
  }

 private:
  bool Tell(double percent) {
    if (percent - told_ < 1 && percent < 100) return !stopped_;
    told_ = percent;
    stopped_ = stopped_ || (progress_ && !progress_(percent));
    return !stopped_;
  }
  const std::string& NameOf(int number) const {
    static const std::string kUnknown;
    const bool known = number >= 1 && number <= static_cast<int>(photos_.size());
    return known ? photos_[static_cast<std::size_t>(number) - 1].name : kUnknown;
  }
  [[nodiscard]] double PercentSupplied(std::int64_t cells) const {
    return supplied_ > 0 ? 100.0 * static_cast<double>(cells) / static_cast<double>(supplied_) : 0;
  }

  bool AddLayers() {
    regions_ = file_.AddLayer("regions", geo::ShapeKind::kPolygon,
                              {{"photo", FieldKind::kText},
                               {"number", FieldKind::kWhole},
                               {"area_m2", FieldKind::kReal},
                               {"share_pct", FieldKind::kReal}});
    seams_ = file_.AddLayer("seams", geo::ShapeKind::kLine,
                            {{"photo_a", FieldKind::kText},
                             {"photo_b", FieldKind::kText},
                             {"length_m", FieldKind::kReal}});
    footprints_ = file_.AddLayer("footprints", geo::ShapeKind::kPolygon,
                                 {{"photo", FieldKind::kText},
                                  {"number", FieldKind::kWhole},
                                  {"block", FieldKind::kWhole},
                                  {"done", FieldKind::kWhole},
                                  {"hidden_pct", FieldKind::kReal},
                                  {"supplied_pct", FieldKind::kReal}});
    cameras_ = file_.AddLayer("cameras", geo::ShapeKind::kPoint,
                              {{"photo", FieldKind::kText},
                               {"number", FieldKind::kWhole},
                               {"above_ground_m", FieldKind::kReal}});
    return regions_ >= 0 && seams_ >= 0 && footprints_ >= 0 && cameras_ >= 0;
  }

  /// Seams strip by strip; counts what each photo supplied on the way.
  bool AddSeams() {
    const int cols = source_.GetWidth(), rows = source_.GetHeight();
    std::vector<std::uint16_t> cells;
    for (int first = 0; first < rows; first += kSeamStrip) {
      const int end = std::min(first + kSeamStrip, rows);
      // With the row above, so that seams along the strip's upper edge are found.
      const int top = std::max(first - 1, 0);
      cells.resize(static_cast<std::size_t>(cols) * static_cast<std::size_t>(end - top));
      if (!source_.ReadImage(0, {0, top, cols, end}, tqimage::kUInt16, cells.data())) return false;
      const GridView<const std::uint16_t> strip(cells.data(), end - top, cols);
      for (int r = first; r < end; ++r) Count(strip.Row(r - top), cols);
      for (const SeamLine& line : TraceSeams(strip)) {
        if (!AddSeam(line, strip, top, first - top)) return false;
      }
      if (!Tell(50.0 * end / rows)) return false;
    }
    return true;
  }

  void Count(const std::uint16_t* row, int cols) {
    for (int c = 0; c < cols; ++c) {
      if (row[c] == 0) continue;
      ++supplied_;
      if (row[c] <= photos_.size()) ++photos_[row[c] - 1U].supplied;
    }
  }

  /// One traced line, cut where the pair of photos changes; the sides of cells of the row above the
  /// strip (`skipRows` of them) were the strip's before.
  bool AddSeam(const SeamLine& line, const GridView<const std::uint16_t>& strip, int top,
               int skipRows) {
    std::pair<int, int> open{0, 0};
    SeamLine part;
    for (std::size_t i = 0; i + 1 < line.size(); ++i) {
      const auto a = line[i], b = line[i + 1];
      const int row = std::min(a.y, b.y), col = std::min(a.x, b.x);
      const bool upright = a.x == b.x;
      std::pair<int, int> pair{0, 0};
      if (!upright || row >= skipRows) {
        pair = std::minmax<int>(strip.At(row, col),
                                upright ? strip.At(row, col - 1) : strip.At(row - 1, col));
      }
      if (pair != open) {
        if (open.first != 0 && !AddPart(part, open, top)) return false;
        part = {a};
        open = pair;
      }
      // Corners within a straight run say nothing.
      const bool straight =
          part.size() > 1 && (part[part.size() - 2].x == b.x || part[part.size() - 2].y == b.y);
      if (straight) part.pop_back();
      part.push_back(b);
    }
    return open.first == 0 || AddPart(part, open, top);
  }

  bool AddPart(const SeamLine& part, std::pair<int, int> pair, int top) {
    const auto cell = at_.GetResolution();
    double length = 0;
    std::vector<Point3> points;
    for (const auto& corner : part) {
      const auto centre = at_.Raster2World(corner.x, corner.y + top);
      points.push_back({centre.x - 0.5 * cell.x, centre.y - 0.5 * cell.y, 0});
      const std::size_t n = points.size();
      if (n > 1) {
        length += std::hypot(points[n - 1].x - points[n - 2].x, points[n - 1].y - points[n - 2].y);
      }
    }
    return file_.Add(seams_, points, {NameOf(pair.first), NameOf(pair.second), length});
  }

  bool AddRegions() {
    const auto cell = at_.GetResolution();
    const double cellArea = std::abs(cell.x * cell.y);
    const auto values = [&](int number, double area) -> std::vector<FieldValue> {
      const auto cells = TruncToInt64(std::round(area / cellArea));
      return {NameOf(number), std::int64_t{number}, area, PercentSupplied(cells)};
    };
    return file_.AddRegions(regions_, sourcePath_, values,
                            [&](double share) { return Tell(50 + 45 * share); });
  }

  [[nodiscard]] std::optional<double> HeightAt(double x, double y) {
    if (dsm_.GetWidth() < 1) return std::nullopt;
    const auto cell = dsm_.GetGeoCoefficients().World2Raster(x, y, -1, -1);
    float height = 0;
    const float none = static_cast<float>(dsm_.GetNoDataValue(0));
    if (cell.x < 0 || cell.x >= dsm_.GetWidth() || cell.y < 0 || cell.y >= dsm_.GetHeight() ||
        !dsm_.ReadImage(0, {cell.x, cell.y, cell.x + 1, cell.y + 1}, tqimage::kFloat32, &height) ||
        height == none) {
      return std::nullopt;
    }
    return height;
  }

  /// Mean of the surface's heights at a few places of a box.
  [[nodiscard]] std::optional<double> MeanHeight(const tqfd::Rect2_T<double>& box) {
    double sum = 0;
    int count = 0;
    for (int i = 0; i < 100; ++i) {
      const int col = i % 10, row = i / 10;
      const auto h = HeightAt(box.minX + (col + 0.5) / 10 * (box.maxX - box.minX),
                              box.minY + (row + 0.5) / 10 * (box.maxY - box.minY));
      if (!h) continue;
      sum += *h;
      ++count;
    }
    if (count == 0) return std::nullopt;
    return sum / count;
  }

  bool AddPhotos(const std::vector<PhotoStanding>& standings) {
    for (std::size_t i = 0; i < photos_.size(); ++i) {
      const ListedPhoto& photo = photos_[i];
      const auto number = static_cast<std::int64_t>(i) + 1;
      if (!photo.camera) continue;
      const auto& centre = photo.camera->centre;
      const auto below = HeightAt(centre.x, centre.y);
      if (!file_.Add(cameras_, {{centre.x, centre.y, centre.z}},
                     {photo.name, number, below ? FieldValue(centre.z - *below) : FieldValue()})) {
        return false;
      }
      if (!HasArea(photo.box)) continue;
      const PhotoStanding standing =
          i < standings.size() ? standings[i] : PhotoStanding{photo.supplied > 0, {}};
      const FieldValue hidden =
          standing.hiddenShare ? FieldValue(100 * *standing.hiddenShare) : FieldValue();
      if (!file_.Add(
              footprints_, Outline(photo),
              {photo.name, number, std::int64_t{photo.block}, std::int64_t{standing.done ? 1 : 0},
               hidden, PercentSupplied(photo.supplied)})) {
        return false;
      }
    }
    return Tell(100);
  }

  /// The frame on the ground; the box of the ortho image where the frame reaches the horizon.
  std::vector<Point3> Outline(const ListedPhoto& photo) {
    geo::RasterSummary raster;
    std::string why;
    (void)geo::DescribeRaster(photo.path, raster, why);
    const auto& box = photo.box;
    std::vector<Point3> ring;
    if (const auto height = MeanHeight(box)) {
      for (const auto& p : PhotoOutline(*photo.camera, raster.width, raster.height, *height)) {
        ring.push_back({p.x, p.y, 0});
      }
    }
    if (ring.empty()) {
      ring = {{box.minX, box.maxY, 0},
              {box.maxX, box.maxY, 0},
              {box.maxX, box.minY, 0},
              {box.minX, box.minY, 0}};
    }
    return ring;
  }

  std::string sourcePath_;
  std::string targetPath_;
  const std::function<bool(double)>& progress_;
  std::vector<ListedPhoto> photos_;
  TqImage source_;
  TqImage dsm_;
  tqimage::GeoCoefficients at_;
  geo::VectorFile file_;
  std::int64_t supplied_ = 0;
  int regions_ = -1, seams_ = -1, footprints_ = -1, cameras_ = -1;
  double told_ = -1;
  bool stopped_ = false;
};

}  // namespace

bool WriteSeamsFile(const MosaicInput& input, const std::string& outDir, const std::string& workDir,
                    const std::vector<PhotoStanding>& standings,
                    const std::function<bool(double)>& progress, std::string& error) {
  return SeamsWriter(input, outDir, workDir, progress).Write(standings, error);
}

}  // namespace tqtortho::host
