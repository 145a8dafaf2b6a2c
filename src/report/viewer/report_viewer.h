// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace tqtortho::host {

/// The viewer of report pages, built from viewer/ and carried in the program (see
/// cmake/EmbedReportViewer.cmake).
[[nodiscard]] std::string_view ReportViewerScript();
[[nodiscard]] std::string_view ReportViewerStyle();

}  // namespace tqtortho::host
