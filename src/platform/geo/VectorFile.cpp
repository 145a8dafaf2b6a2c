// SPDX-License-Identifier: Apache-2.0
#include "geo/VectorFile.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <cmath>
#include <optional>

#include "internal/gdal_raster.h"
#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "tqfd/PathHelper.h"

namespace geo {
namespace {

using tqimage::DatasetPtr;
using tqimage::GdalScope;
using tqimage::ThreadOption;

/// A file that is thrown away when anything fails needs neither journal nor waiting for the disk.
struct FastDatabase {
  ThreadOption synchronous{"OGR_SQLITE_SYNCHRONOUS", "OFF"};
  ThreadOption journal{"OGR_SQLITE_JOURNAL", "OFF"};
};

void SetFields(OGRFeature& feature, const std::vector<FieldValue>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    const int at = static_cast<int>(i);
    if (const auto* text = std::get_if<std::string>(&values[i])) {
      feature.SetField(at, text->c_str());
    } else if (const auto* whole = std::get_if<std::int64_t>(&values[i])) {
      feature.SetField(at, static_cast<GIntBig>(*whole));
    } else if (const auto* real = std::get_if<double>(&values[i])) {
      feature.SetField(at, *real);
    } else {
      feature.SetFieldNull(at);
    }
  }
}

std::unique_ptr<OGRGeometry> MakeShape(OGRwkbGeometryType type,
                                       const std::vector<tqfd::Point3_T<double>>& points) {
  if (points.empty()) return nullptr;
  if (wkbFlatten(type) == wkbPoint) {
    return std::make_unique<OGRPoint>(points[0].x, points[0].y, points[0].z);
  }
  const auto fill = [&](OGRSimpleCurve& curve) {
    for (const auto& p : points) curve.addPoint(p.x, p.y);
  };
  if (wkbFlatten(type) == wkbLineString) {
    auto line = std::make_unique<OGRLineString>();
    fill(*line);
    return line;
  }
  OGRLinearRing ring;
  fill(ring);
  ring.closeRings();
  auto polygon = std::make_unique<OGRPolygon>();
  polygon->addRing(&ring);
  return polygon;
}

/// Takes polygons as the tracer hands them out and passes them on with their values.
class RegionSink : public OGRLayer {
 public:
  RegionSink(OGRLayer& target, const VectorFile::RegionValues& values)
      : target_(target), values_(values), definition_(new OGRFeatureDefn("regions")) {
    definition_->Reference();
    OGRFieldDefn number("number", OFTInteger);
    definition_->AddFieldDefn(&number);
  }
  ~RegionSink() override { definition_->Release(); }
  void ResetReading() override {}
  OGRFeature* GetNextFeature() override { return nullptr; }
  OGRFeatureDefn* GetLayerDefn() override { return definition_; }
  int TestCapability(const char* what) override { return EQUAL(what, OLCSequentialWrite); }

 protected:
  OGRErr ICreateFeature(OGRFeature* traced) override {
    const std::unique_ptr<OGRGeometry> shape(traced->StealGeometry());
    if (!shape || wkbFlatten(shape->getGeometryType()) != wkbPolygon) return OGRERR_FAILURE;
    OGRFeature region(target_.GetLayerDefn());
    SetFields(region, values_(traced->GetFieldAsInteger(0), shape->toPolygon()->get_Area()));
    region.SetGeometry(shape.get());
    return target_.CreateFeature(&region);
  }

 private:
  OGRLayer& target_;
  const VectorFile::RegionValues& values_;
  OGRFeatureDefn* definition_;
};

int PassProgress(double share, const char* /*message*/, void* user) {
  const auto& progress = *static_cast<const std::function<bool(double)>*>(user);
  return !progress || progress(share) ? 1 : 0;
}

}  // namespace

struct VectorFile::Impl {
  std::string target;
  std::string staged;
  DatasetPtr dataset;
  std::optional<OGRSpatialReference> crs;
  std::vector<OGRLayer*> layers;

  ~Impl() {
    const GdalScope scope;
    const FastDatabase fast;
    dataset.reset();
    if (!staged.empty()) VSIUnlink(staged.c_str());
  }
};

