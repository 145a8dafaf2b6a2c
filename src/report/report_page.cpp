// SPDX-License-Identifier: Apache-2.0
#include "report/report_page.h"

#include <filesystem>
#include <fstream>

#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "report/report_data.h"
#include "report/report_layers.h"
#include "report/report_text.h"
#include "report/viewer/report_viewer.h"

namespace tqtortho::host {
namespace {

/// What the pictures of a page may take; a third more as base64.
constexpr std::size_t kPictureBudget = 8'500'000;

/// The browser itself is told that nothing may be fetched.
constexpr const char* kPolicy =
    "default-src 'none'; img-src blob: data:; script-src 'unsafe-inline'; style-src "
    "'unsafe-inline'";

void WritePage(std::ostream& out, const std::string& title, const std::string& data,
               const std::vector<EncodedLayer>& layers) {
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      << "<meta http-equiv=\"Content-Security-Policy\" content=\"" << kPolicy << "\">\n"
      << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      << "<meta name=\"color-scheme\" content=\"light dark\">\n"
      << "<title>" << HtmlText(title) << "</title>\n<style>" << ReportViewerStyle()
      << "</style>\n</head>\n<body>\n<noscript>This report needs JavaScript; nothing is fetched "
         "from anywhere.</noscript>\n<div id=\"app\"></div>\n"
      << "<script type=\"application/json\" id=\"report-data\">" << JsonForScript(data)
      << "</script>\n";
  for (const EncodedLayer& layer : layers) {
    out << "<script type=\"text/plain\" id=\"layer-" << layer.name << "\" data-kind=\""
        << layer.kind << "\" data-bits=\"" << layer.bits << "\">";
    WriteBase64(out, layer.bytes);
    out << "</script>\n";
  }
  out << "<script>" << ReportViewerScript() << "</script>\n</body>\n</html>\n";
}

}  // namespace

bool WriteReportPage(const ReportInput& input, const std::string& path, std::string& error) {
  const ReportFiles files{input.outDir + "/mosaic.tif", input.outDir + "/source.tif",
                          input.outDir + "/quality.tif", input.workDir + "/dsm.tif"};
  const std::vector<GroundPhoto> photos = PhotosOnGround(input.mosaic);
  const std::string staged = StagedPath(path);
  std::error_code failure;
  try {
    std::vector<EncodedLayer> encoded;
    std::string data;
    {
      const ReportLayers layers = MakeReportLayers(files, photos, input.run.gsd);
      encoded = EncodeLayers(layers, kPictureBudget);
      // A name that is not UTF-8 shows replacement characters, and the page still comes.
      data = ReportData(input, layers, photos)
                 .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    std::ofstream out(staged, std::ios::binary);
    WritePage(out, input.title.empty() ? "True orthophoto report" : input.title, data, encoded);
    out.close();
    if (out && PublishFile(staged, path)) return true;
    error = path + ": cannot be written; is the disk full?";
  } catch (const std::bad_alloc&) {
    error = path + ": cannot be made; memory is short";
  }
  std::filesystem::remove(staged, failure);
  return false;
}

}  // namespace tqtortho::host
