// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "geo/Crs.h"
#include "rectify/photo_outputs.h"
#include "rectify/sidecar.h"
#include "stage/messages.h"
#include "stage/photo_files.h"
#include "testing/log_capture.h"
#include "testing/output_dir.h"
#include "testing/photo_records.h"
#include "testing/raster_file.h"
#include "testing/test_peer.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Rect = tqfd::Rect2_T<double>;
using tqimage::GeoCoefficients;
using tqimage::TqImage;

/// Flat ground of 300 x 240 m at 10 m, cells of 1 m, first centre at (1000, 2000), with one
/// building 60 m high on X 1200 to 1239, Y 1840 to 1919; seen by a vertical photo from (1119.75,
/// 1880.25, 210) at 1 pixel per metre of ground: ground point (X, Y) lies at pixel column X -
/// 919.75, row 2040.25 - Y. The building hides the ground east of it up to X 1261.
class PhotoDriverTest : public ::testing::Test {
 protected:
  static constexpr int kPhotoCols = 400, kPhotoRows = 320;

  void SetUp() override {
    std::filesystem::create_directories(dir_.File("photos"));

    WriteSurface();
    WritePhoto("a.tif");
    cameras_[7] = tqtortho::testing::PlainCamera(7, kPhotoCols, kPhotoRows, 200, 1);
    blocks_.resize(1);
    blocks_[0].SetBlkPath(dir_.File("photos"));
  }

  void WriteSurface() const {
    std::vector<float> heights(300 * 240, 10.0F);
    for (int y = 1840; y < 1920; ++y) {
      for (int x = 1200; x < 1240; ++x) heights[(2000 - y) * 300 + x - 1000] = 40;
    }
    ASSERT_TRUE(tqtortho::testing::WriteHeights(dsm_, heights.data(), 300, 240, place_));
  }
  /// Every pixel tells its place: (50 + column % 199, row % 256, 9).
  void WritePhoto(const std::string& name) const {
    Bytes pixels;
    for (int row = 0; row < kPhotoRows; ++row) {
      for (int col = 0; col < kPhotoCols; ++col) {
        pixels.insert(pixels.end(), {static_cast<std::uint8_t>(50 + col % 199),
                                     static_cast<std::uint8_t>(row % 256), 9});
      }
    }
    ASSERT_TRUE(tqorkit::TqFSManager::SaveImageFile(pixels.data(), kPhotoCols, kPhotoRows, 3,
                                                    dir_.File("photos/" + name), true, nullptr));
  }

  void WriteEmptyBorderMask() const {
    const Bytes cells(300 * 240, 0);
    ASSERT_TRUE(tqtortho::testing::WriteRaster(BorderMaskPath(), tqimage::kByte, cells.data(), 300,
                                               240, place_, nullptr));
  }
  void AddPhoto(const std::string& name, const Rect& rect, int camera = 7) {
    blocks_[0].InsertPhoto(
        tqtortho::testing::PhotoAt(1119.75, 1880.25, 210, rect, name, camera, 3));
  }
  bool Run(bool sizing = false, double scale = 1.0, int reducedCopy = 0) {
    auto blocks = blocks_;  // the call may change the photos' rectangles
    return TestPeer::OrthoRectifyImagery(rectify_, &blocks, &cameras_, dsm_.c_str(), heights_,
                                         nullptr, 0, scale, reducedCopy, out_.c_str(), sizing,
                                         nullptr, nullptr);
  }
  [[nodiscard]] std::string Ortho() const { return out_ + "a_3.tif"; }
  [[nodiscard]] std::vector<std::string> OutputsOf(const std::string& ortho) const {
    return {ortho,
            ObscuredMaskName(ortho),
            OwnershipMaskName(ortho),
            OwnershipMaskCopyName(ortho),
            OrthoSidecarName(ortho),
            ObscuredSidecarName(ortho),
            ReducedCopyName(ortho, out_),
            WeightMaskName(ortho)};
  }
  static tqorkit::PhotoInfo Load(const std::string& path, GeoCoefficients* geo = nullptr) {
    tqorkit::PhotoInfo image;
    EXPECT_TRUE(TqImage::QuickReadImage(path, image, geo)) << path;
    return image;
  }
  static std::string Gbk(std::string_view text, const std::string& name) {
    return ToGbk(text) + name;
  }

