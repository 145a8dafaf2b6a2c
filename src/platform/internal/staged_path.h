// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

namespace tqtortho {

/// A name in the directory of `target` that no other writer uses, hidden from directory listings:
/// ".name.tmp-PID-N". Files are written there and renamed onto `target` when complete, so that a
/// killed job leaves no half file under a name that a later stage reads.
[[nodiscard]] std::string StagedPath(const std::string& target);
/// Removes the staged files that this process has left in the directories it wrote to, as far as
/// `patience` reaches. For a process that ends at once, without unwinding.
void RemoveStagedFiles(std::chrono::milliseconds patience);

/// Position behind the last '/' or '\\' of a path, 0 when it has none.
[[nodiscard]] std::size_t FileNameStart(const std::string& path);
/// Position of the last '.' of the file name, or the path's length when it has none.
[[nodiscard]] std::size_t ExtensionStart(const std::string& path);

}  // namespace tqtortho
