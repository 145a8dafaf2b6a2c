// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "stage/photo_files.h"
#include "testing/output_dir.h"
#include "testing/photo_records.h"
#include "testing/raster_file.h"
#include "tqimage/TqImage.h"
#include "tqorkit/tqExtOri.h"
#include "tqtortho/tqRayTracer.h"

namespace tqtortho {
namespace {

using tqimage::TqImage;
using tqorkit::tqExtOri;
using Bytes = std::vector<std::uint8_t>;

constexpr int kSize = 400;  // DSM cells, 0.5 m
constexpr double kCell = 0.5;
constexpr double kX0 = 1000;
constexpr double kY0 = 2000;
constexpr double kTower = 30;

struct MaskFile {
  int cols = 0, rows = 0;
  Bytes cells;
  tqimage::GeoCoefficients geo;
  [[nodiscard]] int At(int row, int col) const {
    return cells[static_cast<std::size_t>(row) * cols + col];
  }
  [[nodiscard]] std::size_t Count(int value) const {
    return static_cast<std::size_t>(std::count(cells.begin(), cells.end(), value));
  }
};

/// A plain of 200 x 200 m with a tower 30 m high over columns and rows 180 to 219, seen from 100 m
/// above the point 60 m east of the plain's centre: the shadow falls to the west.
class EntryPointTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::vector<float> heights(std::size_t{kSize} * kSize, 0);
    for (int r = 180; r < 220; ++r) {
      for (int c = 180; c < 220; ++c) heights[static_cast<std::size_t>(r) * kSize + c] = kTower;
    }
    Write("dsm.tif", tqimage::kFloat32, heights.data(), kSize, kSize, kCell);
    const tqfd::Rect2_T<double> rect{kX0 + 10, kY0 - 190, kX0 + 190, kY0 - 30};
    photo_ = testing::PhotoAt(kX0 + 40, kY0 - 104, 100, rect);
    photo_.SetGSD(0.25, -0.25);
  }

  void Write(const std::string& name, int type, const void* data, int cols, int rows, double cell,
             double x0 = kX0, double y0 = kY0) {
    const double noData = -9999;
    ASSERT_TRUE(testing::WriteRaster(dir_.File(name), type, data, cols, rows, {x0, y0, cell, kCrs},
                                     type == tqimage::kFloat32 ? &noData : nullptr));
  }
  static MaskFile Read(const std::string& path) {
    tqorkit::PhotoInfo file;
    MaskFile mask;
    if (!TqImage::QuickReadImage(path, file, &mask.geo)) return mask;
    mask.cols = file.width;
    mask.rows = file.height;
    EXPECT_EQ(file.dataType, tqimage::kByte);
    EXPECT_EQ(file.bands, 1);
    mask.cells = file.data;
    return mask;
  }
  [[nodiscard]] std::string Dsm() const { return dir_.File("dsm.tif"); }
  [[nodiscard]] std::string Out() const { return dir_.File("out.tif"); }

  /// Mask cell of a ground point given from the DSM's first cell, in metres.
  static int Value(const MaskFile& mask, double east, double south) {
    const auto cell = mask.geo.World2Raster(kX0 + east, kY0 - south, -1, -1);
    return mask.At(cell.y, cell.x);
  }

  static constexpr const char* kCrs =
      "LOCAL_CS[\"site\",UNIT[\"metre\",1],AXIS[\"Easting\",EAST],AXIS[\"Northing\",NORTH]]";
  void WriteFootprint(const Bytes& cells, int cols, int rows, double cell = kCell) {
    Write("footprint.tif", tqimage::kByte, cells.data(), cols, rows, cell, kX0 + 10, kY0 - 30);
  }
  testing::OutputDir dir_;
  tqExtOri photo_;
  tqRayTracer tracer_;
};

// The tower's east side is at 110 m, its top 70 m below and 70 m east of the camera; the ray
// through it meets the ground another 30 m further on: the shadow covers 110 m to 140 m east.
void ExpectTheTowersShadow(const MaskFile& mask, const std::function<int(double, double)>& at) {
  EXPECT_EQ(at(144, 100), 0);
  EXPECT_EQ(at(136, 100), 255);
  EXPECT_EQ(at(125, 100), 255);
  EXPECT_EQ(at(113, 100), 255);
  EXPECT_EQ(at(100, 100), 0) << "the roof";
  EXPECT_EQ(at(85, 100), 0) << "towards the camera";
  EXPECT_EQ(at(125, 70), 0) << "beside";
  EXPECT_GT(mask.Count(255), 0u);
}

