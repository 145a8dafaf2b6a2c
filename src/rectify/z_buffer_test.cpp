// SPDX-License-Identifier: Apache-2.0
#include "rectify/z_buffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace tqtortho {
namespace {

/// Enters cells first, first + 1, ... at these distances into one pixel; returns the mask.
std::vector<int> MaskOf(const std::vector<double>& distances, std::uint32_t first) {
  std::vector<std::uint8_t> hidden(8);
  ZBuffer buffer(4, hidden.size(), hidden.data());
  for (std::size_t i = 0; i < distances.size(); ++i) {
    buffer.Enter(2, first + static_cast<std::uint32_t>(i), distances[i]);
  }
  return {hidden.begin() + first, hidden.begin() + first + static_cast<int>(distances.size())};
}

TEST(ZBufferTest, CellsOfOnePixelHideAsTheirDistancesSay) {
  const struct {
    const char* what;
    std::vector<double> distances;
    std::vector<int> mask;
    std::uint32_t first = 1;
  } cases[] = {
      {"the farther is hidden", {3000, 2000, 1000, 2500}, {255, 255, 0, 255}},
      // The stored distance is a whole number and the new one is not, so the same one loses.
      {"same", {1000.7, 1000.7}, {0, 255}},
      {"as the stored number", {1000.7, 1000.0}, {0, 0}},
      {"a later nearer one hides the first alone", {1000.7, 1000.0, 500}, {255, 0, 0}},
      {"cell 0 at distance 0 leaves the pixel empty", {0.9, 700, 800}, {0, 0, 255}, 0},
      {"cell 0 farther away does not", {1.9, 700, 800}, {0, 255, 255}, 0},
      {"distances saturate", {1e300, 1e12}, {0, 255}},
      {"and stay farther", {1e12, 5}, {255, 0}},
  };
  for (const auto& c : cases) EXPECT_EQ(MaskOf(c.distances, c.first), c.mask) << c.what;
}

}  // namespace
}  // namespace tqtortho
