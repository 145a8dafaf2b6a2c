// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace geo {

/// The text of a virtual raster (VRT) that shows chosen bands of a raster as 8-bit samples.
///
/// @param bands   counted from 1, in the order of the result; a band may come twice
/// @param range   source values that become 0 and 255, linear between and clamped beyond; without
///                it samples must be 8 bits and stay as they are
/// @return nothing, with one line in `error`, when the raster cannot be read, lacks a band, or
/// needs
///         a range that is not given
[[nodiscard]] std::optional<std::string> BandChoiceVrt(
    const std::string& path, const std::vector<int>& bands,
    const std::optional<std::pair<double, double>>& range, std::string& error);

}  // namespace geo
