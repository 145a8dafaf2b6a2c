// SPDX-License-Identifier: Apache-2.0
#include "internal/open_policy.h"

#include <cpl_http.h>
#include <cpl_minixml.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <vector>

#include "core/limits.h"
#include "geo/InputPolicy.h"
#include "tqfd/FileInput.h"

namespace tqimage {
namespace {

namespace fs = std::filesystem;
namespace limits = tqtortho::limits;

constexpr std::int64_t kAnySize = INT64_MAX;

// GTiff reads cloud-optimised files too. The last entry ends the list for GDAL.
constexpr const char* kRasterDrivers[] = {"GTiff", "JPEG",    "PNG",  "JP2OpenJPEG",
                                          "HFA",   "AAIGrid", nullptr};
constexpr const char* kVirtualDriver[] = {"VRT", nullptr};
constexpr const char* kVectorDrivers[] = {"GeoJSON",    "GPKG", "ESRI Shapefile",
                                          "FlatGeobuf", "KML",  nullptr};
// What the command itself writes with, beside the above.
constexpr const char* kWritingDrivers[] = {"COG", "MEM", "Memory"};

/// Everything that a virtual raster made of whole files needs. What is not here does not count:
/// derived, warped, raw and pansharpened bands, pixel functions, options of other drivers.
constexpr const char* kVrtElements[] = {"VRTDataset",
                                        "SRS",
                                        "GeoTransform",
                                        "Metadata",
                                        "MDI",
                                        "VRTRasterBand",
                                        "NoDataValue",
                                        "HideNoDataValue",
                                        "ColorInterp",
                                        "Description",
                                        "UnitType",
                                        "Offset",
                                        "Scale",
                                        "ColorTable",
                                        "Entry",
                                        "CategoryNames",
                                        "Category",
                                        "Histograms",
                                        "HistItem",
                                        "HistMin",
                                        "HistMax",
                                        "BucketCount",
                                        "IncludeOutOfRange",
                                        "Approximate",
                                        "HistCounts",
                                        "SimpleSource",
                                        "ComplexSource",
                                        "SourceFilename",
                                        "SourceBand",
                                        "SourceProperties",
                                        "SrcRect",
                                        "DstRect",
                                        "NODATA",
                                        "ScaleOffset",
                                        "ScaleRatio",
                                        "SrcMin",
                                        "SrcMax",
                                        "DstMin",
                                        "DstMax",
                                        "Exponent",
                                        "LUT",
                                        "ColorTableComponent",
                                        "UseMaskBand",
                                        "MaskBand",
                                        "OverviewList",
                                        "GCPList",
                                        "GCP"};

template <std::size_t N>
bool Holds(const char* const (&list)[N], std::string_view name) {
  return std::any_of(std::begin(list), std::end(list),
                     [&](const char* entry) { return entry != nullptr && name == entry; });
}

bool InMemory(const std::string& path) { return path.rfind("/vsimem/", 0) == 0; }

/// Why a name is no file to open; empty when it is one.
std::string NameFault(const std::string& path, std::int64_t mostBytes) {
  if (InMemory(path)) return {};  // our own and the tests' files, out of every stranger's reach
  if (path.rfind("/vsi", 0) == 0) {
    return path + ": cannot be read (archives and network addresses are no inputs); give a file";
  }
  return tqfd::FileFault(path, mostBytes);
}

bool IsTiff(const std::string& path) {
  const std::string start = tqfd::ReadFileStart(path, 4);
  return start.size() == 4 && (start.starts_with("II") || start.starts_with("MM"));
}

/// The files beside a raster that GDAL may read with it. GDAL opens overviews and masks by
/// whatever driver takes them, so these must be GeoTIFFs; the rest must be regular and small.
/// @param odd  receives the first that is there and may not be read
CPLStringList FilesBeside(const std::string& path, std::string& odd) {
  const fs::path file(path);
  CPLStringList names;
  names.AddString(file.filename().c_str());
  const auto look = [&](const std::string& beside, bool raster) {
    const std::string there = (file.parent_path() / beside).string();
    struct stat status {};
    if (::lstat(there.c_str(), &status) != 0) return;
    const bool fine = raster ? tqfd::FileFault(there, kAnySize).empty() && IsTiff(there)
                             : tqfd::FileFault(there, limits::kSmallFileBytes).empty();
    if (fine) {
      names.AddString(beside.c_str());
    } else if (odd.empty()) {
      odd = there;
    }
  };
  const std::string whole = file.filename().string(), stem = file.stem().string();
  look(whole + ".ovr", true);
  look(whole + ".msk", true);
  look(whole + ".msk.ovr", true);
  for (const char* end : {".tfw", ".TFW", ".wld", ".prj", ".PRJ"}) look(stem + end, false);
  look(whole + ".aux.xml", false);
  return names;
}

/// Files that these drivers open by name, whether listed beside the raster or not.
bool DependentsAreFiles(const std::string& path, std::string& odd) {
  fs::path beside(path);
  for (const char* end : {".prj", ".PRJ", ".ige", ".rrd", ".aux", ".aux.xml"}) {
    const std::string there = beside.replace_extension(end).string();
    struct stat status {};
    if (there == path || ::lstat(there.c_str(), &status) != 0) continue;
    if (tqfd::FileFault(there, kAnySize).empty()) continue;
    odd = there;
    return false;
  }
  return true;
}

struct XmlDeleter {
  void operator()(CPLXMLNode* node) const { CPLDestroyXMLNode(node); }
};

/// The first word in a virtual raster that stands for more than whole files side by side, and the
/// names of its sources.
std::string OddElement(const CPLXMLNode* node, const fs::path& folder,
                       std::vector<std::string>& sources) {
  for (; node != nullptr; node = node->psNext) {
    if (node->eType != CXT_Element || node->pszValue[0] == '?') continue;
    const std::string name = node->pszValue;
    if (!Holds(kVrtElements, name)) return name;
    if (name == "Metadata" || name == "SRS") continue;  // texts, of which none is opened
    if (CPLGetXMLValue(node, "subClass", nullptr) != nullptr) {
      return std::string("subClass ") + CPLGetXMLValue(node, "subClass", "");
    }
    if (name == "SourceFilename") {
      const std::string source = CPLGetXMLValue(node, nullptr, "");
      const bool relative = std::string_view(CPLGetXMLValue(node, "relativeToVRT", "0")) != "0";
      sources.push_back(relative ? (folder / source).string() : source);
    }
    std::string odd = OddElement(node->psChild, folder, sources);
    if (!odd.empty()) return odd;
  }
  return {};
}

/// Why one source of a virtual raster may not be opened; empty when it may.
std::string SourceFault(const std::string& source) {
  if (std::string fault = NameFault(source, kAnySize); !fault.empty()) return fault;
  std::string odd;
  CPLStringList beside = FilesBeside(source, odd);
  (void)DependentsAreFiles(source, odd);
  if (!odd.empty()) return odd + ": beside a source, is not what its name says; remove it";
  GDALDriverH driver = GDALIdentifyDriverEx(source.c_str(), GDAL_OF_RASTER, nullptr, nullptr);
  const std::string name = driver != nullptr ? GDALGetDescription(driver) : "";
  if (Holds(kRasterDrivers, name)) return {};
  return source + ": " +
         (name == "VRT" ? "is itself a virtual raster; build one from the files"
                        : "is no raster of a known format");
}

/// Why a virtual raster may not be opened; empty when it may.
std::string VirtualFault(const std::string& path) {
  std::string text, error;
  if (InMemory(path)) return {};
  if (!tqfd::ReadWholeFile(path, limits::kVirtualRasterBytes, text, error)) return error;
  const std::unique_ptr<CPLXMLNode, XmlDeleter> root(CPLParseXMLString(text.c_str()));
  if (!root) return path + ": is a damaged virtual raster";
  std::vector<std::string> sources;
  const std::string odd = OddElement(root.get(), fs::path(path).parent_path(), sources);
  if (!odd.empty()) {
    return path + ": a virtual raster with " + odd.substr(0, 60) +
           " is not read; give the raster itself (gdal_translate makes one)";
  }
  std::sort(sources.begin(), sources.end());
  sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
  for (const std::string& source : sources) {
    const std::string fault = SourceFault(source);
    if (!fault.empty()) return path + ": of its sources, " + fault;
  }
  return {};
}

bool IsVirtual(const std::string& start) { return start.find("<VRTDataset") != std::string::npos; }

std::string StartOf(const std::string& path) {
  constexpr std::size_t kHeader = 1024;  // of which GDAL too makes up its mind
  if (!InMemory(path)) return tqfd::ReadFileStart(path, kHeader);
  std::string start(kHeader, '\0');
  VSILFILE* file = VSIFOpenL(path.c_str(), "rb");
  if (file == nullptr) return {};
  start.resize(VSIFReadL(start.data(), 1, kHeader, file));
  VSIFCloseL(file);
  return start;
}

CPLHTTPResult* FetchNothing(const char*, CSLConstList, GDALProgressFunc, void*,
                            CPLHTTPFetchWriteFunc, void*, void*) {
  auto* result = static_cast<CPLHTTPResult*>(CPLCalloc(1, sizeof(CPLHTTPResult)));
  result->nStatus = 1;
  result->pszErrBuf = CPLStrdup("network access is off");
  return result;
}

/// A GeoPackage is a database, and a view in it may be a query without an end.
bool HoldsView(const std::string& path) {
  std::string text, error;
  if (!tqfd::ReadWholeFile(path, limits::kAreaBytes, text, error)) return true;
  const std::string_view mark = "CREATEVIEW";
  std::size_t matched = 0;
  for (const char c : text) {
    if (matched == 6 && (c == ' ' || c == '\t' || c == '\n' || c == '\r')) continue;
    const char upper = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    matched = upper == mark[matched] ? matched + 1 : (upper == mark[0] ? 1 : 0);
    if (matched == mark.size()) return true;
  }
  return false;
}

}  // namespace

DatasetPtr OpenRaster(const std::string& path, bool update, std::string* why) {
  std::string ignored;
  std::string& error = why != nullptr ? *why : ignored;
  if (error = NameFault(path, kAnySize); !error.empty()) return nullptr;
  if (InMemory(path) && !FileExists(path)) {
    error = path + ": no such file";
    return nullptr;
  }
  const GdalScope scope;
  const std::string start = StartOf(path);
  const bool isVirtual = IsVirtual(start);
  if (isVirtual && !(error = VirtualFault(path)).empty()) return nullptr;
  std::string odd;
  CPLStringList beside;
  // Memory has no files beside that we did not put there.
  if (!InMemory(path)) beside = FilesBeside(path, odd);
  const bool tiff = start.starts_with("II") || start.starts_with("MM");
  if (!isVirtual && !tiff && !InMemory(path) && !DependentsAreFiles(path, odd)) {
    error = odd + ": beside " + path + ", is not what its name says; remove it";
    return nullptr;
  }
  const unsigned flags = GDAL_OF_RASTER | (update ? GDAL_OF_UPDATE : GDAL_OF_READONLY);
  DatasetPtr dataset(GDALDataset::FromHandle(
      GDALOpenEx(path.c_str(), flags, isVirtual ? kVirtualDriver : kRasterDrivers, nullptr,
                 InMemory(path) ? nullptr : beside.List())));
  const bool usable = dataset && dataset->GetRasterCount() >= 1;
  if (!usable) {
    error = path + ": not a raster" + (scope.Failed() ? " (" + scope.Message() + ")" : "") +
            "; GeoTIFF, JPEG, PNG, JPEG 2000, HFA and ASCII grids are read";
    return nullptr;
  }
  // Metadata may send to another file for overviews, which GDAL would open by any driver.
  if (dataset->GetMetadataItem("OVERVIEW_FILE", "OVERVIEWS") != nullptr) {
    error = path + ": names another file for its overviews; write it anew with gdal_translate";
    return nullptr;
  }
  return dataset;
}

DatasetPtr OpenVector(const std::string& path, std::string& error) {
  const std::string hint =
      "; give the polygon as GeoJSON, GeoPackage, shapefile, FlatGeobuf or KML";
  if (error = NameFault(path, limits::kAreaBytes); !error.empty()) return nullptr;
  fs::path beside(path);
  for (const char* end : {".shp", ".shx", ".dbf", ".prj", ".cpg", ".qix", ".sbn", ".sbx", ".idm",
                          ".ind", ".SHP", ".SHX", ".DBF", ".PRJ", ".CPG"}) {
    const std::string there = beside.replace_extension(end).string();
    struct stat status {};
    if (there == path || ::lstat(there.c_str(), &status) != 0) continue;
    if (error = tqfd::FileFault(there, limits::kAreaBytes); !error.empty()) return nullptr;
  }
  const GdalScope scope;
  const NoFetching offline;
  if (tqfd::ReadFileStart(path, 6) == "SQLite" && HoldsView(path)) {
    error =
        path + ": holds a view, which may be a query without an end; give the polygon as GeoJSON";
    return nullptr;
  }
  const char* const none[] = {nullptr};
  DatasetPtr file(GDALDataset::FromHandle(GDALOpenEx(
      path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, kVectorDrivers, nullptr,
      fs::path(path).extension() == ".shp" || fs::path(path).extension() == ".SHP" ? nullptr
                                                                                   : none)));
  if (file) return file;
  error =
      path + ": not a vector file" + (scope.Failed() ? " (" + scope.Message() + ")" : "") + hint;
  return nullptr;
}

NoFetching::NoFetching() { CPLHTTPPushFetchCallback(FetchNothing, nullptr); }
NoFetching::~NoFetching() { CPLHTTPPopFetchCallback(); }

}  // namespace tqimage

