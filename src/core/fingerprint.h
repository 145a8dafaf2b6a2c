// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace tqtortho {

/// A running 64-bit checksum (FNV-1a) that tells inputs of a job apart. Not for adversaries.
///
/// Every part is hashed with its length, so ("ab", "c") and ("a", "bc") differ.
class Fingerprint {
 public:
  Fingerprint& Add(std::string_view text) {
    Add(static_cast<std::uint64_t>(text.size()));
    for (const char c : text) Step(static_cast<unsigned char>(c));
    return *this;
  }
  template <typename T>
  Fingerprint& Add(T value) requires std::is_integral_v<T> {
    auto bits = static_cast<std::uint64_t>(value);
    for (int i = 0; i < 8; ++i, bits >>= 8) Step(static_cast<unsigned char>(bits & 0xFFU));
    return *this;
  }
  [[nodiscard]] std::string Text() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[(hash_ >> shift) & 15U];
    return text;
  }

 private:
  void Step(unsigned char byte) { hash_ = (hash_ ^ byte) * 0x100000001b3ULL; }

  std::uint64_t hash_ = 0xcbf29ce484222325ULL;
};

}  // namespace tqtortho
