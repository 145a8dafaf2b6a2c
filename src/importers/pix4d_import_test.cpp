// SPDX-License-Identifier: Apache-2.0
#include "importers/pix4d_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <numbers>

#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::Said;

constexpr double kRadian = std::numbers::pi / 180;

struct Photo {
  const char* name;
  double x, y, z, omega, phi, kappa;  // degrees
  int camera;
};
// On the border of two zones, where their maps have the same scale and are turned most.
constexpr Photo kPhotos[] = {
    {"a photo.jpg", 283000.5, 5487000.25, 420.5, -2.9, 13.05, 119.8, 0},
    {"b.jpg", 283050, 5487010, 425, 8, -3, -75, 1},
};
struct Camera {
  int width, height;
  double f, cx, cy, r1, r2, r3, t1, t2;  // pixels
};
constexpr Camera kCameras[] = {
    {1200, 900, 1000.5, 607.4, 441.3, 0.0383, -0.0175, 0.0205, 0.0012, -0.0029},
    {1000, 1400, 1100, 490, 705, -0.09, 0.1, -0.012, 0, 0.0004}};

// The source's documented model, letter by letter: X' = R' (X - T) with R = Rx(omega) Ry(phi)
// Rz(kappa); the homogeneous point (-X'/Z', Y'/Z'); pixels from the corner of the image, downward.
tqtortho::testing::RasterPoint Documented(const Camera& c, const Photo& p, const Vector3& point) {
  const double so = std::sin(p.omega * kRadian), co = std::cos(p.omega * kRadian);
  const double sp = std::sin(p.phi * kRadian), cp = std::cos(p.phi * kRadian);
  const double sk = std::sin(p.kappa * kRadian), ck = std::cos(p.kappa * kRadian);
  const double dx = point[0] - p.x, dy = point[1] - p.y, dz = point[2] - p.z;
  const double xc = cp * ck * dx + (co * sk + so * sp * ck) * dy + (so * sk - co * sp * ck) * dz;
  const double yc = -cp * sk * dx + (co * ck - so * sp * sk) * dy + (so * ck + co * sp * sk) * dz;
  const double zc = sp * dx - so * cp * dy + co * cp * dz;
  const double xh = -xc / zc, yh = yc / zc;
  const double r2 = xh * xh + yh * yh;
  const double radial = 1 + c.r1 * r2 + c.r2 * r2 * r2 + c.r3 * r2 * r2 * r2;
  const double xd = radial * xh + 2 * c.t1 * xh * yh + c.t2 * (r2 + 2 * xh * xh);
  const double yd = radial * yh + 2 * c.t2 * xh * yh + c.t1 * (r2 + 2 * yh * yh);
  return {c.f * xd + c.cx - 0.5, c.f * yd + c.cy - 0.5};
}