VectorFile::VectorFile() : impl_(std::make_unique<Impl>()) {}
VectorFile::~VectorFile() = default;

bool VectorFile::Start(const std::string& target, const std::string& crs) {
  impl_ = std::make_unique<Impl>();
  GdalScope scope;
  const FastDatabase fast;
  GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GPKG");
  if (driver == nullptr || target.empty()) return false;
  (void)tqfd::PathHelper::MakeParentDirectory(target);
  impl_->target = target;
  impl_->staged = tqtortho::StagedPath(target);
  impl_->dataset.reset(driver->Create(impl_->staged.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
  if (!crs.empty()) {
    impl_->crs.emplace();
    if (impl_->crs->importFromWkt(crs.c_str()) != OGRERR_NONE) return false;
    impl_->crs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  }
  // One transaction: each feature on its own would cost a write to the disk.
  return impl_->dataset && impl_->dataset->StartTransaction() == OGRERR_NONE && !scope.Failed();
}

int VectorFile::AddLayer(const std::string& name, ShapeKind shape,
                         const std::vector<std::pair<std::string, FieldKind>>& fields) {
  const GdalScope scope;
  if (!impl_->dataset) return -1;
  const OGRwkbGeometryType type = shape == ShapeKind::kPoint  ? wkbPoint25D
                                  : shape == ShapeKind::kLine ? wkbLineString
                                                              : wkbPolygon;
  OGRLayer* layer =
      impl_->dataset->CreateLayer(name.c_str(), impl_->crs ? &*impl_->crs : nullptr, type, nullptr);
  if (layer == nullptr) return -1;
  for (const auto& [field, kind] : fields) {
    OGRFieldDefn definition(field.c_str(), kind == FieldKind::kText    ? OFTString
                                           : kind == FieldKind::kWhole ? OFTInteger64
                                                                       : OFTReal);
    if (layer->CreateField(&definition) != OGRERR_NONE) return -1;
  }
  impl_->layers.push_back(layer);
  return static_cast<int>(impl_->layers.size()) - 1;
}

bool VectorFile::Add(int layer, const std::vector<tqfd::Point3_T<double>>& points,
                     const std::vector<FieldValue>& values) {
  const GdalScope scope;
  if (layer < 0 || layer >= static_cast<int>(impl_->layers.size())) return false;
  OGRLayer& to = *impl_->layers[static_cast<std::size_t>(layer)];
  OGRFeature feature(to.GetLayerDefn());
  auto shape = MakeShape(to.GetGeomType(), points);
  if (!shape || feature.SetGeometryDirectly(shape.release()) != OGRERR_NONE) return false;
  SetFields(feature, values);
  return to.CreateFeature(&feature) == OGRERR_NONE;
}

bool VectorFile::AddRegions(int layer, const std::string& rasterPath, const RegionValues& values,
                            const std::function<bool(double)>& progress) {
  GdalScope scope;
  if (layer < 0 || layer >= static_cast<int>(impl_->layers.size())) return false;
  const DatasetPtr raster = tqimage::OpenRaster(rasterPath, false);
  if (!raster) return false;
  GDALRasterBand* numbers = raster->GetRasterBand(1);
  // Numbers serve as their own mask: 0 is no region, whatever no-data value the file names.
  RegionSink sink(*impl_->layers[static_cast<std::size_t>(layer)], values);
  auto* told = const_cast<std::function<bool(double)>*>(&progress);
  return GDALPolygonize(GDALRasterBand::ToHandle(numbers), GDALRasterBand::ToHandle(numbers),
                        OGRLayer::ToHandle(&sink), 0, nullptr, PassProgress, told) == CE_None &&
         !scope.Failed();
}

bool VectorFile::Finish() {
  GdalScope scope;
  const FastDatabase fast;
  if (!impl_->dataset || impl_->dataset->CommitTransaction() != OGRERR_NONE) return false;
  impl_->layers.clear();
  const bool whole = tqimage::CloseChecked(std::move(impl_->dataset)) && !scope.Failed();
  const std::string staged = std::exchange(impl_->staged, {});
  if (whole) return tqtortho::PublishFile(staged, impl_->target);
  tqtortho::DiscardFile(staged, impl_->target, true);
  return false;
}

}  // namespace geo
