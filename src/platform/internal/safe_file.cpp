// SPDX-License-Identifier: Apache-2.0
#include "internal/safe_file.h"

#include <cpl_vsi.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "internal/staged_path.h"
#include "tqfd/PathHelper.h"

namespace tqtortho {
namespace {

constexpr const char* kPrefix = "/vsitqtortho/";

class Faults {
 public:
  void Note(const std::string& path, int error) {
    const std::lock_guard lock(mutex_);
    first_.emplace(path, error);  // a later one follows from the first
  }
  int Of(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto found = first_.find(path);
    return found == first_.end() ? 0 : found->second;
  }
  int Take(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto node = first_.extract(path);
    return node.empty() ? 0 : node.mapped();
  }
  void NoteTarget(const std::string& path, int error) {
    const std::lock_guard lock(mutex_);
    if (targets_.size() < kMost) targets_.push_back({path, error});
  }
  bool AnyTarget(const std::string& prefix) {
    const std::lock_guard lock(mutex_);
    return std::any_of(targets_.begin(), targets_.end(), [&](const FailedWrite& failed) {
      return failed.path.compare(0, prefix.size(), prefix) == 0;
    });
  }
  std::vector<FailedWrite> TakeTargets() {
    const std::lock_guard lock(mutex_);
    return std::exchange(targets_, {});
  }
  void NoteRead(const std::string& path) {
    const std::lock_guard lock(mutex_);
    if (unread_.size() < kMost) unread_.push_back(path);
  }
  std::vector<std::string> TakeReads() {
    const std::lock_guard lock(mutex_);
    return std::exchange(unread_, {});
  }

 private:
  static constexpr std::size_t kMost = 1000;
  std::mutex mutex_;
  std::map<std::string, int> first_;
  std::vector<FailedWrite> targets_;
  std::vector<std::string> unread_;
};

Faults& AllFaults() {
  static Faults faults;
  return faults;
}

/// write() of everything, going on after interrupted and partial writes.
bool WriteAll(int file, const void* data, std::size_t size, off_t offset) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = ::pwrite(file, from, size, offset);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (written == 0) errno = ENOSPC;
      return false;
    }
    from += written;
    offset += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

/// An open file of the checked file system.
struct OpenFile {
  int descriptor = -1;
  std::string path;
  off_t position = 0;
  bool atEnd = false;
  bool faulted = false;

