// SPDX-License-Identifier: Apache-2.0
//
// Every limit that an input is held to before it is read; docs/limits.md explains them to users.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tqtortho::limits {

inline constexpr std::int64_t kMebibyte = std::int64_t{1} << 20;

// Sizes of files that are read whole. 100,000 photos in a list take about 15 MB.
inline constexpr std::int64_t kListBytes = 64 * kMebibyte;  ///< lists, parameter files, sidecars
/// Exported cameras, tables of poses, calibrated parameters, models: a few kB for each photo.
inline constexpr std::int64_t kExportBytes = 1024 * kMebibyte;
/// A reconstruction holds its points too: several hundred MB for 10,000 photos.
inline constexpr std::int64_t kReconstructionBytes = 4096 * kMebibyte;
/// Offsets, references, calibrations, records of finished work.
inline constexpr std::int64_t kSmallFileBytes = 16 * kMebibyte;
inline constexpr std::int64_t kVirtualRasterBytes = 64 * kMebibyte;
inline constexpr std::int64_t kAreaBytes = 256 * kMebibyte;
inline constexpr int kJsonDepth = 64;  ///< lists and objects inside one another

/// Photos of a survey: their numbers have 16 bits in the map from cells to photos, and 0 is none.
inline constexpr int kPhotos = 65'535;
/// Bytes of a photo's name in a list: the parameter file carries 255, less the suffixes.
inline constexpr std::size_t kNameBytes = 250;
/// Bytes of a folder of photos or products: the parameter file's lines are read into 1024.
inline constexpr std::size_t kPathBytes = 1023;

// Rasters.
inline constexpr int kPhotoSide = 65'535;                     ///< pixels, the most that JPEG holds
inline constexpr std::int64_t kPhotoSamples = 2'000'000'000;  ///< width * height * bands
/// Cells of a surface, whichever command reads it.
inline constexpr std::int64_t kSurfaceCells = 2'000'000'000;
/// Bytes that preparing a surface takes for each of its cells at its peak.
inline constexpr std::int64_t kSurfaceBytesPerCell = 22;
/// Cells of a surface that a ray tracer holds (`trace`): 4 GiB of heights.
inline constexpr std::int64_t kTracedCells = std::int64_t{1} << 30;

/// Cells on the longer side of what a report shows, at most.
inline constexpr int kReportSide = 4096;

}  // namespace tqtortho::limits