TEST_F(EntryPointTest, EveryEntryMasksTheShadowOnItsOwnGrid) {
  Bytes footprint(std::size_t{361} * 321, 1);
  WriteFootprint(footprint, 361, 321);
  const std::string cells = dir_.File("footprint.tif");
  ASSERT_TRUE(tracer_.DoRayTracing(photo_, Dsm(), Out(), cells));
  const MaskFile masked = Read(Out());
  // The georeference is the photo's, with its own cell size, as it always was.
  EXPECT_NEAR(masked.geo.GetResolution().x, 0.25, 1e-12);
  ASSERT_EQ(masked.cells.size(), footprint.size());
  ExpectTheTowersShadow(masked, [&](double east, double south) {
    return masked.At(static_cast<int>((south - 30) / kCell), static_cast<int>((east - 10) / kCell));
  });
  for (const bool pyramid : {true, false}) {
    ASSERT_TRUE(pyramid ? tracer_.DoRayTracingOnPyr(photo_, Dsm(), Out(), dir_.File("missing.tif"))
                        : tracer_.DoRayTracingOnThumbnail(photo_, Dsm(), Out(), "ignored"));
    const MaskFile mask = Read(Out());
    EXPECT_EQ(mask.cols, 721);
    EXPECT_EQ(mask.rows, 641);
    EXPECT_NEAR(mask.geo.GetOrigin().x, kX0 + 10, 1e-6);
    EXPECT_NEAR(mask.geo.GetOrigin().y, kY0 - 30, 1e-6);
    EXPECT_NEAR(mask.geo.GetResolution().x, 0.25, 1e-12);
    EXPECT_NE(mask.geo.GetProjection().find("site"), std::string::npos);
    ExpectTheTowersShadow(mask, [&](double e, double s) { return Value(mask, e, s); });
    EXPECT_EQ(mask.Count(0) + mask.Count(255) == mask.cells.size(), pyramid) << "soft edges";
  }
  EXPECT_FALSE(tracer_.DoRayTracingOnThumbnail(photo_, Dsm(), Dsm(), ""));
  EXPECT_TRUE(std::filesystem::exists(Dsm())) << "an input is never overwritten";
  // Without the tower nothing is hidden, and cameras that are no numbers see everything.
  for (int r = 115; r < 165; ++r) std::fill_n(footprint.begin() + r * 361 + 155, 50, 0);
  WriteFootprint(footprint, 361, 321);
  ASSERT_TRUE(tracer_.DoRayTracing(photo_, Dsm(), Out(), cells));
  EXPECT_EQ(Read(Out()).Count(255), 0u);
  for (const double value : {std::nan(""), HUGE_VAL, 1e300}) {
    tqExtOri::EXTORI record = photo_.Get();
    record.position[2] = value;
    tqExtOri eo;
    eo.Set(record);
    ASSERT_TRUE(tracer_.DoRayTracingOnPyr(eo, Dsm(), Out(), ""));
    EXPECT_EQ(Read(Out()).Count(255), 0u) << value;
  }
}

// Pillars of a metre are too thin for the coarse pass; only where the border mask reaches, by
// three of its cells and no more, their shadows are looked for. An ortho leaves cells out where it
// has no data, and says nothing beyond its own rows.
TEST_F(EntryPointTest, PyramidExaminesBordersByThreeCellsAndNothingOutsideTheOrtho) {
  // In the first of the four fine cells that make a coarse one, which samples the middle two.
  std::vector<float> heights(std::size_t{kSize} * kSize, 0);
  for (int r = 60; r < 380; r += 8) {
    for (int c = 20; c < 380; c += 8) {
      for (const int i : {r * kSize + c, r * kSize + c + 1, (r + 1) * kSize + c}) heights[i] = 6;
    }
  }
  Write("dsm.tif", tqimage::kFloat32, heights.data(), kSize, kSize, kCell);
  const auto hiddenCells = [&](const std::string& ortho) {
    EXPECT_TRUE(tracer_.DoRayTracingOnPyr(photo_, Dsm(), Out(), ortho));
    return Read(Out());
  };
  ASSERT_EQ(hiddenCells("").Count(255), 0u);
  // All marked: the most that can be found. The tile begins at the photo's corner, cells of 1 m.
  Bytes border(200 * 190, 200);
  Write("ot/bordermsk.tif", tqimage::kByte, border.data(), 200, 190, 1.0, kX0 + 10, kY0 - 30);
  const MaskFile all = hiddenCells("");
  ASSERT_GT(all.Count(255), 5000u);
  // One column and one row marked: what is found lies within three cells of them.
  for (const bool row : {false, true}) {
    std::fill(border.begin(), border.end(), std::uint8_t{0});
    for (int i = 0; i < 180; ++i) border[row ? 71 * 200 + i : i * 200 + 64] = 200;
    Write("ot/bordermsk.tif", tqimage::kByte, border.data(), 200, 190, 1.0, kX0 + 10, kY0 - 30);
    const MaskFile some = hiddenCells("");
    int within = 0, wanted = 0;
    for (int r = 0; r < all.rows; ++r) {
      for (int c = 0; c < all.cols; ++c) {
        const double away = row ? std::fabs(r / 4.0 - 71.5) : std::fabs(c / 4.0 - 64.5);
        if (away < 3 && all.At(r, c) == 255) {
          ++wanted;
          within += some.At(r, c) == 255 ? 1 : 0;
        }
        if (away > 4.5) {
          ASSERT_EQ(some.At(r, c), 0) << r << " " << c;
        }
      }
    }
    EXPECT_GT(wanted, 20);
    EXPECT_GT(within, 0.9 * wanted) << row;
  }
  // An ortho of 1 m with data in its southern part and its rows from 40 on missing.
  std::fill(border.begin(), border.end(), std::uint8_t{200});
  Write("ot/bordermsk.tif", tqimage::kByte, border.data(), 200, 190, 1.0, kX0 + 10, kY0 - 30);
  Bytes ortho(180 * 40, 50);
  std::fill_n(ortho.begin(), 180 * 25, std::uint8_t{0});
  Write("ortho.tif", tqimage::kByte, ortho.data(), 180, 40, 1.0, kX0 + 10, kY0 - 30);
  const MaskFile cut = hiddenCells(dir_.File("ortho.tif"));
  for (int r = 0; r < all.rows; ++r) {
    for (int c = 0; c < all.cols; ++c) {
      if (std::abs(r - 100) <= 4) continue;  // the closing
      ASSERT_EQ(cut.At(r, c), r < 100 ? 0 : all.At(r, c)) << r << " " << c;
    }
  }
}

