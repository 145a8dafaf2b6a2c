// SPDX-License-Identifier: Apache-2.0
#include "geo/WebTiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>

#include "geo/Crs.h"
#include "testing/raster_file.h"
#include "testing/temp_dir.h"
#include "tqimage/TqImage.h"

namespace geo {
namespace {

using tqtortho::testing::TempDir;

constexpr int kSide = 900;
constexpr double kWest = 700000, kNorth = 5500000, kCell = 0.25;

/// Colours that tell the place: red counts half metres east, green half metres south.
void WritePlaces(const std::string& path) {
  tqorkit::PhotoInfo picture;
  picture.width = picture.height = kSide;
  picture.bands = 3;
  for (int row = 0; row < kSide; ++row) {
    for (int col = 0; col < kSide; ++col) {
      picture.data.push_back(static_cast<std::uint8_t>(col * kCell + 20));
      picture.data.push_back(static_cast<std::uint8_t>(row * kCell + 20));
      picture.data.push_back(77);
    }
  }
  const tqtortho::testing::RasterPlace place{kWest, kNorth, kCell, CrsToWkt("EPSG:32633")};
  const tqimage::GeoCoefficients at = place.Coefficients(kSide, kSide);
  ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(path, picture, &at, true));
}

/// Ground position of the middle of a tile's pixel by the closed form of Web Mercator.
tqfd::Point2_T<double> PixelPlace(int zoom, int tileCol, int tileRow, int col, int row) {
  const double world = 256.0 * std::ldexp(1.0, zoom);
  const double u = (tileCol * 256 + col + 0.5) / world, v = (tileRow * 256 + row + 0.5) / world;
  const double longitude = 360 * u - 180;
  const double latitude =
      std::atan(std::sinh(std::numbers::pi * (1 - 2 * v))) * 180 / std::numbers::pi;
  const auto way = CrsTransform::Create("EPSG:4326", "EPSG:32633");
  const auto place = way->Apply({longitude, latitude, 0});
  return {place->x, place->y};
}

TEST(WriteWebTilesTest, EachPixelShowsTheGroundThatItsTileNumbersName) {
  const TempDir dir;
  WritePlaces(dir.File("places.tif"));
  WebTileReport report;
  std::string error;
  ASSERT_TRUE(WriteWebTiles(dir.File("places.tif"), dir.File("tiles"), {}, report, error)) << error;
  EXPECT_GE(report.maxZoom - report.minZoom, 2);
  int files = 0, compared = 0, empty = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.File("tiles"))) {
    if (!entry.is_regular_file()) continue;
    ++files;
    const auto& path = entry.path();
    const int row = std::stoi(path.stem()), col = std::stoi(path.parent_path().filename());
    const int zoom = std::stoi(path.parent_path().parent_path().filename());
    tqorkit::PhotoInfo tile;
    ASSERT_TRUE(tqimage::TqImage::QuickReadImage(path.string(), tile, nullptr));
    ASSERT_EQ(tile.width * 1000 + tile.bands, 256004);
    const double pixel = 156543.034 / std::ldexp(1.0, zoom) * 0.65;  // at 49.6 degrees
    for (int at = 5; at < 256 * 256; at += 997) {
      const auto place = PixelPlace(zoom, col, row, at % 256, at / 256);
      const double east = place.x - kWest, south = kNorth - place.y;
      const double inside =
          std::min({east, south, kSide * kCell - east, kSide * kCell - south}) / pixel;
      const auto* found = tile.data.data() + 4 * static_cast<std::size_t>(at);
      if (inside < -2) {
        EXPECT_EQ(found[3], 0) << path;
        ++empty;
      }
      if (inside < 2) continue;
      ASSERT_EQ(found[3], 255) << path;
      ASSERT_NEAR(found[0], east + 20, 1.2 + 0.5 * pixel) << path << " " << at;
      ASSERT_NEAR(found[1], south + 20, 1.2 + 0.5 * pixel) << path << " " << at;
      ++compared;
    }
  }
  EXPECT_EQ(files, report.tiles);
  EXPECT_GT(compared, 500);
  EXPECT_GT(empty, 50);
}

TEST(WriteWebTilesTest, ARasterWithoutAPlaceOnTheEarthIsRefusedAndAStopObeyed) {
  const TempDir dir;
  WebTileReport report;
  std::string error;
  EXPECT_FALSE(WriteWebTiles(dir.File("none.tif"), dir.File("t"), {}, report, error));
  EXPECT_NE(error.find("coordinate system"), std::string::npos);
  WritePlaces(dir.File("places.tif"));
  const auto stop = [](double) { return false; };
  EXPECT_FALSE(WriteWebTiles(dir.File("places.tif"), dir.File("t"), stop, report, error));
  EXPECT_EQ(error, "interrupted");
}

}  // namespace
}  // namespace geo
