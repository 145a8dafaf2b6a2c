// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Version of the library, its package and its command (read by the build as well).
#define TQTORTHO_VERSION "0.2.0"
