// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tqtortho::app {

/// What the mosaic is handed out as.
inline void AddFormatOption(CLI::App& command, std::string& format) {
  command
      .add_option("--format", format,
                  "cog: cloud-optimised GeoTIFF with alpha; jpeg: the same with JPEG and a mask, "
                  "small, lossy; png-tiles: cog, and web tiles in OUT/tiles")
      ->check(CLI::IsMember({"cog", "jpeg", "png-tiles"}))
      ->capture_default_str();
}

}  // namespace tqtortho::app
