// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "stage/photo_files.h"
#include "testing/progress_calls.h"
#include "testing/temp_dir.h"
#include "tqfd/Logger.h"
#include "tqfd/PathHelper.h"
#include "tqimage/TqImage.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqTORProc.h"

namespace tqtortho::testing {

/// Cells of a photo on the mosaic grid.
struct Window {
  int col, row, cols, rows;
};

/// The value of a band of a raster's cell.
using CellValue = std::function<std::uint8_t(int row, int col, int band)>;

inline tqorkit::PhotoInfo ByteRecord(int cols, int rows, int bands) {
  tqorkit::PhotoInfo image;
  image.width = cols;
  image.height = rows;
  image.bands = bands;
  image.dataType = tqimage::kByte;
  image.data.resize(static_cast<std::size_t>(cols) * rows * bands);
  return image;
}

inline tqorkit::PhotoInfo LoadRecord(const std::string& path,
                                     tqimage::GeoCoefficients* geo = nullptr) {
  tqorkit::PhotoInfo image;
  EXPECT_TRUE(tqimage::TqImage::QuickReadImage(path, image, geo)) << path;
  return image;
}
inline std::vector<std::uint8_t> Load(const std::string& path) { return LoadRecord(path).data; }

/// A rectified job on disk, photos "a.jpg", "b.jpg" ... in blocks of two, with its parameter file
/// and state directories; the rasters are the test's own.
class UpdateJob : public tqTORProc {
 public:
  using tqTORProc::photoBlocks;
  using tqTORProc::photoList;
  static constexpr double kX0 = 352345.25, kY0 = 5412345.75, kGsd = 0.25;

  explicit UpdateJob(const std::vector<Window>& photos) : windows(photos) {
    tqfd::PathHelper::SetProgramDataDirectory(dir.File("data"));
    tqorkit::TqFSManager::SetOutputTmpFilePath(dir.File("tmp"));
    std::filesystem::create_directories(dir.File("out"));
    WriteParams("0.250000");
    tqfd::Logger::SetSink([this](std::string_view text) { logged.emplace_back(text); });
    for (std::size_t i = 0; i < windows.size(); ++i) {
      const Window& w = windows[i];
      if (i % 2 == 0) photoBlocks.emplace_back();
      tqorkit::tqExtOri::EXTORI record;
      record.photoName = Letter(static_cast<int>(i)) + ".jpg";
      record.imageBlockId = static_cast<int>(i) / 2;
      record.cameraId = 7;
      record.position[0] = kX0 + (w.col + 0.5 * w.cols) * kGsd;
      record.position[1] = kY0 - (w.row + 0.5 * w.rows) * kGsd;
      record.position[2] = 150;
      record.geoRect = {kX0 + w.col * kGsd, kY0 - (w.row + w.rows - 1) * kGsd,
                        kX0 + (w.col + w.cols - 1) * kGsd, kY0 - w.row * kGsd};
      tqorkit::tqExtOri photo;
      photo.Set(record);
      photo.SetGSD(kGsd, -kGsd);
      photoBlocks.back().InsertPhoto(photo);
    }
  }
  ~UpdateJob() override {
    tqfd::Logger::SetSink({});
    tqfd::PathHelper::SetProgramDataDirectory("");
    tqorkit::TqFSManager::SetOutputTmpFilePath("");
  }

  void WriteParams(const std::string& resolution) const {
    dir.Write("data/ortho_data/orParam.txt",
              "1\n1.0\n0\n0\n" + resolution + "\t0.000000\n" + dir.File("dsm.tif") + "\nout\n");
  }
  static void WriteRaster(const std::string& path, const Window& w, int bands,
                          const CellValue& value) {
    tqorkit::PhotoInfo image = ByteRecord(w.cols, w.rows, bands);
    for (int i = 0; i < static_cast<int>(image.data.size()); ++i) {
      const int cell = i / bands;
      image.data[static_cast<std::size_t>(i)] = value(cell / w.cols, cell % w.cols, i % bands);
    }
    Save(path, image, w);
  }
  static void Save(const std::string& path, const tqorkit::PhotoInfo& image, const Window& w) {
    const double transform[] = {kX0 + w.col * kGsd, kGsd, 0, kY0 - w.row * kGsd, 0, -kGsd};
    const tqimage::GeoCoefficients geo(transform, w.cols, w.rows);
    ASSERT_TRUE(tqimage::TqImage::QuickWriteImage(path, image, &geo, true)) << path;
  }
  [[nodiscard]] std::string Prefix() const { return dir.File("out") + "/"; }
  [[nodiscard]] std::string Ortho(int i) const {
    return Prefix() + Letter(i) + "_" + std::to_string(i / 2) + ".jpg";
  }
  [[nodiscard]] std::string Hidden(int i) const { return Ortho(i) + "_obs.tif"; }
  [[nodiscard]] std::string Owned(int i) const {
    return Prefix() + Letter(i) + "_" + std::to_string(i / 2) + ".msk";
  }
  /// One of the updates of the orthos.
  template <typename Step>
  bool Run(Step step, Calls* calls = nullptr) {
    return (this->*step)("none", Prefix(), calls ? Calls::Callback : nullptr, calls);
  }

  TempDir dir;
  std::vector<std::string> logged;
  std::vector<Window> windows;

 private:
  static std::string Letter(int i) { return std::string(1, static_cast<char>('a' + i)); }
};

}  // namespace tqtortho::testing