  void NoteFault() {
    AllFaults().Note(path, errno);
    faulted = true;
  }
};

OpenFile& FileOf(void* file) { return *static_cast<OpenFile*>(file); }

void* OpenChecked(void*, const char* name, const char* access) {
  const bool update = std::strchr(access, '+') != nullptr;
  int flags = O_CLOEXEC;
  switch (access[0]) {
    case 'r':
      flags |= update ? O_RDWR : O_RDONLY;
      break;
    case 'w':
      flags |= O_CREAT | O_TRUNC | (update ? O_RDWR : O_WRONLY);
      break;
    case 'a':
      flags |= O_CREAT | (update ? O_RDWR : O_WRONLY);
      break;
    default:
      return nullptr;
  }
  constexpr mode_t kMode = 0666;  // less the umask
  auto file = std::make_unique<OpenFile>();
  file->descriptor = ::open(name, flags, kMode);
  file->path = name;
  if (file->descriptor < 0) {
    if (access[0] != 'r') file->NoteFault();
    return nullptr;
  }
  if (access[0] == 'a') file->position = ::lseek(file->descriptor, 0, SEEK_END);
  return file.release();
}

int StatChecked(void*, const char* name, VSIStatBufL* status, int /*flags*/) {
  return ::stat64(name, status);
}

int UnlinkChecked(void*, const char* name) { return ::unlink(name); }

int RenameChecked(void*, const char* from, const char* to) { return ::rename(from, to); }

vsi_l_offset TellChecked(void* file) { return static_cast<vsi_l_offset>(FileOf(file).position); }

int SeekChecked(void* handle, vsi_l_offset offset, int whence) {
  OpenFile& file = FileOf(handle);
  off_t base = 0;
  if (whence == SEEK_CUR) base = file.position;
  if (whence == SEEK_END) {
    struct stat status {};
    if (::fstat(file.descriptor, &status) != 0) return -1;
    base = status.st_size;
  }
  // Offsets are unsigned; a negative one relative to the end arrives wrapped and unwraps here.
  const off_t target = static_cast<off_t>(static_cast<vsi_l_offset>(base) + offset);
  if (target < 0) return -1;
  file.position = target;
  file.atEnd = false;
  return 0;
}

std::size_t ReadChecked(void* handle, void* buffer, std::size_t size, std::size_t count) {
  OpenFile& file = FileOf(handle);
  const std::size_t wanted = size * count;
  std::size_t got = 0;
  // A file that lacks bytes is not read again: the TIFF library follows offsets that were never
  // written, and does not come back.
  if (file.faulted) {
    file.atEnd = true;
    return 0;
  }
  while (got < wanted) {
    const ssize_t part = ::pread(file.descriptor, static_cast<char*>(buffer) + got, wanted - got,
                                 file.position + static_cast<off_t>(got));
    if (part < 0 && errno == EINTR) continue;
    if (part <= 0) break;
    got += static_cast<std::size_t>(part);
  }
  file.position += static_cast<off_t>(got);
  file.atEnd = got < wanted;
  return size == 0 ? 0 : got / size;
}

int EofChecked(void* file) { return FileOf(file).atEnd ? 1 : 0; }

std::size_t WriteChecked(void* handle, const void* buffer, std::size_t size, std::size_t count) {
  OpenFile& file = FileOf(handle);
  if (file.faulted) return 0;
  if (!WriteAll(file.descriptor, buffer, size * count, file.position)) {
    file.NoteFault();
    return 0;
  }
  file.position += static_cast<off_t>(size * count);
  return count;
}

int FlushChecked(void* /*file*/) { return 0; }  // nothing is held back

int TruncateChecked(void* handle, vsi_l_offset size) {
  OpenFile& file = FileOf(handle);
  if (::ftruncate(file.descriptor, static_cast<off_t>(size)) == 0) return 0;
  file.NoteFault();
  return -1;
}

int CloseChecked(void* handle) {
  const std::unique_ptr<OpenFile> file(&FileOf(handle));
  if (::close(file->descriptor) == 0) return 0;
  file->NoteFault();
  return -1;
}

void InstallOnce() {
  static std::once_flag installed;
  std::call_once(installed, [] {
    VSIFilesystemPluginCallbacksStruct* calls = VSIAllocFilesystemPluginCallbacksStruct();
    calls->open = OpenChecked;
    calls->stat = StatChecked;
    calls->unlink = UnlinkChecked;
    calls->rename = RenameChecked;
    calls->tell = TellChecked;
    calls->seek = SeekChecked;
    calls->read = ReadChecked;
    calls->eof = EofChecked;
    calls->write = WriteChecked;
    calls->flush = FlushChecked;
    calls->truncate = TruncateChecked;
    calls->close = CloseChecked;
    VSIInstallPluginHandler(kPrefix, calls);
    VSIFreeFilesystemPluginCallbacksStruct(calls);
  });
}

bool IsOfGdal(const std::string& path) { return path.rfind("/vsi", 0) == 0; }

/// Forces a file's bytes to the disk. False when that failed: the bytes may be lost.
bool SyncFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool synced = ::fsync(file) == 0;
  const int error = errno;
  ::close(file);
  errno = error;
  return synced;
}

/// Notes that `target` could not be written, for `error`, and leaves errno so. Always false.
bool Failed(const std::string& target, int error) {
  AllFaults().NoteTarget(target, error);
  errno = error;
  return false;
}

/// Forces the names in the directory of `path` to the disk.
bool SyncDirectoryOf(const std::string& path) {
  const std::size_t start = FileNameStart(path);
  const std::string directory = start == 0 ? "." : path.substr(0, start);
  const int file = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) return false;
  // Some network file systems cannot do that for a directory, and have nothing to be forced.
  const bool synced = ::fsync(file) == 0 || errno == EINVAL || errno == ENOTSUP;
  const int error = errno;
  ::close(file);
  errno = error;
  return synced;
}

}  // namespace

