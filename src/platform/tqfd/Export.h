// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what a host may link against; everything else stays hidden inside the shared library.
#if defined(__GNUC__)
#define TQTORTHO_API __attribute__((visibility("default")))
#else
#define TQTORTHO_API
#endif
