// SPDX-License-Identifier: Apache-2.0
#include "occlusion/speckle_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/calib3d.hpp>
#include <random>
#include <vector>

namespace tqtortho {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::ptrdiff_t Hidden(const Bytes& mask) { return std::count(mask.begin(), mask.end(), 255); }

TEST(RemoveSpecklesTest, EqualsTheLibraryFunctionOnRandomMasks) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    const int cols = 1 + static_cast<int>(random() % 90);
    const int rows = 1 + static_cast<int>(random() % 60);
    const unsigned density = 30 + random() % 60;
    Bytes mask(static_cast<std::size_t>(cols) * rows);
    int walk = 128;
    for (auto& cell : mask) {
      walk = std::clamp(walk + static_cast<int>(random() % 45) - 22, 1, 255);
      // Two-valued masks, and every third time gradients that test the difference.
      cell = random() % 100 < density ? (round % 3 == 0 ? walk : 255) : 0;
    }
    const int limit = static_cast<int>(random() % 60);
    const cv::Mat bytes(rows, cols, CV_8U, mask.data());
    cv::Mat wide, expected;
    bytes.convertTo(wide, CV_16S, 1.0);
    cv::filterSpeckles(wide, 0, limit, 16);
    wide.convertTo(expected, CV_8U, 255.0, 0);
    RemoveSpeckles({mask.data(), rows, cols}, limit, 16);
    ASSERT_EQ(mask, Bytes(expected.datastart, expected.dataend)) << "round " << round;
  }
}

// Wider than 32767 columns, where positions of 16 bits would wrap.
TEST(RemoveSpecklesTest, VeryWideMasksWork) {
  const int cols = 70000;
  Bytes mask(cols * 2, 0);
  std::fill(mask.begin() + 40000, mask.begin() + 40501, 255);
  std::fill(mask.begin() + 60000, mask.begin() + 60400, 255);
  RemoveSpeckles({mask.data(), 2, cols});
  EXPECT_EQ(Hidden(mask), 501);
  RemoveSpeckles({nullptr, 0, 0});
}

}  // namespace
}  // namespace tqtortho
