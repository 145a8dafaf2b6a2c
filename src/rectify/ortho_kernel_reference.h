// SPDX-License-Identifier: Apache-2.0
#pragma once

// The production pass written down a second time, as plainly as it can be: one cell after the
// other, a z-buffer of three numbers per photo pixel, records straight from the caller. Tests and
// benchmarks compare the product with it byte for byte. Nothing but the number rules is shared.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "core/numeric.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqExtOri.h"
#include "tqorkit/tqIntOri.h"

namespace tqtortho::reference {

inline void Distort(const tqorkit::tqIntOri& io, float inCol, float inUp, float& outCol,
                    float& outUp) {
  const auto& rec = io.Get();
  const double k1 = rec.coefficients[0], k2 = rec.coefficients[1], k3 = rec.coefficients[2];
  const double p1 = rec.coefficients[3], p2 = rec.coefficients[4];
  const double b1 = rec.coefficients[5], b2 = rec.coefficients[6];
  const auto inPixels = io.GetCameraCoeffs(true);
  const double W = io.GetImageSize().x, H = io.GetImageSize().y;
  const double cx = W * 0.5 + inPixels.x, cy = H * 0.5 + inPixels.y, fp = inPixels.z;
  const double s = 0.001 * rec.pixelSize;
  outCol = inCol;
  outUp = inUp;
  if (rec.distortionModel == 1) {
    double dx = 0, dy = 0;
    int i = 0;
    for (;;) {
      const double ux = inCol - dx, uy = inUp - dy;
      const double x = ux - cx, y = uy - cy;
      const double r2 = x * x + y * y;
      const double rad = k1 * r2 + k2 * (r2 * r2) + k3 * ((r2 * r2) * r2);
      const double ndx = p1 * (2 * x * x + r2) + rad * x + 2 * p2 * x * y + b1 * x + b2 * y;
      const double ndy = p2 * (2 * y * y + r2) + rad * y + 2 * p1 * x * y;
      if (i > 10) return;
      if (std::fabs(ndx - dx) <= 0.1 && std::fabs(ndy - dy) <= 0.1) {
        outCol = NarrowToFloat(ux);
        outUp = NarrowToFloat(uy);
        return;
      }
      dx = ndx;
      dy = ndy;
      ++i;
    }
  }
  if (rec.distortionModel == 3) {
    const double x = ((inCol - cx) / (fp * s)) * s;
    const double y = ((H - inUp - cy) / (fp * s)) * s;
    const double r2 = x * x + y * y;
    const double rad = k1 * r2 + k2 * (r2 * r2) + k3 * ((r2 * r2) * r2);
    const double xd = x + rad * x + p2 * (2 * x * x + r2) + 2 * p1 * x * y;
    const double yd = y + rad * y + p1 * (2 * y * y + r2) + 2 * p2 * x * y;
    outCol = NarrowToFloat(xd * fp + cx);
    outUp = NarrowToFloat(H - (yd * fp + cy));
  }
}

inline double SurfaceSample(const tqorkit::PhotoInfo& dsm, double column, double row) {
  const auto* z = reinterpret_cast<const float*>(dsm.data.data());
  if (column + 1 < dsm.width && row + 1 < dsm.height && column - 1 > 0 && row - 1 > 0) {
    const int c = static_cast<int>(column), r = static_cast<int>(row);
    double v[2][2];
    bool bad[2][2];
    int count = 0;
    double sum = 0;
    for (int j = 0; j < 2; ++j) {
      for (int i = 0; i < 2; ++i) {
        v[j][i] = z[static_cast<std::ptrdiff_t>(r + j) * dsm.width + c + i];
        bad[j][i] = !(std::fabs(v[j][i] - dsm.noData) > 0.001);
        if (!bad[j][i]) ++count;
        sum += v[j][i];
      }
    }
    if (count < 3) return dsm.noData;
    for (int j = 0; j < 2; ++j) {
      for (int i = 0; i < 2; ++i) {
        if (bad[j][i]) v[j][i] = sum / count;
      }
    }
    const double fx = column - c, fy = row - r;
    return (1 - fx) * (1 - fy) * v[0][0] + fx * (1 - fy) * v[0][1] + (1 - fx) * fy * v[1][0] +
           fx * fy * v[1][1];
  }
  if (0 <= column && column + 0.5 < dsm.width && 0 <= row && row + 0.5 < dsm.height) {
    return z[static_cast<std::ptrdiff_t>(static_cast<int>(row + 0.5)) * dsm.width +
             static_cast<int>(column + 0.5)];
  }
  return dsm.noData;
}

inline void PhotoSample(const tqorkit::PhotoInfo& photo, int method, double column, double row,
                        std::uint8_t* out) {
  const std::ptrdiff_t W = photo.width, H = photo.height, B = photo.bands;
  const std::uint8_t* p = photo.data.data();
  if (method == 1 && column + 1 < W && row + 1 < H && column - 1 > 0 && row - 1 > 0) {
    const int c = static_cast<int>(column), r = static_cast<int>(row);
    const double fx = column - c, fy = row - r;
    for (int b = 0; b < B; ++b) {
      int v[4] = {p[(r * W + c) * B + b], p[(r * W + c + 1) * B + b], p[((r + 1) * W + c) * B + b],
                  p[((r + 1) * W + c + 1) * B + b]};
      int count = 0, sum = 0;
      for (int k = 0; k < 4; ++k) {
        if (v[k] != 1) ++count;
        sum += v[k];
      }
      if (count < 3) {
        out[b] = 1;
        continue;
      }
      for (int k = 0; k < 4; ++k) {
        if (v[k] == 1) v[k] = sum / count;
      }
      out[b] = static_cast<std::uint8_t>((1 - fx) * (1 - fy) * v[0] + fx * (1 - fy) * v[1] +
                                         (1 - fx) * fy * v[2] + fx * fy * v[3]);
    }
    return;
  }
  const bool near = 0 <= row && row + 0.5 < H && 0 <= column && column + 0.5 < W;
  for (int b = 0; b < B; ++b) {
    out[b] = near ? p[(static_cast<int>(row + 0.5) * W + static_cast<int>(column + 0.5)) * B + b]
                  : std::uint8_t{1};
  }
}

/// The pass from the clipped footprint in photo.geoRect to the packed output.
///
/// @param rotation  row-major rotation matrix of `eo`
/// @param refine    cleans the whole occlusion grid (cells, columns, rows)
inline bool RectifyPixels(const tqorkit::PhotoInfo& photo, const tqorkit::PhotoInfo& dsm,
                          const tqorkit::tqIntOri& io, const tqorkit::tqExtOri& eo,
                          const double* rotation, int method, double* parameters,
                          tqorkit::PhotoInfo& output, std::vector<std::uint8_t>* occlusion,
                          const std::function<void(std::uint8_t*, int, int)>& refine) {
  const double minX = std::fmax(photo.geoRect[0], dsm.geoRect[0]);
  const double minY = std::fmax(photo.geoRect[1], dsm.geoRect[1]);
  const double maxX = std::fmin(photo.geoRect[2], dsm.geoRect[2]);
  const double maxY = std::fmin(photo.geoRect[3], dsm.geoRect[3]);
  output.width = output.height = output.bands = 0;
  if (minX >= maxX || minY >= maxY) return false;
  if (std::fabs(parameters[0]) < 1e-10) parameters[0] = dsm.resX;
  const double r = parameters[0];
  const int cols = TruncToInt((maxX - minX) / r + 1);
  const int rows = TruncToInt((maxY - minY) / r + 1);
  if (cols < 2 || rows < 2 || static_cast<double>(cols) * rows * photo.bands > 2e9) return false;

  struct Entry {
    std::int32_t col, row, distance;
  };
  const std::ptrdiff_t B = photo.bands;
  std::vector<std::uint8_t> grid(static_cast<std::size_t>(cols) * rows * B, 0);
  std::vector<std::uint8_t> hidden(static_cast<std::size_t>(cols) * rows, 0);
  std::vector<Entry> zbuffer(static_cast<std::size_t>(photo.width) * photo.height, Entry{0, 0, 0});

  double pos[6];
  eo.GetPos(pos);
  const double Xs = pos[0], Ys = pos[1], Zs = pos[2];
  const double a1 = rotation[0], a2 = rotation[1], a3 = rotation[2];
  const double b1 = rotation[3], b2 = rotation[4], b3 = rotation[5];
  const double c1 = rotation[6], c2 = rotation[7], c3 = rotation[8];
  const auto lengths = io.GetCameraCoeffs(false);
  const double f = 0.001 * lengths.z, x0 = 0.001 * lengths.x, y0 = 0.001 * lengths.y;
  const double s = 0.001 * io.Get().pixelSize;
  const double W = io.GetImageSize().x, H = io.GetImageSize().y;

  int minCol = 1000000, minRow = 1000000, maxCol = 0, maxRow = 0;
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const double X = minX + col * r, Y = maxY - row * r;
      const double dsmCol = (X - dsm.geoRect[0]) / dsm.resX;
      const double dsmRow = dsm.height - (Y - dsm.geoRect[1]) / dsm.resX;
      const int ci = TruncToInt(dsmCol), ri = TruncToInt(dsmRow);
      if (ci < 0 || ci >= dsm.width || ri < 0 || ri >= dsm.height) continue;
      const double cellHeight = reinterpret_cast<const float*>(
          dsm.data.data())[static_cast<std::ptrdiff_t>(ri) * dsm.width + ci];
      if (!(std::fabs(cellHeight - dsm.noData) >= 0.001)) continue;
      const double h = SurfaceSample(dsm, dsmCol, dsmRow);
      if (std::fabs(h - dsm.noData) < 0.001) continue;

      const double dX = X - Xs, dY = Y - Ys, dZ = h - Zs;
      const double den = a3 * dX + b3 * dY + c3 * dZ;
      const double x = -f * (a1 * dX + b1 * dY + c1 * dZ) / den;
      const double y = -f * (a2 * dX + b2 * dY + c2 * dZ) / den;
      double column = (x + x0) / s + W * 0.5;
      double u = (y + y0) / s + H * 0.5;
      if (0 <= column && column < W && 0 <= u && u < H) {
        float corrCol, corrUp;
        Distort(io, NarrowToFloat(column), NarrowToFloat(u), corrCol, corrUp);
        column = corrCol;
        u = corrUp;
      }
      const double photoRow = H - u;
      if (!(0 <= column && column < W && 0 <= photoRow && photoRow < H)) continue;

      std::uint8_t* cell = &grid[(static_cast<std::size_t>(row) * cols + col) * B];
      PhotoSample(photo, method, column, photoRow, cell);
      if (cell[0] == 0) continue;
      // A frame larger than the raster: what lies outside has no z-buffer entry.
      if (occlusion != nullptr && column < photo.width && photoRow < photo.height) {
        const double d = 1000 * std::sqrt(dX * dX + dY * dY + dZ * dZ);
        Entry& entry = zbuffer[static_cast<std::size_t>(photoRow) * photo.width +
                               static_cast<std::size_t>(column)];
        if (entry.col == 0 && entry.row == 0 && entry.distance == 0) {
          entry = {col, row, TruncToInt(d)};
        } else if (entry.distance > d) {
          hidden[static_cast<std::size_t>(entry.row) * cols + entry.col] = 255;
          entry = {col, row, TruncToInt(d)};
        } else if (d > entry.distance) {
          hidden[static_cast<std::size_t>(row) * cols + col] = 255;
        }
      }
      if (col < minCol) minCol = col;
      if (col > maxCol) maxCol = col;
      if (row < minRow) minRow = row;
      if (row > maxRow) maxRow = row;
    }
  }
  const int width = maxCol - minCol, height = maxRow - minRow;
  if (width <= 0 || height <= 0) {
    output.dataType = 0;
    return false;
  }
  if (occlusion != nullptr) {
    refine(hidden.data(), cols, rows);
    occlusion->clear();
  }
  output.data.clear();
  for (int row = minRow; row < minRow + height; ++row) {
    for (int col = minCol; col < minCol + width; ++col) {
      const std::size_t cell = static_cast<std::size_t>(row) * cols + col;
      if (occlusion != nullptr) occlusion->push_back(hidden[cell]);
      output.data.insert(output.data.end(), &grid[cell * B], &grid[cell * B] + B);
    }
  }
  output.width = width;
  output.height = height;
  output.bands = photo.bands;
  output.dataType = 1;
  output.resX = r;
  output.resY = -r;
  output.geoRect[0] = minX + minCol * r;
  output.geoRect[1] = minY + (rows - maxRow) * r;
  output.geoRect[2] = output.geoRect[0] + width * r;
  output.geoRect[3] = output.geoRect[1] + height * r;
  return true;
}

}  // namespace tqtortho::reference
