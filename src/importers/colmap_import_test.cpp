// SPDX-License-Identifier: Apache-2.0
#include "importers/colmap_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <sstream>

#include "importers/colmap_file.h"
#include "survey/number_text.h"
#include "testing/import_scene.h"

namespace tqtortho::host {
namespace {

using ::testing::HasSubstr;
using tqtortho::testing::Imported;
using tqtortho::testing::ImportFolder;
using tqtortho::testing::LargestDistance;
using tqtortho::testing::PointPair;
using tqtortho::testing::RasterPoint;
using tqtortho::testing::Replaced;
using tqtortho::testing::Said;

constexpr int kWidth = 1400, kHeight = 1000;
const Vector3 kOffset = {283000, 5487000, 400};

struct Lens {
  const char* model;
  int number;
  std::vector<double> p;
};

// The documented models, word for word; the corner of the raster is (0, 0).
RasterPoint Documented(const Lens& lens, double x, double y) {
  const std::vector<double>& p = lens.p;
  const std::string m = lens.model;
  double fx = p[0], fy = p[0], cx = p[1], cy = p[2], k1 = 0, k2 = 0, p1 = 0, p2 = 0, k3 = 0;
  if (m == "PINHOLE" || m.ends_with("OPENCV")) fy = p[1], cx = p[2], cy = p[3];
  if (m == "SIMPLE_RADIAL") k1 = p[3];
  if (m == "RADIAL") k1 = p[3], k2 = p[4];
  if (m.ends_with("OPENCV")) k1 = p[4], k2 = p[5], p1 = p[6], p2 = p[7];
  if (m == "FULL_OPENCV") k3 = p[8];
  const double r2 = x * x + y * y, radial = k1 * r2 + k2 * r2 * r2 + k3 * r2 * r2 * r2;
  const double u = x + x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x);
  const double v = y + y * radial + 2 * p2 * x * y + p1 * (r2 + 2 * y * y);
  return {fx * u + cx - 0.5, fy * v + cy - 0.5};  // the first pixel's centre is column 0 here
}

struct Photo {
  std::string name;
  std::array<double, 4> q;  // w x y z, not of length 1
  Vector3 centre;           // in the system of the poses, offset added
};
const std::vector<Photo> kPhotos = {
    {"b 2.jpg", {0.1, 2.0, 0.25, -0.15}, {283040.25, 5487020.5, 550}},
    {"a/1.jpg", {0.3, 0.9, -1.1, 0.08}, {283000, 5487000, 540}},
};

// World to camera by Hamilton's product q v q*.
Vector3 Turned(const std::array<double, 4>& q, const Vector3& v) {
  const double n = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
  const Vector3 a = {q[1], q[2], q[3]};
  const auto cross = [](const Vector3& s, const Vector3& t) {
    return Vector3{s[1] * t[2] - s[2] * t[1], s[2] * t[0] - s[0] * t[2], s[0] * t[1] - s[1] * t[0]};
  };
  const Vector3 once = cross(a, v), twice = cross(a, once);
  Vector3 out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = v[i] + 2 * (q[0] * once[i] + twice[i]) / n;
  return out;
}

std::string Raw(std::uint64_t value, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
  return out;
}
std::string Raw(double value) { return Raw(std::bit_cast<std::uint64_t>(value), 8); }

struct Model {
  Lens lens{"SIMPLE_PINHOLE", 0, {1100, 700, 500}};
  std::vector<Photo> photos = kPhotos;

