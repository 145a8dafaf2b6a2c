// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>

#include "core/numeric.h"

namespace tqtortho::host {

/// Random numbers and noise of the sample town. Integer arithmetic only up to the last conversion,
/// so that a seed gives the same town with every compiler and on every machine (the distributions
/// of the standard library differ between implementations).

/// A well mixed 32-bit value for a lattice cell.
inline std::uint32_t HashCell(int ix, int iy, std::uint32_t salt) {
  std::uint32_t h = salt + 0x9E3779B9U;
  h = (h ^ static_cast<std::uint32_t>(ix)) * 0x85EBCA6BU;
  h ^= h >> 13;
  h = (h ^ static_cast<std::uint32_t>(iy)) * 0xC2B2AE35U;
  h ^= h >> 16;
  h *= 0x7FEB352DU;
  return h ^ (h >> 15);
}

/// In [0, 1).
inline double HashUnit(int ix, int iy, std::uint32_t salt) {
  return HashCell(ix, iy, salt) * (1.0 / 4294967296.0);
}

/// Smooth noise in [-1, 1]: random values on a lattice of `cell` metres, blended with the quintic
/// that makes first and second derivatives continuous.
inline double ValueNoise(double x, double y, double cell, std::uint32_t salt) {
  const double fx = std::floor(x / cell), fy = std::floor(y / cell);
  const double u = x / cell - fx, v = y / cell - fy;
  const int ix = TruncToInt(fx), iy = TruncToInt(fy);
  const double su = u * u * u * (u * (u * 6 - 15) + 10), sv = v * v * v * (v * (v * 6 - 15) + 10);
  const double a = HashUnit(ix, iy, salt), b = HashUnit(ix + 1, iy, salt);
  const double c = HashUnit(ix, iy + 1, salt), d = HashUnit(ix + 1, iy + 1, salt);
  const double top = a + (b - a) * su, bottom = c + (d - c) * su;
  return 2 * (top + (bottom - top) * sv) - 1;
}

/// A sequence of random numbers (counter hashed with the seed).
class TownRandom {
 public:
  explicit TownRandom(std::uint32_t seed) : seed_(seed) {}
  std::uint32_t Next() { return HashCell(counter_++, 0x51ED27, seed_); }
  double Unit() { return Next() * (1.0 / 4294967296.0); }
  double Range(double low, double high) { return low + (high - low) * Unit(); }
  int Below(int n) { return n > 0 ? static_cast<int>(Next() % static_cast<unsigned>(n)) : 0; }

 private:
  std::uint32_t seed_;
  int counter_ = 0;
};

}  // namespace tqtortho::host