// Every refusal answers false and leaves no mask, not even an old one.
TEST_F(EntryPointTest, FailuresLeaveNoMask) {
  const double nan = std::nan("");
  const std::string bytes = testing::ReadText(Dsm());
  dir_.Write("text.tif", "no raster");
  dir_.Write("half.tif", bytes.substr(0, bytes.size() / 2));
  const float level[4] = {1, 1, 1, 1};
  Write("fine.tif", tqimage::kFloat32, level, 2, 2, 1e-300);
  struct Case {
    const char* name;
    std::function<void(tqExtOri&)> damage;
    const char* dsm = "dsm.tif";
  };
  const auto rect = [](tqfd::Rect2_T<double> r) { return [r](tqExtOri& eo) { eo.SetGeoRect(r); }; };
  const auto gsd = [](double x, double y) { return [x, y](tqExtOri& eo) { eo.SetGSD(x, y); }; };
  const auto nothing = [](tqExtOri&) {};
  const Case cases[] = {
      {"missing DSM", nothing, "missing.tif"},
      {"text as DSM", nothing, "text.tif"},
      {"truncated DSM", nothing, "half.tif"},
      {"zero distance", gsd(0, 0)},
      {"south-up distance", gsd(0.25, 0.25)},
      {"negative distance", gsd(-0.25, -0.25)},
      {"NaN distance", gsd(nan, -0.25)},
      {"infinite distance", gsd(0.25, -HUGE_VAL)},
      {"tiny distance", gsd(1e-9, -1e-9)},
      {"outside", rect({5000, 5000, 5100, 5100})},
      {"empty", rect({})},
      {"inverted", rect({kX0 + 100, kY0 - 10, kX0 + 10, kY0 - 100})},
      {"NaN rectangle", rect({nan, nan, nan, nan})},
      {"huge rectangle", rect({-1e9, -1e9, 1e9, 1e9})},
      // Sizes beyond 64 bits.
      {"rectangle of all doubles", rect({-1e308, -1e308, 1e308, 1e308})},
      {"rectangle of one half", rect({kX0, -1e308, 1e308, kY0})},
      {"endless rectangle", rect({-HUGE_VAL, -HUGE_VAL, HUGE_VAL, HUGE_VAL})},
      {"endless to the east", rect({kX0, kY0 - 100, HUGE_VAL, kY0})},
      {"endless to the south", rect({kX0, -HUGE_VAL, kX0 + 100, kY0})},
      {"distance next to zero", gsd(1e-300, -1e-300)},
      {"least distance", gsd(5e-324, -5e-324)},
      {"distance of all doubles", gsd(1e308, -5e-324)},
      {"DSM cells next to zero", nothing, "fine.tif"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (int entry = 0; entry < 3; ++entry) {
      tqExtOri eo = photo_;
      const std::string dsm = dir_.File(c.dsm);
      c.damage(eo);
      dir_.Write("out.tif", "stale");
      const bool done = entry == 0   ? tracer_.DoRayTracingOnPyr(eo, dsm, Out(), "")
                        : entry == 1 ? tracer_.DoRayTracingOnThumbnail(eo, dsm, Out(), "")
                                     : tracer_.DoRayTracing(eo, dsm, Out(), "");
      EXPECT_FALSE(done) << entry;
      EXPECT_FALSE(std::filesystem::exists(Out())) << entry;
    }
  }
}

}  // namespace
}  // namespace tqtortho