  /// A footprint on the surface's lattice, a hair short of 210 rows.
  const Rect inside_{1010, 1780.001, 1280, 1990};
  tqtortho::testing::OutputDir dir_;
  std::string dsm_ = dir_.File("dsm.tif");
  std::string out_ = dir_.File("out/orthos/");
  const tqtortho::testing::RasterPlace place_{1000, 2000, 1, geo::CrsToWkt("EPSG:32651")};
  tqtortho::testing::LogCapture log_;
  std::vector<tqorkit::tqPhotoCategory> blocks_;
  std::map<int, tqorkit::tqIntOri> cameras_;
  double heights_[2] = {0, 0};
  tqTORectify rectify_;
};

TEST_F(PhotoDriverTest, StartHeightBecomesTheMeanOfTheTile) {
  AddPhoto("a.tif", inside_);
  AddPhoto("b.tif", Rect{});  // no footprint: no part of the tile, and no file either
  ASSERT_TRUE(Run());
  // The tile is 271 x 210 cells, 40 x 80 of them the building.
  EXPECT_DOUBLE_EQ(heights_[1], 10 + 30 * 3200.0 / (271 * 210));
  EXPECT_EQ(heights_[0], 1);  // 0 chose the surface's cell size
  EXPECT_THAT(log_.lines, ::testing::ElementsAre(Gbk(message::kImageSizeAbnormal, "b.tif")));
  heights_[1] = 12.5;
  ASSERT_TRUE(Run());
  EXPECT_EQ(heights_[1], 12.5);
  for (const Rect& off : {Rect{1400, 1780.001, 1500, 1990}, Rect{}}) {
    for (auto& photo : blocks_[0].GetPhotos()) photo.SetGeoRect(off);
    EXPECT_FALSE(Run());
  }
}

TEST_F(PhotoDriverTest, FailedPhotosAreLoggedAndLeaveNoOldOutputsAndTheNextOneIsMade) {
  const Bytes wide(2 * 100 * 100, 1);
  ASSERT_TRUE(tqtortho::testing::WriteRaster(dir_.File("photos/w.tif"), tqimage::kUInt16,
                                             wide.data(), 100, 100, place_, nullptr));
  WritePhoto("stranger.tif");
  const std::string longName = std::string(300, 'n') + ".tif";
  AddPhoto("missing.tif", inside_);
  AddPhoto("stranger.tif", inside_, 99);  // no such camera
  AddPhoto("w.tif", inside_);
  AddPhoto(longName, inside_);
  AddPhoto("a.tif", inside_);
  std::vector<std::string> old;
  for (const char* stem : {"missing_3.tif", "stranger_3.tif", "w_3.tif"}) {
    for (const std::string& name : OutputsOf(out_ + stem)) old.push_back(name);
  }
  for (const std::string& name : old) {
    std::filesystem::create_directories(std::filesystem::path(name).parent_path());
    std::ofstream(name) << "old";
  }
  ASSERT_TRUE(Run());
  for (const std::string& name : old) EXPECT_FALSE(std::filesystem::exists(name)) << name;
  EXPECT_EQ(cameras_.count(99), 1u);
  EXPECT_THAT(log_.lines, ::testing::ElementsAre(Gbk(message::kImageSizeAbnormal, "missing.tif"),
                                                 Gbk(message::kImageSizeAbnormal, "stranger.tif"),
                                                 Gbk(message::kImageSizeAbnormal, "w.tif"),
                                                 Gbk(message::kImageSizeAbnormal, longName)));
  EXPECT_TRUE(std::filesystem::exists(ObscuredMaskName(Ortho())));
}

TEST_F(PhotoDriverTest, SizingRunWritesSidecarsOnly) {
  AddPhoto("a.tif", inside_);
  ASSERT_TRUE(Run(true, 2.0, 1));
  for (const std::string& name : OutputsOf(Ortho())) {
    const bool sidecar = name == OrthoSidecarName(Ortho()) || name == ObscuredSidecarName(Ortho());
    EXPECT_EQ(std::filesystem::exists(name), sidecar) << name;
  }
  Sidecar sidecar;
  ASSERT_TRUE(ReadSidecar(OrthoSidecarName(Ortho()), sidecar));
  EXPECT_EQ(sidecar.a, 1);
  EXPECT_GE(sidecar.cols, 2);
  EXPECT_GE(sidecar.rows, 2);
}

}  // namespace
}  // namespace tqtortho
