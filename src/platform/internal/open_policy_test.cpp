// SPDX-License-Identifier: Apache-2.0
#include "internal/open_policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "geo/Crs.h"
#include "geo/RasterTools.h"
#include "geo/Vector.h"
#include "testing/temp_dir.h"
#include "tqfd/FileInput.h"
#include "tqimage/TqImage.h"

namespace tqimage {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using tqtortho::testing::TempDir;

void WriteSurface(const std::string& path) {
  const double transform[6] = {500, 1, 0, 900, 0, -1};
  const GeoCoefficients at(transform, 8, 6);
  tqorkit::PhotoInfo image;
  image.width = 8;
  image.height = 6;
  image.bands = 1;
  image.data.assign(48, 7);
  ASSERT_TRUE(TqImage::QuickWriteImage(path, image, &at, true));
}

/// A virtual raster of one band, with `band` inside it.
std::string Vrt(const std::string& band, const std::string& rest = {}) {
  return "<VRTDataset rasterXSize=\"8\" rasterYSize=\"6\">" + rest +
         "<GeoTransform>500,1,0,900,0,-1</GeoTransform><VRTRasterBand dataType=\"Byte\" "
         "band=\"1\">" +
         band + "</VRTRasterBand></VRTDataset>";
}
std::string Source(const std::string& name, int relative = 1) {
  return "<SimpleSource><SourceFilename relativeToVRT=\"" + std::to_string(relative) + "\">" +
         name + "</SourceFilename><SourceBand>1</SourceBand></SimpleSource>";
}

void ExpectOneLine(const std::string& error, const std::string& path) {
  EXPECT_THAT(error, HasSubstr(path));
  EXPECT_THAT(error, Not(HasSubstr("\n")));
}

TEST(FileInputTest, OnlyRegularFilesUpToTheLimitAreRead) {
  const TempDir dir;
  const std::string pipe = dir.File("pipe"), socket = dir.File("socket");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(socket.begin(), socket.end(), address.sun_path);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(listener);
  std::filesystem::create_symlink("pipe", dir.File("to_pipe"));
  const std::string file = dir.Write("file", "123456");
  std::filesystem::create_symlink("file", dir.File("to_file"));

  std::string text, error;
  for (const auto& [path, why] :
       {std::pair(pipe, "named pipe"), std::pair(dir.File("to_pipe"), "named pipe"),
        std::pair(socket, "socket"), std::pair(dir.Path(), "directory"),
        std::pair(std::string("/dev/zero"), "device"), std::pair(dir.File("no"), "no such file")}) {
    EXPECT_FALSE(tqfd::ReadWholeFile(path, 100, text, error));
    ExpectOneLine(error, path);
    EXPECT_THAT(error, HasSubstr(why));
    EXPECT_FALSE(tqfd::OpenInputFile(path, 100));
    EXPECT_EQ(tqfd::ReadFileStart(path, 10), "");
    // The same holds for whatever opens rasters and polygons.
    EXPECT_EQ(OpenRaster(path, false, &error), nullptr);
    ExpectOneLine(error, path);
    EXPECT_EQ(OpenVector(path, error), nullptr);
    ExpectOneLine(error, path);
  }
  for (const std::string& path : {file, dir.File("to_file")}) {
    ASSERT_TRUE(tqfd::ReadWholeFile(path, 6, text, error)) << error;
    EXPECT_EQ(text, "123456");
    EXPECT_FALSE(tqfd::ReadWholeFile(path, 5, text, error));
    EXPECT_THAT(error, HasSubstr("limit is 5e-06 MB, 5 bytes"));
    EXPECT_EQ(tqfd::ReadFileStart(path, 4), "1234");
    EXPECT_EQ(tqfd::ReadFileStart(path, 40), "123456");
  }
  // Files of the system say that they are empty.
  EXPECT_FALSE(tqfd::ReadFileStart("/proc/self/status", 4000).empty());
}

TEST(OpenPolicyTest, NamesAndContentsThatLeadElsewhereAreRefused) {
  const TempDir dir;
  const std::string tif = dir.File("dsm.tif");
  WriteSurface(tif);
  const std::string inner = dir.Write("inner.vrt", Vrt(Source("dsm.tif")));
  ASSERT_EQ(::mkfifo(dir.File("pipe.tif").c_str(), 0600), 0);
  const std::string remote = "/vsicurl/http://127.0.0.1:9/a.tif";
  const struct {
    const char* what;
    std::string path, why;
  } cases[] = {
      {"address", remote, "no inputs"},
      {"archive", "/vsizip/" + tif, "no inputs"},
      {"plain address", "http://127.0.0.1:9/a.tif", "no such file"},
      {"inline description", Vrt(Source(tif, 0)), "cannot be read"},
      {"WMS",
       dir.Write("wms.xml",
                 "<GDAL_WMS><Service name=\"TMS\"><ServerUrl>http://127.0.0.1:9/"
                 "</ServerUrl></Service></GDAL_WMS>"),
       "not a raster"},
      {"WCS",
       dir.Write("wcs.xml",
                 "<WCS_GDAL><ServiceURL>http://127.0.0.1:9/</ServiceURL>"
                 "<CoverageName>a</CoverageName></WCS_GDAL>"),
       "not a raster"},
      {"remote source", dir.Write("a.vrt", Vrt(Source(remote, 0))), "no inputs"},
      {"remote source, relative", dir.Write("b.vrt", Vrt(Source("http://127.0.0.1:9/a.tif"))),
       "no such file"},
      {"source that is a pipe", dir.Write("c.vrt", Vrt(Source("pipe.tif"))), "named pipe"},
      {"nested", dir.Write("d.vrt", Vrt(Source("inner.vrt"))), "itself a virtual raster"},
      {"source that is a service", dir.Write("e.vrt", Vrt(Source("wms.xml"))), "known format"},
      {"pixel function",
       dir.Write("f.vrt", Vrt("<PixelFunctionType>sqrt</PixelFunctionType>" + Source("dsm.tif"))),
       "PixelFunctionType"},
      {"derived",
       dir.Write("g.vrt",
                 "<VRTDataset rasterXSize=\"8\" rasterYSize=\"6\">"
                 "<VRTRasterBand dataType=\"Byte\" band=\"1\" "
                 "subClass=\"VRTDerivedRasterBand\"/></VRTDataset>"),
       "subClass"},
      {"warped", dir.Write("h.vrt", Vrt("", "<GDALWarpOptions/>")), "GDALWarpOptions"},
      {"remote overview",
       dir.Write("i.vrt", Vrt(Source("dsm.tif") + "<Overview><SourceFilename>" + remote +
                              "</SourceFilename></Overview>")),
       "Overview"},
      {"open options",
       dir.Write("j.vrt", Vrt("<SimpleSource><SourceFilename relativeToVRT=\"1\">"
                              "dsm.tif</SourceFilename><OpenOptions/>"
                              "</SimpleSource>")),
       "OpenOptions"},
      {"entities",
       dir.Write("k.vrt", "<!DOCTYPE a [<!ENTITY b SYSTEM \"/etc/passwd\">]>" + Vrt(Source("&b;"))),
       "cannot be read"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    EXPECT_EQ(OpenRaster(c.path, false, &error), nullptr);
    EXPECT_THAT(error, HasSubstr(c.why));
    EXPECT_THAT(error, Not(HasSubstr("\n")));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  }
  // A surface of several files is a usual thing.
  std::string error;
  EXPECT_NE(OpenRaster(inner, false, &error), nullptr) << error;
}

TEST(OpenPolicyTest, FilesBesideARasterCannotSendElsewhere) {
  const std::string remote = "/vsicurl/http://127.0.0.1:9/a.tif";
  for (const char* end : {".ovr", ".msk"}) {
    // GDAL opens these by any driver; one that is no GeoTIFF is not shown to it.
    const TempDir dir;
    WriteSurface(dir.File("dsm.tif"));
    dir.Write(std::string("dsm.tif") + end, Vrt(Source(remote, 0)));
    std::string error;
    const DatasetPtr file = OpenRaster(dir.File("dsm.tif"), false, &error);
    ASSERT_NE(file, nullptr) << error;
    EXPECT_EQ(file->GetRasterBand(1)->GetOverviewCount(), 0);
    EXPECT_EQ(file->GetRasterBand(1)->GetMaskFlags() & GMF_PER_DATASET, 0);
    // Of a source of a virtual raster nobody can hide it.
    EXPECT_EQ(OpenRaster(dir.Write("a.vrt", Vrt(Source("dsm.tif"))), false, &error), nullptr);
    EXPECT_THAT(error, HasSubstr(end));
  }
  const TempDir dir;
  WriteSurface(dir.File("dsm.tif"));
  dir.Write("dsm.tif.aux.xml",
            "<PAMDataset><Metadata domain=\"OVERVIEWS\"><MDI "
            "key=\"OVERVIEW_FILE\">" +
                remote + "</MDI></Metadata></PAMDataset>");
  std::string error;
  EXPECT_EQ(OpenRaster(dir.File("dsm.tif"), false, &error), nullptr);
  EXPECT_THAT(error, HasSubstr("overviews"));
  const std::string grid = dir.Write("a.asc",
                                     "ncols 1\nnrows 1\nxllcorner 0\nyllcorner 0\n"
                                     "cellsize 1\n5\n");
  EXPECT_NE(OpenRaster(grid, false, &error), nullptr) << error;
  ASSERT_EQ(::mkfifo(dir.File("a.prj").c_str(), 0600), 0);
  EXPECT_EQ(OpenRaster(grid, false, &error), nullptr);
  EXPECT_THAT(error, HasSubstr("a.prj"));
}

TEST(OpenPolicyTest, AreasComeFromFilesOfKnownFormatsOnly) {
  const TempDir dir;
  const std::string square = "\"type\":\"Polygon\",\"coordinates\":[[[0,0],[1,0],[1,1],[0,0]]]}";
  std::vector<tqfd::Point2_T<double>> ring;
  std::string error;
  const std::string refused[] = {
      dir.Write("endless.vrt",
                "<OGRVRTDataSource><OGRVRTLayer name=\"a\"><SrcDataSource>:memory:"
                "</SrcDataSource><SrcSQL>WITH RECURSIVE a(b) AS (SELECT 1 UNION "
                "ALL SELECT b FROM a) SELECT * FROM a</SrcSQL></OGRVRTLayer>"
                "</OGRVRTDataSource>"),
      dir.Write("wfs.xml", "<OGRWFSDataSource><URL>http://127.0.0.1:9/</URL></OGRWFSDataSource>"),
      "/vsicurl/http://127.0.0.1:9/a.geojson",
      "/vsizip/" + dir.File("a.zip"),
      "WFS:http://127.0.0.1:9/",
      "PG:host=127.0.0.1",
      dir.Write("view.gpkg", "SQLite format 3 create\n view endless"),
  };
  for (const std::string& path : refused) {
    EXPECT_FALSE(geo::ReadPolygon(path, "EPSG:32651", ring, error)) << path;
    ExpectOneLine(error, path);
  }
  // A link to a coordinate system is not followed.
  const std::string link = dir.Write("link.geojson",
                                     "{\"crs\":{\"type\":\"link\",\"properties\":{\"href\":"
                                     "\"http://127.0.0.1:9/crs\",\"type\":\"proj4\"}}," +
                                         square);
  const auto start = std::chrono::steady_clock::now();
  (void)geo::ReadPolygon(link, "", ring, error);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST(OpenPolicyTest, TextsOfCoordinateSystemsNameNoFileAndNoAddress) {
  const TempDir dir;
  const std::string prj = dir.Write("a.prj", geo::CrsToWkt("EPSG:32651"));
  for (const std::string& text :
       {prj, std::string("http://127.0.0.1:9/crs"), std::string("/vsicurl/http://127.0.0.1:9/crs"),
        "+proj=longlat +ellps=bessel +nadgrids=" + dir.File("pipe") + " +type=crs",
        "+init=" + dir.File("pipe") + ":1"}) {
    EXPECT_FALSE(geo::DescribeCrs(text)) << text;
  }
  for (const char* text : {"EPSG:32651", "EPSG:3857", "+proj=utm +zone=51 +datum=WGS84 +units=m"}) {
    EXPECT_TRUE(geo::DescribeCrs(text)) << text;
    // With the grid that stands for none, as in many files.
    EXPECT_TRUE(geo::DescribeCrs(geo::CrsToWkt(text))) << text;
  }
}

}  // namespace
}  // namespace tqimage
