// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>

#include "testing/threads.h"
#include "testing/update_job.h"
#include "tqfd/StringConverter.h"
#include "tqorkit/tqBinaryData.h"

namespace tqtortho {
namespace {

using testing::UpdateJob;
using testing::Window;

class Job : public UpdateJob {
 public:
  using tqTORProc::MosaicMskProc;
  using UpdateJob::UpdateJob;
};

// Over several strips of the map, written by several threads: each cell belongs to the photo whose
// centre is nearest among those that have data there and see it. One photo has been updated, so
// that its mask of data has given way to a larger one of what it owns.
TEST(MosaicMasksTest, TheMapIsItsLiteralTwin) {
  const std::vector<Window> windows{{0, 30, 90, 900}, {40, 0, 70, 1300}, {70, 650, 50, 860}};
  Job job(windows);
  job.dir.Write("data/ortho_data/orParam.txt",
                "1\n1.0\n0\n0\n0.250000\t0.000000\nno surface\n" + job.Prefix() + "\n");
  std::mt19937 random(3);
  const int cols = 120, rows = 1510;
  std::vector<float> nearest(cols * rows, HUGE_VALF);
  std::vector<std::uint16_t> twin(nearest.size(), 0);
  for (int p = 0; p < 3; ++p) {
    const Window& w = windows[p];
    std::vector<std::uint8_t> data(w.cols * w.rows, 255), hidden(data.size(), 0);
    const auto& photo = job.photoBlocks[p / 2].GetPhotos()[p % 2];
    for (int i = 0; i < w.cols * w.rows; ++i) {
      if (p != 1 && random() % 5 == 0) data[i] = 0;
      if (random() % 3 == 0) hidden[i] = 255;
      if (data[i] == 0 || hidden[i] == 255) continue;
      const int row = w.row + i / w.cols, col = w.col + i % w.cols;
      const double dx = Job::kX0 + col * Job::kGsd - photo.Get().position[0];
      const double dy = Job::kY0 - row * Job::kGsd - photo.Get().position[1];
      const auto distance = static_cast<float>(dx * dx + dy * dy);
      if (!(distance < nearest[row * cols + col])) continue;
      nearest[row * cols + col] = distance;
      twin[row * cols + col] = static_cast<std::uint16_t>(p + 1);
    }
    const auto save = [&](const std::string& path, const Window& at,
                          const std::vector<std::uint8_t>& cells) {
      Job::WriteRaster(path, at, 1,
                       [&](int row, int col, int) { return cells[row * w.cols + col]; });
    };
    save(job.Ortho(p), w, data);
    save(job.Hidden(p), w, hidden);
    data.resize(static_cast<std::size_t>(w.cols + 1) * (w.rows + 2), 255);
    save(job.Owned(p), p == 1 ? Window{w.col, w.row, w.cols + 1, w.rows + 1} : w, data);
  }
  const testing::Threads four(4);
  ASSERT_TRUE(job.MosaicMskProc(nullptr, nullptr));
  tqorkit::tqBinaryData map;
  ASSERT_TRUE(map.Open(tqfd::StringConverter::Convert(PixMapPath())));
  ASSERT_EQ(map.GetWidth(), cols);
  ASSERT_EQ(map.GetHeight(), rows);
  std::vector<std::uint16_t> cells(twin.size());
  ASSERT_TRUE(map.ReadBlkData(0, 0, cols, rows, cells.data()));
  for (std::size_t i = 0; i < cells.size(); ++i) ASSERT_EQ(cells[i], twin[i]) << i;
}

}  // namespace
}  // namespace tqtortho