  [[nodiscard]] std::array<double, 7> Pose(const Photo& photo) const {
    const Vector3& c = photo.centre;
    const Vector3 t = Turned(photo.q, {kOffset[0] - c[0], kOffset[1] - c[1], kOffset[2] - c[2]});
    return {photo.q[0], photo.q[1], photo.q[2], photo.q[3], t[0], t[1], t[2]};
  }
  [[nodiscard]] std::string Cameras(ColmapForm form) const {
    std::string out = "# Camera list\n7 " + std::string(lens.model) + " 1400 1000";
    std::string raw = Raw(1, 8) + Raw(7, 4) + Raw(static_cast<std::uint64_t>(lens.number), 4) +
                      Raw(kWidth, 8) + Raw(kHeight, 8);
    for (const double v : lens.p) {
      out += " " + Exact(v);
      raw += Raw(v);
    }
    return form == ColmapForm::kText ? out + "\n" : raw;
  }
  [[nodiscard]] std::string Images(ColmapForm form) const {
    std::string out = "# Image list\n", raw = Raw(photos.size(), 8);
    for (const Photo& photo : photos) {
      out += "3";
      raw += Raw(3, 4);
      for (const double v : Pose(photo)) {
        out += " " + Exact(v);
        raw += Raw(v);
      }
      out += " 7 " + photo.name + "\r\n" + (photo.name[0] == 'b' ? "" : "1.5 2 -1 4 5 77") + "\n";
      raw += Raw(7, 4) + photo.name + '\0' + Raw(2, 8) + std::string(48, 'x');
    }
    return form == ColmapForm::kText ? out : raw;
  }
  void WriteTo(const std::string& folder, ColmapForm form, const ImportFolder& dir) const {
    const char* extension = form == ColmapForm::kText ? ".txt" : ".bin";
    dir.dir.Write(folder + "/cameras" + extension, Cameras(form));
    dir.dir.Write(folder + "/images" + extension, Images(form));
  }
};

struct Folder : ImportFolder {
  explicit Folder(const std::string& map = "EPSG:32633") {
    WriteDsm(map, 283000, 5487000);
    for (const Photo& photo : kPhotos) WritePhoto(photo.name, kWidth, kHeight);
  }
  [[nodiscard]] ImportRequest Wanted(const std::string& crs = "EPSG:32633") const {
    ImportRequest request = Request("");
    request.crs = crs;
    request.offset = kOffset;
    return request;
  }
};

TEST(ColmapImportTest, GroundPointsFallWhereTheDocumentedModelsPutThem) {
  const Lens lenses[] = {
      {"SIMPLE_PINHOLE", 0, {1100, 707.3, 494.2}},
      {"PINHOLE", 1, {1100, 1104, 693, 502.5}},
      {"SIMPLE_RADIAL", 2, {1100, 700, 500, -0.06}},
      {"RADIAL", 3, {1100, 708, 489, -0.12, 0.03}},
      {"OPENCV", 4, {1100, 1100, 708, 489, -0.26, 0.09, 0.0007, -0.0004}},
      {"OPENCV", 4, {1100, 1101.5, 705, 493, -0.02, 0.004, 0.0003, 0.0002}},
      {"FULL_OPENCV", 6, {1100, 1100, 708, 489, -0.26, 0.1, 7e-4, -4e-4, -0.03, 0, 0, 0}},
  };
  int round = 0;
  for (const Lens& lens : lenses) {
    SCOPED_TRACE(lens.model);
    // Both forms, and the poses' zone as well as its neighbour.
    const std::string map = ++round % 3 == 0 ? "EPSG:32632" : "EPSG:32633";
    const Folder folder(map);
    Model model;
    model.lens = lens;
    model.WriteTo("sparse/0", round % 2 == 0 ? ColmapForm::kText : ColmapForm::kBinary, folder);
    const Survey survey = Imported(ImportColmap, folder.Wanted());
    EXPECT_THAT(survey.source, HasSubstr(round % 2 == 0 ? "(text)" : "(binary)"));
    ASSERT_EQ(survey.blocks.at(0).photos.size(), 2U);
    EXPECT_EQ(survey.blocks[0].photos[0].name, "a/1.jpg");  // by name
    const auto toMap = geo::CrsTransform::Create("EPSG:32633", map);
    for (const Photo& photo : kPhotos) {
      const auto pair = [&](const Vector3& d) -> PointPair {
        const Vector3 seen = Turned(photo.q, {d[0], d[1], 400 + d[2] - photo.centre[2]});
        const auto at = toMap->Apply({photo.centre[0] + d[0], photo.centre[1] + d[1], 0});
        const RasterPoint pixel = Documented(lens, seen[0] / seen[2], seen[1] / seen[2]);
        return {seen[2] < 10 ? RasterPoint{-1, -1} : pixel, at->x, at->y, 400 + d[2]};
      };
      EXPECT_LT(LargestDistance(survey, photo.name, kWidth, kHeight, 150, pair), 0.15);
    }
  }
}

TEST(ColmapImportTest, ModelsAreFoundWhereTheProgramLeavesThem) {
  const Model model;
  for (const char* place : {".", "sparse/0", "sparse", "dense/sparse", "0", "sparse/geo"}) {
    SCOPED_TRACE(place);
    const Folder folder;
    EXPECT_FALSE(LooksLikeColmap(folder.dir.Path()));
    model.WriteTo(place, ColmapForm::kText, folder);
    EXPECT_TRUE(LooksLikeColmap(folder.dir.Path()));
    EXPECT_TRUE(LooksLikeColmap(folder.File(place) + "/images.txt"));
    Imported(ImportColmap, folder.Wanted());
  }
  const Folder folder;
  model.WriteTo("sparse/0", ColmapForm::kText, folder);
  model.WriteTo("sparse/1", ColmapForm::kBinary, folder);
  EXPECT_THAT(Said(ImportColmap, folder.Wanted()),
              HasSubstr("holds 2 models that do not share a frame"));
  folder.dir.Write("ours/cameras.txt", "1\n1\nname\n");
  folder.dir.Write("ours/images.txt", "");
  EXPECT_FALSE(LooksLikeColmap(folder.File("ours")));
}

// Whatever the length at which a copy broke off.
TEST(ColmapImportTest, BinaryFilesCutAnywhereAreRefused) {
  const Model model;
  const std::string cameras = model.Cameras(ColmapForm::kBinary);
  const std::string images = model.Images(ColmapForm::kBinary);
  std::map<std::string, SourceCamera> readCameras;
  std::vector<ColmapPhoto> readPhotos;
  for (std::size_t size = 0; size < images.size(); ++size) {
    std::istringstream in(images.substr(0, size));
    std::string error;
    EXPECT_FALSE(ReadColmapPhotos(in, ColmapForm::kBinary, readPhotos, error)) << size;
    EXPECT_THAT(error, HasSubstr("cut short"));
    if (size >= cameras.size()) continue;
    std::istringstream shorter(cameras.substr(0, size));
    EXPECT_FALSE(ReadColmapCameras(shorter, ColmapForm::kBinary, readCameras, error)) << size;
    EXPECT_THAT(error, HasSubstr("cut short"));
  }
}

TEST(ColmapImportTest, EachFaultIsNamedWithFileAndLine) {
  struct Case {
    const char* file;
    std::string from, to;
    const char* words;
  };
  const std::string one = Raw(1, 8), two = Raw(2, 8), huge = Raw(~0ULL, 8);
  const Case cases[] = {
      {"cameras.txt", "1400", "x", "cameras.txt: line 2: is not number, model, width"},
      {"cameras.txt", "500", "nan",
       "camera \"7\" (SIMPLE_PINHOLE): its size or a parameter is out"},
      {"cameras.txt", "500", "inf", "its size or a parameter is out"},
      {"cameras.txt", " 500", "", "has 2 parameters, not 3"},
      {"cameras.txt", "SIMPLE_PINHOLE", "OPENCV_FISHEYE",
       "camera \"7\" (OPENCV_FISHEYE): this lens model cannot be expressed; use OPENCV"},
      {"cameras.txt", "SIMPLE_PINHOLE 1400 1000 1100 700 500",
       "FULL_OPENCV 1400 1000 1100 1100 700 500 0 0 0 0 0 0 0 0.1",
       "(FULL_OPENCV): its k4, k5 or k6 cannot be expressed"},
      {"cameras.txt", "SIMPLE_PINHOLE", "OWN_MODEL", "(OWN_MODEL): this lens model cannot be"},
      {"cameras.txt", "7 SIM", "8 SIM", "camera \"7\" of 2 photos is not described"},
      {"cameras.txt", "7 SIM", "#7 SIM", "cameras.txt: holds no camera"},
      {"cameras.txt", "7 SIM", "7 PINHOLE 9 9 1 2 3 4\n7 SIM", "describes camera 7 twice"},
      {"images.txt", "3 0.1 ", "3 nan ",
       "images.txt: line 2: photo b 2.jpg: its pose is not finite"},
      {"images.txt", "3 0.1 ", "3 ", "images.txt: line 2: is not number, four of rotation"},
      {"images.txt", "b 2.jpg", "", "line 2: is not number, four of rotation"},
      {"images.txt", "b 2.jpg\r\n\n", "b 2.jpg\n", "line 3: is no list of points: every photo"},
      {"images.txt", "b 2.jpg", "a/1.jpg", "images.txt: holds photo a/1.jpg twice"},
      {"images.txt", "b 2.jpg", "c.jpg", "1 photo left out: no such file in "},
      {"cameras.bin", one, huge,
       "cameras.bin: is cut short or damaged: 56 bytes cannot hold 184467"},
      {"cameras.bin", Raw(7, 4) + Raw(0, 4), Raw(7, 4) + Raw(99, 4),
       "camera \"7\": has lens model number 99, which is not known"},
      {"cameras.bin", Raw(kWidth, 8), huge, "its size or a parameter is out of range"},
      {"images.bin", two, one + "", "none of its 1 photos can be used (1 photo left out: no such"},
      {"images.bin", two + Raw(3, 4), Raw(3, 8) + Raw(3, 4), "ends within photo 3"},
      {"images.bin", Raw(2, 8) + "xx", huge + "xx", "ends within photo 1"},
  };
  for (const Case& c : cases) {
    const Folder folder;
    const std::string file = c.file;
    Model().WriteTo("model", file.ends_with("txt") ? ColmapForm::kText : ColmapForm::kBinary,
                    folder);
    const std::string text = tqtortho::testing::ReadText(folder.File("model/" + file));
    folder.dir.Write("model/" + file, Replaced(text, c.from, c.to));
    if (std::string(c.words).starts_with("none")) folder.Remove("images");
    ImportRequest request = folder.Wanted();
    request.path = folder.File("model");
    EXPECT_THAT(Said(ImportColmap, request), HasSubstr(c.words));
  }
}

TEST(ColmapImportTest, WhereTheModelStandsMustBeSaid) {
  const Folder folder;
  Model().WriteTo(".", ColmapForm::kText, folder);
  EXPECT_THAT(Said(ImportColmap, folder.Wanted("")),
              HasSubstr("give it with --crs EPSG:n, and with --offset E,N[,H]"));
  for (const bool dsm : {true, false}) {
    for (const auto& [crs, words] :
         {std::pair{"EPSG:0", "\"EPSG:0\" is not known"}, {"EPSG:4326", "is not in metres"}}) {
      ImportRequest request = folder.Wanted(crs);
      if (!dsm) request.dsmPath.clear();
      EXPECT_THAT(Said(ImportColmap, request), HasSubstr(words));
    }
  }
  ImportRequest request = folder.Wanted();
  request.dsmPath.clear();  // without a DSM they stay there
  const Survey survey = Imported(ImportColmap, request);
  EXPECT_EQ(survey.crs, "EPSG:32633");
  EXPECT_NEAR(survey.blocks.at(0).photos.at(1).x, 283040.25, 1e-6);
}

// Cameras number their photos anew in every folder; a copy into one folder keeps one of each
// name, and nobody knows whose.
TEST(ColmapImportTest, PhotosOfTwoFoldersNeverShareAFile) {
  const Folder folder;
  Model model;
  model.photos = {kPhotos[1], kPhotos[1]};
  model.photos[1].name = "b/1.jpg";
  model.WriteTo("sparse", ColmapForm::kBinary, folder);
  folder.WritePhoto("1.jpg", kWidth, kHeight);
  folder.Remove("images/a");
  EXPECT_THAT(Said(ImportColmap, folder.Wanted()),
              HasSubstr("2 photos left out: several photos have one file"));
  for (const char* name : {"a/1.jpg", "b/1.jpg"}) folder.WritePhoto(name, kWidth, kHeight);
  const Survey survey = Imported(ImportColmap, folder.Wanted());
  ASSERT_EQ(survey.blocks.at(0).photos.size(), 2U);
  EXPECT_EQ(survey.blocks[0].photos[1].name, "b/1.jpg");
}

}  // namespace
}  // namespace tqtortho::host
