// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace tqfd {

/// Why a file cannot be an input, as one line that begins with its path; empty when it can.
///
/// Only a regular file can, or a symbolic link to one, of at most `mostBytes` bytes. The file is
/// looked at and not opened: opening a named pipe waits for a writer, reading a device such as
/// /dev/zero never ends, and opening some devices already does something.
[[nodiscard]] std::string FileFault(const std::string& path, std::int64_t mostBytes);

/// Reads a file whole. False, with the line of FileFault in `error`, when it is no input.
[[nodiscard]] bool ReadWholeFile(const std::string& path, std::int64_t mostBytes, std::string& text,
                                 std::string& error);

/// Up to `bytes` bytes from the start of a regular file of any size; empty when it is none.
[[nodiscard]] std::string ReadFileStart(const std::string& path, std::size_t bytes);

/// A stream on a file that is an input; else one that is not open and has failed.
[[nodiscard]] std::ifstream OpenInputFile(const std::string& path, std::int64_t mostBytes);

}  // namespace tqfd
