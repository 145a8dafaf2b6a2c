// SPDX-License-Identifier: Apache-2.0
#include "run/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tqtortho::host {
namespace {

constexpr const char* kLockName = "/.tqtortho.lock";

std::string OwnerOf(int file) {
  char text[32] = {};
  const ssize_t length = ::pread(file, text, sizeof text - 1, 0);
  std::string owner;
  for (ssize_t i = 0; i < length && text[i] >= '0' && text[i] <= '9'; ++i) owner += text[i];
  return owner.empty() ? std::string() : " (process " + owner + ")";
}

}  // namespace

DirectoryLock::~DirectoryLock() {
  if (file_ >= 0) ::close(file_);
}

bool DirectoryLock::Take(const std::string& directory, std::string& error) {
  const std::string path = directory + kLockName;
  file_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (file_ < 0) {
    error = path + ": cannot be opened (" + std::strerror(errno) + "); choose another directory";
    return false;
  }
  if (::flock(file_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    error = directory + ": another job is at work in it" + OwnerOf(file_) +
            "; wait for it to end, or choose another directory";
    ::close(file_);
    file_ = -1;
    return false;
  }
  const std::string owner = std::to_string(::getpid()) + "\n";
  // Only for people; a number that cannot be written changes nothing.
  if (::ftruncate(file_, 0) == 0) (void)!::pwrite(file_, owner.data(), owner.size(), 0);
  return true;
}

}  // namespace tqtortho::host
