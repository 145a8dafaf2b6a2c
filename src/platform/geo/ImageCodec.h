// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace geo {

/// A picture as the bytes of a JPEG file: interleaved bytes of one or three bands. Empty when it
/// cannot be made.
[[nodiscard]] std::string EncodeJpeg(const std::uint8_t* pixels, int width, int height, int bands,
                                     int quality);

/// Bytes as a zlib stream (RFC 1950). Empty when memory runs out.
[[nodiscard]] std::string Deflate(const void* bytes, std::size_t count);

}  // namespace geo