namespace geo {
namespace {

void* OpenNothing(void*, const char*, const char*) { return nullptr; }
std::size_t ReadNothing(void*, void*, std::size_t, std::size_t) { return 0; }
int StatNothing(void*, const char*, VSIStatBufL*, int) { return -1; }

}  // namespace

void UseLocalFilesOnly() {
  const tqimage::GdalScope scope;  // registers the drivers
  GDALDriverManager* manager = GetGDALDriverManager();
  for (int i = manager->GetDriverCount() - 1; i >= 0; --i) {
    GDALDriver* driver = manager->GetDriver(i);
    const std::string_view name = driver->GetDescription();
    if (tqimage::Holds(tqimage::kRasterDrivers, name) ||
        tqimage::Holds(tqimage::kVirtualDriver, name) ||
        tqimage::Holds(tqimage::kVectorDrivers, name) ||
        tqimage::Holds(tqimage::kWritingDrivers, name)) {
      continue;
    }
    manager->DeregisterDriver(driver);
  }
  CPLHTTPSetFetchCallback(tqimage::FetchNothing, nullptr);
  OSRSetPROJEnableNetwork(FALSE);
  VSIFilesystemPluginCallbacksStruct* nothing = VSIAllocFilesystemPluginCallbacksStruct();
  nothing->open = OpenNothing;
  nothing->read = ReadNothing;
  nothing->stat = StatNothing;
  const CPLStringList prefixes(VSIGetFileSystemsPrefixes());
  for (int i = 0; i < prefixes.Count(); ++i) {
    const std::string_view prefix = prefixes[i];
    // Decoders read pictures within files through the second.
    if (prefix.empty() || prefix == "/vsimem/" || prefix == "/vsisubfile/") continue;
    VSIInstallPluginHandler(prefixes[i], nothing);
  }
  VSIFreeFilesystemPluginCallbacksStruct(nothing);
}

}  // namespace geo