std::string CheckedPath(const std::string& path) {
  if (IsOfGdal(path)) return path;
  InstallOnce();
  return kPrefix + path;
}

int WriteFaultOf(const std::string& path) { return AllFaults().Of(path); }

std::vector<FailedWrite> TakeFailedWrites() { return AllFaults().TakeTargets(); }

void NoteFailedRead(const std::string& path) { AllFaults().NoteRead(path); }

std::vector<std::string> TakeFailedReads() { return AllFaults().TakeReads(); }

bool AnyFailedWrite(const std::string& prefix) { return AllFaults().AnyTarget(prefix); }

std::string Describe(const FailedWrite& failed) {
  const std::string text = failed.path + ": cannot be written";
  return failed.error == 0 ? text : text + " (" + std::strerror(failed.error) + ")";
}

bool PublishFile(const std::string& staged, const std::string& target) {
  if (IsOfGdal(target)) {
    if (VSIRename(staged.c_str(), target.c_str()) == 0) return true;
    VSIUnlink(staged.c_str());
    return false;
  }
  int error = AllFaults().Take(staged);
  if (error == 0 && !SyncFile(staged)) error = errno;
  if (error == 0 && ::rename(staged.c_str(), target.c_str()) != 0) error = errno;
  if (error == 0) {
    // Two names of one file: rename() does nothing then, and says that all is well.
    ::unlink(staged.c_str());
    // Whole in any case; whether its name outlives a power cut is then not known.
    return SyncDirectoryOf(target) || Failed(target, errno);
  }
  ::unlink(staged.c_str());
  return Failed(target, error);
}

void DiscardFile(const std::string& staged, const std::string& target, bool failed) {
  const int error = AllFaults().Take(staged);
  VSIUnlink(staged.c_str());
  if ((failed || error != 0) && !target.empty()) (void)Failed(target, error);
}

bool WriteWholeFile(const std::string& path, std::string_view content) {
  return WriteWholeFile(path, content, StagedPath(path));
}

bool WriteWholeFile(const std::string& path, std::string_view content, const std::string& staged) {
  constexpr mode_t kMode = 0666;
  const int file = ::open(staged.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
  if (file < 0) return Failed(path, errno);
  bool written = WriteAll(file, content.data(), content.size(), 0);
  int error = errno;
  if (::close(file) != 0 && written) {
    written = false;
    error = errno;
  }
  if (written) return PublishFile(staged, path);
  ::unlink(staged.c_str());
  return Failed(path, error);
}

bool CopyWholeFile(const std::string& from, const std::string& to) {
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (source < 0) return false;
  const std::string staged = StagedPath(to);
  struct stat status {};
  const mode_t mode = ::fstat(source, &status) == 0 ? status.st_mode & 0777U : 0666U;
  const int target = ::open(staged.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  bool copied = target >= 0;
  std::vector<char> buffer(std::size_t{1} << 18);
  off_t at = 0;
  while (copied) {
    const ssize_t part = ::pread(source, buffer.data(), buffer.size(), at);
    if (part < 0 && errno == EINTR) continue;
    if (part == 0) break;
    copied = part > 0 && WriteAll(target, buffer.data(), static_cast<std::size_t>(part), at);
    at += part;
  }
  int error = errno;
  ::close(source);
  if (target >= 0 && ::close(target) != 0 && copied) {
    copied = false;
    error = errno;
  }
  if (copied) return PublishFile(staged, to);
  if (target >= 0) ::unlink(staged.c_str());
  return Failed(to, error);
}

bool LinkOrCopyFile(const std::string& from, const std::string& to) {
  tqfd::PathHelper::MakeParentDirectory(to);
  const std::string staged = StagedPath(to);
  ::unlink(staged.c_str());
  return ::link(from.c_str(), staged.c_str()) == 0 ? PublishFile(staged, to)
                                                   : CopyWholeFile(from, to);
}

}  // namespace tqtortho
