// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <utility>

#include "importers/colmap_records.h"

namespace tqtortho::host {
namespace {

class Bytes {
 public:
  explicit Bytes(std::istream& in) : in_(in) {
    in_.seekg(0, std::ios::end);
    const auto end = in_.tellg();
    left_ = end > 0 ? static_cast<std::uint64_t>(end) : 0;
    in_.seekg(0);
  }
  [[nodiscard]] std::uint64_t Left() const { return left_; }
  /// The next `count` (at most 8) bytes as a number.
  bool Whole(std::size_t count, std::uint64_t& value) {
    unsigned char bytes[8] = {};
    if (count > left_ || !in_.read(reinterpret_cast<char*>(bytes), static_cast<long>(count))) {
      return false;
    }
    left_ -= count;
    value = 0;
    for (std::size_t i = count; i-- > 0;) value = value << 8 | bytes[i];
    return true;
  }
  bool Real(double& value) {
    std::uint64_t bits = 0;
    if (!Whole(8, bits)) return false;
    value = std::bit_cast<double>(bits);
    return true;
  }
  /// A text that ends with a zero byte.
  bool Text(std::string& text) {
    constexpr std::size_t kLongest = 4096;
    text.clear();
    std::uint64_t byte = 0;
    while (Whole(1, byte) && byte != 0 && text.size() < kLongest) {
      text.push_back(static_cast<char>(byte));
    }
    return byte == 0 && !text.empty();
  }
  bool Skip(std::uint64_t count) {
    if (count > left_ || !in_.seekg(static_cast<std::streamoff>(count), std::ios::cur)) {
      return false;
    }
    left_ -= count;
    return true;
  }

 private:
  std::istream& in_;
  std::uint64_t left_ = 0;
};

/// Reads the count of records, each of at least `smallest` bytes.
bool ReadCount(Bytes& bytes, std::uint64_t smallest, const char* what, std::uint64_t& count,
               std::string& error) {
  const std::uint64_t size = bytes.Left();
  if (bytes.Whole(8, count) && count <= bytes.Left() / smallest) return true;
  error = "is cut short or damaged: " + std::to_string(size) + " bytes cannot hold " +
          (size < 8 ? "a count of " : std::to_string(count) + " ") + what + "; copy it again";
  return false;
}

std::string CutShort(std::uint64_t number, const char* what) {
  return "is cut short or damaged: it ends within " + std::string(what) + " " +
         std::to_string(number + 1) + "; copy it again";
}

/// Number, model, width, height and the fewest parameters.
constexpr std::uint64_t kSmallestCamera = 4 + 4 + 8 + 8 + 3 * 8;

}  // namespace

bool ReadColmapCamerasBinary(std::istream& in, ColmapCameras& cameras, std::string& error) {
  Bytes bytes(in);
  std::uint64_t count = 0;
  if (!ReadCount(bytes, kSmallestCamera, "cameras", count, error)) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t id = 0, model = 0, width = 0, height = 0;
    if (!bytes.Whole(4, id) || !bytes.Whole(4, model) || !bytes.Whole(8, width) ||
        !bytes.Whole(8, height)) {
      error = CutShort(i, "camera");
      return false;
    }
    const std::size_t parameters = ColmapParameterCount(model);
    if (parameters == 0) {
      // How many parameters follow is not known, so nothing behind can be read.
      error = "camera \"" + std::to_string(id) + "\": has lens model number " +
              std::to_string(model) + ", which is not known; export the model as text, or use " +
              "OPENCV, RADIAL, SIMPLE_RADIAL or PINHOLE";
      return false;
    }
    ColmapCamera camera;
    camera.id = std::to_string(id);
    camera.model = ColmapModelName(model);
    camera.width = static_cast<double>(width);
    camera.height = static_cast<double>(height);
    camera.parameters.resize(parameters);
    for (double& value : camera.parameters) {
      if (bytes.Real(value)) continue;
      error = CutShort(i, "camera");
      return false;
    }
    if (!AddColmapCamera(camera, cameras, error)) return false;
  }
  return true;
}

bool ReadColmapPhotosBinary(std::istream& in, std::vector<ColmapPhoto>& photos,
                            std::string& error) {
  constexpr std::uint64_t kSmallestPhoto = 4 + 7 * 8 + 4 + 2 + 8;
  constexpr std::uint64_t kPoint = 24;
  Bytes bytes(in);
  std::uint64_t count = 0;
  if (!ReadCount(bytes, kSmallestPhoto, "photos", count, error)) return false;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::uint64_t id = 0, camera = 0, points = 0;
    std::array<double, 7> pose{};
    std::string name;
    bool good = bytes.Whole(4, id);
    for (double& value : pose) good = good && bytes.Real(value);
    if (!good || !bytes.Whole(4, camera) || !bytes.Text(name) || !bytes.Whole(8, points) ||
        points > bytes.Left() / kPoint || !bytes.Skip(points * kPoint)) {
      error = CutShort(i, "photo");
      return false;
    }
    if (!AddColmapPhoto(std::move(name), std::to_string(camera), pose, photos, error)) return false;
  }
  return true;
}

bool IsColmapCamerasBinary(std::istream& in) {
  Bytes bytes(in);
  std::uint64_t count = 0, id = 0, model = 0;
  return bytes.Whole(8, count) && count >= 1 && count <= bytes.Left() / kSmallestCamera &&
         bytes.Whole(4, id) && bytes.Whole(4, model) && model < 256;
}

}  // namespace tqtortho::host
