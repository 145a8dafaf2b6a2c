// SPDX-License-Identifier: Apache-2.0
#include "tqfd/FileInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

namespace tqfd {
namespace {

const char* NatureOf(mode_t mode) {
  if (S_ISDIR(mode)) return "it is a directory";
  if (S_ISFIFO(mode)) return "it is a named pipe, not a file";
  if (S_ISSOCK(mode)) return "it is a socket, not a file";
  return "it is a device, not a file";
}

std::string Megabytes(std::int64_t bytes) {
  char text[40];
  std::snprintf(text, sizeof text, "%.6g MB", static_cast<double>(bytes) / 1e6);
  return text;
}

std::string Fault(const std::string& path, const std::string& why) {
  return path + ": cannot be read (" + why + ")";
}

std::string FaultOf(const std::string& path, const struct stat& status, std::int64_t mostBytes) {
  if (!S_ISREG(status.st_mode)) return Fault(path, NatureOf(status.st_mode));
  if (status.st_size <= mostBytes) return {};
  return Fault(path, "it has " + Megabytes(status.st_size) + ", the limit is " +
                         Megabytes(mostBytes) + ", " + std::to_string(mostBytes) + " bytes");
}

/// An open descriptor of a regular file.
class InputFile {
 public:
  InputFile(const std::string& path, std::int64_t mostBytes, std::string& error) {
    error = FileFault(path, mostBytes);
    if (!error.empty()) return;
    // Should a pipe have taken the file's place since, this does not wait for a writer.
    file_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status {};
    if (file_ < 0 || ::fstat(file_, &status) != 0) {
      error = Fault(path, std::strerror(errno));
    } else {
      error = FaultOf(path, status, mostBytes);
      size = status.st_size;
    }
  }
  ~InputFile() {
    if (file_ >= 0) ::close(file_);
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  /// Reads until `text` holds `most` bytes or the file ends.
  bool Read(std::size_t most, std::string& text) const {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    // One byte more than the file says it has, so that its end shows without growing the buffer.
    text.resize(std::min(most, static_cast<std::size_t>(std::max<std::int64_t>(size, 0)) + 1));
    std::size_t held = 0;
    while (held < most) {
      if (held == text.size()) text.resize(std::min(most, held + std::max(held / 2, kStep)));
      const ssize_t count = ::read(file_, text.data() + held, text.size() - held);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return false;
      if (count == 0) break;
      held += static_cast<std::size_t>(count);
    }
    text.resize(held);
    return true;
  }

  std::int64_t size = 0;

 private:
  int file_ = -1;
};

}  // namespace

std::string FileFault(const std::string& path, std::int64_t mostBytes) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return Fault(path, errno == ENOENT ? "no such file" : std::strerror(errno));
  }
  return FaultOf(path, status, mostBytes);
}

bool ReadWholeFile(const std::string& path, std::int64_t mostBytes, std::string& text,
                   std::string& error) {
  text.clear();
  const InputFile file(path, mostBytes, error);
  if (!error.empty()) return false;
  // A file may grow while it is read.
  const auto most = static_cast<std::size_t>(mostBytes);
  if (!file.Read(most + 1, text)) {
    error = Fault(path, std::strerror(errno));
  } else if (text.size() > most) {
    error = Fault(path, "it grew beyond the limit of " + Megabytes(mostBytes));
  }
  if (!error.empty()) text = {};
  return error.empty();
}

std::string ReadFileStart(const std::string& path, std::size_t bytes) {
  std::string error, start;
  const InputFile file(path, std::numeric_limits<std::int64_t>::max(), error);
  if (!error.empty() || !file.Read(bytes, start)) return {};
  return start;
}

std::ifstream OpenInputFile(const std::string& path, std::int64_t mostBytes) {
  std::ifstream file;
  if (FileFault(path, mostBytes).empty()) {
    file.open(path, std::ios::binary);
  } else {
    file.setstate(std::ios::failbit);
  }
  return file;
}

}  // namespace tqfd
