// SPDX-License-Identifier: Apache-2.0
// Only of use to builds with the address sanitizer, whose runtime looks for this name. Also
// compiled into the tests and the fuzzer of options.

/// UseLocalFilesOnly takes drivers and file systems out of GDAL, which then forgets them without
/// freeing them: once in a process, a fifth of a megabyte. LLVM's OpenMP keeps the threads of a
/// team that became smaller.
// NOLINTBEGIN(bugprone-reserved-identifier): the runtime chose it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libgdal.so\nleak:libomp.so\n"; }
// NOLINTEND(bugprone-reserved-identifier)
