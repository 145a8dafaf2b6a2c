// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Files that are either whole or absent: written beside their place under a name of their own (see
/// staged_path.h), every write checked, forced to the disk, and only then given their name.
///
/// Libraries below us drop some errors: GDAL's TIFF driver writes the last buffer while it closes
/// and has nobody to tell. So GDAL writes through a file system of our own, named by CheckedPath,
/// that remembers the first failed write of each file.
namespace tqtortho {

/// The name under which GDAL writes `path` with checks. Names of GDAL's own file systems (/vsimem/
/// in tests) stay as they are. Drivers see this name: use it for files that do not refer to others
/// by relative paths.
[[nodiscard]] std::string CheckedPath(const std::string& path);

/// What is known of a file that is being written through CheckedPath: the errno of its first failed
/// write, truncation or close, 0 when all went well so far.
[[nodiscard]] int WriteFaultOf(const std::string& path);

/// Gives a complete staged file its name: takes its write fault, forces it to the disk, renames it
/// and forces the names of the directory to the disk. On failure the staged file is removed, an
/// older target stays and the errno is that of the cause.
[[nodiscard]] bool PublishFile(const std::string& staged, const std::string& target);

/// Removes a staged file that will not become `target`. When a write of it failed, or `failed` says
/// so, the target counts as a failed write.
void DiscardFile(const std::string& staged, const std::string& target = {}, bool failed = false);

/// A file that could not be written or given its name.
struct FailedWrite {
  std::string path;
  int error = 0;  ///< errno; 0 when the library that wrote it did not say
};

/// The failed writes of this process since the last call, in their order, at most a thousand. Some
/// operations go on after one by their rules; who answers for the whole job asks here.
[[nodiscard]] std::vector<FailedWrite> TakeFailedWrites();

/// Whether one of them has a path that begins so; they stay for TakeFailedWrites.
[[nodiscard]] bool AnyFailedWrite(const std::string& prefix);

/// Notes that an input, or a product that is read back, could not be read to its end.
void NoteFailedRead(const std::string& path);

/// The paths noted since the last call, in their order, at most a thousand.
[[nodiscard]] std::vector<std::string> TakeFailedReads();

/// The path and the system's words for the error, for a message.
[[nodiscard]] std::string Describe(const FailedWrite& failed);

/// Writes a whole file. False, with errno set, when any byte failed; an older target then stays.
[[nodiscard]] bool WriteWholeFile(const std::string& path, std::string_view content);
/// The same with a staged name of the caller's, in the directory of `path`.
[[nodiscard]] bool WriteWholeFile(const std::string& path, std::string_view content,
                                  const std::string& staged);

/// Copies a whole file under the same rules.
[[nodiscard]] bool CopyWholeFile(const std::string& from, const std::string& to);

/// Makes `to` a second name of the file `from`, else, where the file system has no hard links, a
/// copy of it.
[[nodiscard]] bool LinkOrCopyFile(const std::string& from, const std::string& to);

}  // namespace tqtortho
