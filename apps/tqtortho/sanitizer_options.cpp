// SPDX-License-Identifier: Apache-2.0
// Only of use to builds with the address sanitizer, whose runtime looks for this name.

/// UseLocalFilesOnly takes drivers and file systems out of GDAL, which then forgets them without
/// freeing them: once in a process, a fifth of a megabyte.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libgdal.so\n"; }
