// SPDX-License-Identifier: Apache-2.0
#include "mosaic/layer_store.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "tqfd/FileInput.h"

namespace tqtortho::host {
namespace {

namespace fs = std::filesystem;

// A row is: pairs of a rating and the length of its run, until the row is full; then pairs of how
// many cells keep their pixels and how many are replaced, followed by the colours of the latter,
// until the row is full again. Lengths are little-endian groups of seven bits.

void AppendLength(std::size_t length, std::vector<std::uint8_t>& bytes) {
  for (; length >= 128; length >>= 7) bytes.push_back(static_cast<std::uint8_t>(length | 128));
  bytes.push_back(static_cast<std::uint8_t>(length));
}

int TakeLength(const std::uint8_t*& bytes) {
  int length = 0;
  for (int shift = 0;; shift += 7) {
    const std::uint8_t byte = *bytes++;
    length |= (byte & 127) << shift;
    if (byte < 128) return length;
  }
}

void AppendRatings(const std::uint8_t* rating, int cols, std::vector<std::uint8_t>& bytes) {
  for (int col = 0; col < cols;) {
    const int first = col;
    while (col < cols && rating[col] == rating[first]) ++col;
    bytes.push_back(rating[first]);
    AppendLength(static_cast<std::size_t>(col - first), bytes);
  }
}

void AppendColours(const std::uint8_t* replaced, const std::uint8_t* pixels, int cols,
                   std::vector<std::uint8_t>& bytes) {
  for (int col = 0; col < cols;) {
    const int kept = col;
    while (col < cols && replaced[col] == 0) ++col;
    const int first = col;
    while (col < cols && replaced[col] != 0) ++col;
    AppendLength(static_cast<std::size_t>(first - kept), bytes);
    AppendLength(static_cast<std::size_t>(col - first), bytes);
    bytes.insert(bytes.end(), pixels + std::ptrdiff_t{3} * first, pixels + std::ptrdiff_t{3} * col);
  }
}

/// Copies the runs' ratings between two columns; `bytes` ends behind the row's last run.
void TakeRatings(const std::uint8_t*& bytes, int cols, int firstCol, int endCol,
                 std::uint8_t* out) {
  for (int col = 0; col < cols;) {
    const std::uint8_t rating = *bytes++;
    const int end = col + TakeLength(bytes);
    const int from = std::max(col, firstCol);
    const int to = std::min(end, endCol);
    if (out != nullptr && from < to) std::memset(out + (from - firstCol), rating, to - from);
    col = end;
  }
}

void TakeColours(const std::uint8_t* bytes, int cols, int firstCol, int endCol, std::uint8_t* out) {
  for (int col = 0; col < cols;) {
    const int first = col + TakeLength(bytes);
    const int end = first + TakeLength(bytes);
    const int from = std::max(first, firstCol);
    const int to = std::min(end, endCol);
    if (from < to) {
      std::copy(bytes + std::ptrdiff_t{3} * (from - first),
                bytes + std::ptrdiff_t{3} * (to - first),
                out + std::ptrdiff_t{3} * (from - firstCol));
    }
    bytes += std::ptrdiff_t{3} * (end - first);
    col = end;
  }
}

/// Takes `bytes` off what is left, unless there is less.
bool Reserve(std::atomic<std::int64_t>& left, std::size_t bytes) {
  const auto wanted = static_cast<std::int64_t>(bytes);
  if (left.fetch_sub(wanted) >= wanted) return true;
  left.fetch_add(wanted);
  return false;
}

}  // namespace

LayerStore::LayerStore(std::string dir, std::size_t photos, std::size_t budget)
    : dir_(std::move(dir)),
      layers_(photos),
      roomForRuns_(static_cast<std::int64_t>(budget)),
      roomForPixels_(static_cast<std::int64_t>(4 * budget)) {
  std::error_code ignored;
  fs::remove_all(dir_, ignored);  // of a run that was killed
}

LayerStore::~LayerStore() {
  std::error_code ignored;
  fs::remove_all(dir_, ignored);
}

std::string LayerStore::PathOf(std::size_t photo) const {
  return dir_ + "/" + std::to_string(photo) + ".runs";
}

bool LayerStore::Put(std::size_t photo, GridView<const std::uint8_t> rating,
                     const std::uint8_t* replaced, std::vector<std::uint8_t>& pixels) {
  Layer& layer = layers_[photo];
  layer.rows = rating.rows;
  layer.cols = rating.cols;
  layer.starts.reserve(static_cast<std::size_t>(rating.rows) + 1);
  for (int row = 0; row < rating.rows; ++row) {
    layer.starts.push_back(layer.bytes.size());
    const std::size_t first = static_cast<std::size_t>(row) * rating.cols;
    AppendRatings(rating.Row(row), rating.cols, layer.bytes);
    AppendColours(replaced + first, pixels.data() + 3 * first, rating.cols, layer.bytes);
  }
  layer.starts.push_back(layer.bytes.size());
  if (Reserve(roomForPixels_, pixels.size())) layer.pixels = std::move(pixels);
  if (Reserve(roomForRuns_, layer.bytes.size() + 8 * layer.starts.size())) {
    layer.bytes.shrink_to_fit();
    return true;
  }
  layer.inFile = true;
  if (!WriteFile(photo, layer)) {
    failed_ = true;
    return false;
  }
  layer.bytes = {};
  layer.starts = {};
  return true;
}

bool LayerStore::WriteFile(std::size_t photo, const Layer& layer) const {
  std::error_code ignored;
  fs::create_directories(dir_, ignored);
  std::ofstream file(PathOf(photo), std::ios::binary);
  file.write(reinterpret_cast<const char*>(layer.starts.data()),
             static_cast<std::streamsize>(8 * layer.starts.size()));
  file.write(reinterpret_cast<const char*>(layer.bytes.data()),
             static_cast<std::streamsize>(layer.bytes.size()));
  file.close();
  return !file.fail();
}

bool LayerStore::Load(std::size_t photo, const CellSpan& part, Rows& rows) const {
  const Layer& layer = layers_[photo];
  if (part.firstRow < 0 || part.endRow > layer.rows || part.firstRow >= part.endRow) return false;
  const std::size_t count = static_cast<std::size_t>(part.endRow - part.firstRow) + 1;
  if (!layer.inFile) {
    rows.starts.assign(layer.starts.begin() + part.firstRow,
                       layer.starts.begin() + part.endRow + 1);
    rows.bytes = layer.bytes.data() + rows.starts[0];
    return true;
  }
  std::ifstream file = tqfd::OpenInputFile(PathOf(photo), INT64_MAX);
  rows.starts.resize(count);
  file.seekg(std::streamoff{8} * part.firstRow);
  file.read(reinterpret_cast<char*>(rows.starts.data()), static_cast<std::streamsize>(8 * count));
  if (!file) return false;
  rows.buffer.resize(rows.starts.back() - rows.starts.front());
  file.seekg(static_cast<std::streamoff>(rows.starts[0]) + std::streamoff{8} * (layer.rows + 1));
  file.read(reinterpret_cast<char*>(rows.buffer.data()),
            static_cast<std::streamsize>(rows.buffer.size()));
  rows.bytes = rows.buffer.data();
  return !file.fail();
}

bool LayerStore::ReadRatings(std::size_t photo, const CellSpan& part,
                             GridView<std::uint8_t> out) const {
  Rows rows;
  if (!Load(photo, part, rows)) return false;
  for (int row = 0; row < out.rows; ++row) {
    const std::uint8_t* bytes = rows.Row(row);
    TakeRatings(bytes, layers_[photo].cols, part.firstCol, part.endCol, out.Row(row));
  }
  return true;
}

bool LayerStore::ReadPixels(std::size_t photo, const CellSpan& part,
                            GridView<std::uint8_t> out) const {
  const Layer& layer = layers_[photo];
  if (layer.pixels.empty()) return false;
  for (int row = 0; row < out.rows; ++row) {
    const std::size_t first =
        static_cast<std::size_t>(part.firstRow + row) * layer.cols + part.firstCol;
    std::copy_n(layer.pixels.data() + 3 * first, 3 * (part.endCol - part.firstCol), out.Row(row));
  }
  return true;
}

bool LayerStore::ReplacePixels(std::size_t photo, const CellSpan& part,
                               GridView<std::uint8_t> pixels) const {
  Rows rows;
  if (!Load(photo, part, rows)) return false;
  const int cols = layers_[photo].cols;
  for (int row = 0; row < pixels.rows; ++row) {
    const std::uint8_t* bytes = rows.Row(row);
    TakeRatings(bytes, cols, 0, 0, nullptr);
    TakeColours(bytes, cols, part.firstCol, part.endCol, pixels.Row(row));
  }
  return true;
}

}  // namespace tqtortho::host
