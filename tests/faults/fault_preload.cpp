// SPDX-License-Identifier: Apache-2.0
//
// Makes chosen calls of a process fail, as disks and memory do. Loaded with LD_PRELOAD; told by
// environment variables:
//
//   FAULT_DIR    files at or below this directory count, others never fail
//   FAULT_KINDS  words of: write sync rename open link truncate close alloc
//   FAULT_AT     the call that fails, counted from 1 over all chosen kinds
//   FAULT_ON     "once" (default) or "on": that call, or that and every later one
//   FAULT_ERRNO  its error number (default 5, EIO); "kill" ends the process by SIGKILL instead
//   FAULT_BYTES  a disk of so many bytes: writes beyond fail with ENOSPC
//   FAULT_COUNT  file that receives the number of counted calls at the end
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

enum Kind { kWrite, kSync, kRename, kOpen, kLink, kTruncate, kClose, kAlloc, kKinds };
const char* const kNames[kKinds] = {"write", "sync",     "rename", "open",
                                    "link",  "truncate", "close",  "alloc"};
constexpr size_t kLargeAllocation = 65536;

bool chosen[kKinds];
char directory[4096];
size_t directoryLength = 0;
long failAt = 0;
bool everyLater = false;
bool killInstead = false;
int failWith = EIO;
long long bytesLeft = -1;
std::atomic<long> calls{0};
std::atomic<long long> bytesWritten{0};
bool ready = false;
// Allocations count from the first call in the directory on: before it, shared libraries are being
// loaded, and what their constructors cannot allocate nobody can catch.
std::atomic<bool> begun{false};

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

__attribute__((constructor)) void Start() {
  const char* dir = getenv("FAULT_DIR");
  if (dir == nullptr) return;
  snprintf(directory, sizeof directory, "%s", dir);
  directoryLength = strlen(directory);
  const char* kinds = getenv("FAULT_KINDS");
  for (int k = 0; k < kKinds; ++k) {
    chosen[k] = kinds != nullptr && strstr(kinds, kNames[k]) != nullptr;
  }
  if (const char* at = getenv("FAULT_AT")) failAt = atol(at);
  if (const char* on = getenv("FAULT_ON")) everyLater = strcmp(on, "on") == 0;
  if (const char* error = getenv("FAULT_ERRNO")) {
    killInstead = strcmp(error, "kill") == 0;
    if (!killInstead) failWith = atoi(error);
  }
  if (const char* bytes = getenv("FAULT_BYTES")) bytesLeft = atoll(bytes);
  ready = true;
}

__attribute__((destructor)) void Stop() {
  const char* path = getenv("FAULT_COUNT");
  ready = false;
  if (path == nullptr) return;
  if (FILE* file = fopen(path, "w")) {
    fprintf(file, "%ld %lld\n", calls.load(), bytesWritten.load());
    fclose(file);
  }
}

bool Below(const char* path) {
  if (path == nullptr || path[0] != '/' || strncmp(path, directory, directoryLength) != 0) {
    return false;
  }
  begun = true;
  return true;
}

bool OfDirectory(int fd) {
  char link[64];
  char path[4096];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const ssize_t length = readlink(link, path, sizeof path - 1);
  if (length <= 0) return false;
  path[length] = 0;
  return Below(path);
}

/// Counts the call. True when it is to fail; errno is set.
bool Fails(Kind kind) {
  if (!ready || !chosen[kind]) return false;
  const long number = ++calls;
  if (failAt <= 0 || number < failAt || (number > failAt && !everyLater)) return false;
  if (killInstead) raise(SIGKILL);
  errno = failWith;
  return true;
}

bool WriteFails(int fd, size_t size) {
  if (!ready || !OfDirectory(fd)) return false;
  const long long before = bytesWritten.fetch_add(static_cast<long long>(size));
  if (bytesLeft >= 0 && before + static_cast<long long>(size) > bytesLeft) {
    errno = ENOSPC;
    return true;
  }
  return Fails(kWrite);
}