template <typename... Values>
std::string Format(const char* format, Values... values) {
  char text[600];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

// A project's params folder as it is written.
class Pix4dFolder : public ImportFolder {
 public:
  explicit Pix4dFolder(const std::string& dsmCrs) {
    WriteDsm(dsmCrs, 717000, 5487000);
    std::string external = "imageName X Y Z Omega Phi Kappa\r\n";
    std::string calibrated =
        "fileName imageWidth imageHeight \ncamera matrix K [3x3]\nradial distortion [3x1]\n"
        "tangential distortion [2x1]\ncamera position t [3x1]\ncamera rotation R [3x3]\n"
        "camera model m = K [R|-Rt] X\n\n";
    for (const Photo& p : kPhotos) {
      const Camera& c = kCameras[p.camera];
      WritePhoto(p.name, c.width, c.height);
      external += Format("%s %.6f %.6f %.6f %.12f %.12f %.12f\r\n", p.name, p.x, p.y, p.z, p.omega,
                         p.phi, p.kappa);
      calibrated += Format("%s %d %d\n%.17g 0 %.17g\n0 %.17g %.17g\n0 0 1\n", p.name, c.width,
                           c.height, c.f, c.cx, c.f, c.cy) +
                    Format("%.17g %.17g %.17g\n%.17g %.17g\n1 2 3\n1 0 0\n0 1 0\n0 0 1\n", c.r1,
                           c.r2, c.r3, c.t1, c.t2);
    }
    Write("calibrated_external_camera_parameters.txt", external);
    Write("calibrated_camera_parameters.txt", calibrated);
    Write("wkt.prj", geo::CrsToWkt("EPSG:32633"));
    Write("offset.xyz", "283000 5487000 400\n");
    Write("pix4d_calibrated_internal_camera_parameters.cam", Internal(0));
  }
  static std::string Internal(int number, double mm = 0.0038) {
    const Camera& c = kCameras[number];
    return Format(
               "Pix4D camera calibration file %d\n\n#Focal Length mm assuming a sensor width of "
               "%.12fx%.12fmm\nF %.15f\n\n#Principal Point mm\nPx %.15f\nPy %.15f\n\n",
               number, c.width * mm, c.height * mm, c.f * mm, c.cx * mm, c.cy * mm) +
           Format(
               "#Symmetrical Lens Distortion Coeffs\nK1 %.15f\nK2 %.15f\nK3 %.15f\n\n"
               "#Tangential Lens Distortion Coeffs\nT1 %.15f\nT2 %.15f\n",
               c.r1, c.r2, c.r3, c.t1, c.t2);
  }
  void Write(const std::string& ending, const std::string& text) const {
    dir.Write("1_initial/params/field_" + ending, text);
  }
  [[nodiscard]] std::string Read(const std::string& ending) const {
    return tqtortho::testing::ReadText(File("1_initial/params/field_" + ending));
  }
  void Remove(const std::string& ending) const {
    ImportFolder::Remove("1_initial/params/field_" + ending);
  }
  [[nodiscard]] ImportRequest Wanted() const {
    ImportRequest request = Request("");
    request.photoDir = File("images");
    return request;
  }
};

double LargestOf(const Pix4dFolder& folder, const Photo& photo, const char* map = "EPSG:32633") {
  const Camera& c = kCameras[photo.camera];
  const auto toMap = geo::CrsTransform::Create("EPSG:32633", map);
  const auto pair = [&](const Vector3& d) -> PointPair {
    const auto at = toMap->Apply({photo.x + d[0], photo.y + d[1], 0});
    return {Documented(c, photo, {photo.x + d[0], photo.y + d[1], 300 + d[2]}), at->x, at->y,
            300 + d[2]};
  };
  return LargestDistance(Imported(ImportPix4d, folder.Wanted()), photo.name, c.width, c.height, 120,
                         pair);
}

// Two cameras told apart by the file of single photos; the same map and the neighbouring zone.
TEST(Pix4dImportTest, GroundPointsFallWhereTheDocumentedModelPutsThem) {
  for (const char* map : {"EPSG:32633", "EPSG:32632"}) {
    const Pix4dFolder folder(map);
    EXPECT_TRUE(LooksLikePix4d(folder.dir.Path()));
    EXPECT_EQ(Imported(ImportPix4d, folder.Wanted()).cameras.size(), 2U);
    for (const Photo& photo : kPhotos) EXPECT_LT(LargestOf(folder, photo, map), 0.15);
  }
}

// One camera in millimetres; positions relative to the offset; a camera file named as that of
// another program.
TEST(Pix4dImportTest, MillimetresAndOffsetsComeToTheSame) {
  const Pix4dFolder folder("EPSG:32633");
  folder.Remove("calibrated_camera_parameters.txt");
  const Photo& p = kPhotos[0];
  folder.Write("calibrated_external_camera_parameters.txt",
               Format("imageName X Y Z Omega Phi Kappa\n%s %.6f %.6f %.6f %.12f %.12f %.12f\n",
                      p.name, p.x - 283000, p.y - 5487000, p.z - 400, p.omega, p.phi, p.kappa));
  EXPECT_THAT(Imported(ImportPix4d, folder.Wanted()).notes,
              Contains(HasSubstr("relative to the offset 283000, 5487000, 400")));
  EXPECT_LT(LargestOf(folder, p), 0.15);
  folder.Remove("pix4d_calibrated_internal_camera_parameters.cam");
  folder.Write("calibrated_internal_camera_parameters.cam", Pix4dFolder::Internal(0));
  EXPECT_LT(LargestOf(folder, p), 0.15);
}

TEST(Pix4dImportTest, EachFaultIsNamedWithFileAndLine) {
  const char* const kExternal = "calibrated_external_camera_parameters.txt";
  const char* const kCam = "pix4d_calibrated_internal_camera_parameters.cam";
  const char* const kCalibrated = "calibrated_camera_parameters.txt";
  struct Case {
    const char* file;
    std::string from, to;
    const char* words;
    bool millimetres = true;  // without the file of single photos
  };
  const Case cases[] = {
      {kExternal, "b.jpg", "a photo.jpg",
       "parameters.txt: line 3: names a photo.jpg a second time"},
      {kExternal, "b.jpg ", "", "parameters.txt: line 3: is no name and six finite numbers"},
      {kExternal, "b.jpg", "c.jpg", "1 photo left out: no such file in "},
      {kExternal, " 425.000000", " inf", "line 3: is no name and six"},
      {kExternal, "Kappa", "Gamma", "holds not one ..._calibrated_external"},
      {kCam, "F 3.8", "F x3.8", "parameters.cam: line 4: F is not followed by one finite number"},
      {kCam, "K2 ", "K1 ", "parameters.cam: line 12: K1 stands twice"},
      {kCam, "T2 ", "T7 ", "camera 1 ends without t2"},
      {kCam, "mm\nF", "in\nF", "line 3: states no sensor size in mm"},
      {kCam, "#Symmetrical", "Fisheye", "line 10: fisheye cameras cannot be expressed"},
      {kCam, "Pix4D camera cal", "Camera col",
       "line 1: holds no \"Pix4D camera calibration file\""},
      {kCam, "T1 ", Pix4dFolder::Internal(1) + "T1 ", "ends without t1"},
      {kCam, "x3.42", "x4.42", "does not have the shape of photos of 1200 x 900 pixels"},
      {"offset.xyz", "400", "", "field_offset.xyz: is not three finite numbers"},
      {"wkt.prj", "PROJCS", "NOTHING", "field_wkt.prj: the poses' coordinate system \"NOTHING["},
      {kCalibrated, "camera model", "other", "parameters.txt: line 1: does not begin", false},
      {kCalibrated, "b.jpg", "c.jpg", "does not hold photo b.jpg", false},
      {kCalibrated, "1000 1400", "1400", "line 19: is no name, width and height", false},
      {kCalibrated, "1000.5 0", "1000.5", "line 10: photo a photo.jpg: not 3 finite", false},
  };
  for (const Case& c : cases) {
    const Pix4dFolder folder("EPSG:32633");
    if (c.millimetres) folder.Remove(kCalibrated);
    folder.Write(c.file, tqtortho::testing::Replaced(folder.Read(c.file), c.from, c.to));
    EXPECT_THAT(Said(ImportPix4d, folder.Wanted()), HasSubstr(c.words));
  }
  const Pix4dFolder folder("EPSG:32633");
  folder.Remove(kCalibrated);
  folder.Write(kCam, Pix4dFolder::Internal(0) + Pix4dFolder::Internal(1));
  EXPECT_THAT(Said(ImportPix4d, folder.Wanted()),
              HasSubstr("describes 2 cameras; which photo has which stands in"));
  folder.Remove(kCam);
  EXPECT_THAT(Said(ImportPix4d, folder.Wanted()), HasSubstr("is missing"));
  folder.WriteDsm("EPSG:4326", 12, 49);
  EXPECT_THAT(Said(ImportPix4d, folder.Wanted()), HasSubstr("not in metres"));
}

}  // namespace
}  // namespace tqtortho::host
