// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tqtortho::host {

/// Names ending in ".tif" that an ortho image may have beside its own, which keeps the extension of
/// its photo: "IMG_7_0.tif" of "IMG_7_0.jpg", and "IMG_7_0.jpg.tif" where a photo of the same stem
/// has taken the first. Empty for an ortho that is called ".tif" or ".tiff" itself.
[[nodiscard]] std::vector<std::string> NamesOfOrtho(const std::string& orthoName);

/// Gives each ortho image one of those names too, as programs that go by the extension expect;
/// it is the same file where the file system has hard links.
///
/// @param names  of all orthos, in order: the name to be shown to people
/// @return false when a name could not be given; the failed write is noted
[[nodiscard]] bool NameOrthosForPeople(std::vector<std::string> orthoNames,
                                       std::vector<std::string>& names);

}  // namespace tqtortho::host
