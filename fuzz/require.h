// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "importers/lens_fit.h"
#include "importers/opensfm_file.h"

namespace tqtortho::fuzz {

/// The fuzzers' own assertion.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// A refusal says why, in one line.
inline void RequireReason(const std::string& error) {
  Require(!error.empty() && error.find('\n') == std::string::npos);
}

template <typename Numbers>
void RequireFinite(const Numbers& numbers) {
  for (const double c : numbers) Require(std::isfinite(c));
}

/// A camera is converted and keeps its promise, or is refused with a reason.
inline void RequireUsable(const host::SourceLens& lens) {
  std::string error;
  const auto fit = host::FitLens(lens, 1, error);
  Require(fit.has_value() || !error.empty());
  if (!fit) return;
  Require(fit->maxResidual <= host::kLensMaxResidual && fit->rmsResidual <= host::kLensRmsResidual);
  Require(fit->camera.width >= 1 && fit->camera.height > 0 && fit->camera.focalLength > 0);
}

/// The first two cameras without a fault; more would only cost time.
inline void RequireUsable(const std::map<std::string, host::SourceCamera>& cameras) {
  int converted = 0;
  for (const auto& [name, camera] : cameras) {
    if (camera.fault.empty() && ++converted <= 2) RequireUsable(camera.lens);
  }
}

inline std::string_view Text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace tqtortho::fuzz
