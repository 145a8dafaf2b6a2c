// SPDX-License-Identifier: Apache-2.0
#include "geo/BandChoice.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_utils.h>

#include <algorithm>
#include <atomic>

#include "geo/RasterTools.h"
#include "internal/gdal_raster.h"

namespace geo {
namespace {

using tqimage::CloseChecked;
using tqimage::DatasetPtr;
using tqimage::GdalScope;

/// Writes the virtual raster in memory: there, the source's path stays absolute.
bool Translate(const std::string& path, const std::string& target, CPLStringList& arguments) {
  const DatasetPtr source = tqimage::OpenRaster(path, false);
  GDALTranslateOptions* const options =
      source ? GDALTranslateOptionsNew(arguments.List(), nullptr) : nullptr;
  if (options == nullptr) return false;
  int usageError = 0;
  DatasetPtr vrt(GDALDataset::FromHandle(
      GDALTranslate(target.c_str(), GDALDataset::ToHandle(source.get()), options, &usageError)));
  GDALTranslateOptionsFree(options);
  return vrt && usageError == 0 && CloseChecked(std::move(vrt));
}

}  // namespace

std::optional<std::string> BandChoiceVrt(const std::string& path, const std::vector<int>& bands,
                                         const std::optional<std::pair<double, double>>& range,
                                         std::string& error) {
  static std::atomic<unsigned> counter{0};
  RasterSummary summary;
  if (!DescribeRaster(path, summary, error)) return std::nullopt;
  if (summary.format == "VRT") {
    error = path + ": is a virtual raster; photos are files of their own";
    return std::nullopt;
  }
  const int last = *std::max_element(bands.begin(), bands.end());
  if (last > summary.bands) {
    error = path + ": has " + std::to_string(summary.bands) + " bands, not band " +
            std::to_string(last) + "; choose others with --bands";
    return std::nullopt;
  }
  if (!range && summary.sampleType != "Byte") {
    error = path + ": samples are " + summary.sampleType +
            "; say with --range LO,HI which values become black and white";
    return std::nullopt;
  }
  CPLStringList arguments;
  const auto add = [&](const std::string& text) { arguments.AddString(text.c_str()); };
  for (const char* text : {"-of", "VRT", "-ot", "Byte", "-a_nodata", "none"}) add(text);
  for (const int band : bands) {
    add("-b");
    add(std::to_string(band));
  }
  if (range) {
    add("-scale");
    for (const double value : {range->first, range->second, 0.0, 255.0}) add(std::to_string(value));
  }
  GdalScope scope;
  const std::string target = "/vsimem/tqtortho_bands_" + std::to_string(++counter) + ".vrt";
  if (!Translate(path, target, arguments)) {
    VSIUnlink(target.c_str());
    error = path + ": its bands cannot be chosen";
    return std::nullopt;
  }
  vsi_l_offset length = 0;
  GByte* const bytes = VSIGetMemFileBuffer(target.c_str(), &length, FALSE);
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  VSIUnlink(target.c_str());
  return text;
}

}  // namespace geo