bool OpenFails(const char* path, int flags) {
  return ready && (flags & (O_WRONLY | O_RDWR)) != 0 && Below(path) && Fails(kOpen);
}

mode_t ModeOf(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* data, size_t size) {
  static const auto real = Real<ssize_t (*)(int, const void*, size_t)>("write");
  return WriteFails(fd, size) ? -1 : real(fd, data, size);
}
ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
  static const auto real = Real<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
  return WriteFails(fd, size) ? -1 : real(fd, data, size, at);
}
ssize_t pwrite64(int fd, const void* data, size_t size, off64_t at) {
  static const auto real = Real<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
  return WriteFails(fd, size) ? -1 : real(fd, data, size, at);
}
ssize_t writev(int fd, const iovec* parts, int count) {
  static const auto real = Real<ssize_t (*)(int, const iovec*, int)>("writev");
  size_t size = 0;
  for (int i = 0; i < count; ++i) size += parts[i].iov_len;
  return WriteFails(fd, size) ? -1 : real(fd, parts, count);
}
// The C library writes its streams by calls of its own that cannot be taken over.
size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
  static const auto real = Real<size_t (*)(const void*, size_t, size_t, FILE*)>("fwrite");
  return ready && WriteFails(fileno(file), size * count) ? 0 : real(data, size, count, file);
}
int fsync(int fd) {
  static const auto real = Real<int (*)(int)>("fsync");
  return ready && OfDirectory(fd) && Fails(kSync) ? -1 : real(fd);
}
int fdatasync(int fd) {
  static const auto real = Real<int (*)(int)>("fdatasync");
  return ready && OfDirectory(fd) && Fails(kSync) ? -1 : real(fd);
}
int close(int fd) {
  static const auto real = Real<int (*)(int)>("close");
  if (!ready || !chosen[kClose] || !OfDirectory(fd) || !Fails(kClose)) return real(fd);
  const int error = errno;
  real(fd);
  errno = error;
  return -1;
}
int ftruncate(int fd, off_t size) {
  static const auto real = Real<int (*)(int, off_t)>("ftruncate");
  return ready && OfDirectory(fd) && Fails(kTruncate) ? -1 : real(fd, size);
}
int ftruncate64(int fd, off64_t size) {
  static const auto real = Real<int (*)(int, off64_t)>("ftruncate64");
  return ready && OfDirectory(fd) && Fails(kTruncate) ? -1 : real(fd, size);
}
int rename(const char* from, const char* to) {
  static const auto real = Real<int (*)(const char*, const char*)>("rename");
  return ready && Below(to) && Fails(kRename) ? -1 : real(from, to);
}
int link(const char* from, const char* to) {
  static const auto real = Real<int (*)(const char*, const char*)>("link");
  return ready && Below(to) && Fails(kLink) ? -1 : real(from, to);
}
int open(const char* path, int flags, ...) {
  static const auto real = Real<int (*)(const char*, int, mode_t)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  return OpenFails(path, flags) ? -1 : real(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  static const auto real = Real<int (*)(const char*, int, mode_t)>("open64");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  return OpenFails(path, flags) ? -1 : real(path, flags, mode);
}
/// Some libraries below GDAL crash, or drop a coordinate system in silence, when memory runs out in
/// them: nobody above can notice. A killed job is tested on its own.
bool SurvivesLackOfMemory(const void* caller) {
  Dl_info where;
  if (dladdr(caller, &where) == 0 || where.dli_fname == nullptr) return false;
  return strstr(where.dli_fname, "libgeotiff") == nullptr &&
         strstr(where.dli_fname, "libproj") == nullptr;
}

void* malloc(size_t size) {
  // Called before anything is set up, dlsym among its callers.
  static void* (*real)(size_t) = nullptr;
  if (real == nullptr) real = Real<void* (*)(size_t)>("malloc");
  if (begun && size >= kLargeAllocation && SurvivesLackOfMemory(__builtin_return_address(0)) &&
      Fails(kAlloc)) {
    errno = ENOMEM;
    return nullptr;
  }
  return real(size);
}

}  // extern "C"
