// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "mosaic/mosaic_stage.h"

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

/// Which cells of the mosaic that no photo sees are filled.
inline void AddFillOption(CLI::App& command, std::string& fill) {
  command
      .add_option(
          "--fill", fill,
          "cells that no photo sees get colours from around: nowhere, in gaps of up to 1 m, "
          "or everywhere; what is not filled is transparent")
      ->check(CLI::IsMember({"none", "small", "all"}))
      ->capture_default_str();
}

inline host::HoleFilling FillingOf(const std::string& fill) {
  return fill == "none"  ? host::HoleFilling::kNone
         : fill == "all" ? host::HoleFilling::kAll
                         : host::HoleFilling::kSmall;
}

/// What speaks against a compression beside a format; empty when nothing does. A JPEG product has
/// JPEG inside; another compression would be dropped without a word.
inline std::string FormatFault(const std::string& format, const std::string& compression) {
  if (format != "jpeg" || compression == "auto" || compression == "jpeg") return {};
  return "--format jpeg and --compress " + compression +
         " contradict each other; leave one of them out";
}

}  // namespace tqtortho::app
