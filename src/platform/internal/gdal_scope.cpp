// SPDX-License-Identifier: Apache-2.0
#include "internal/gdal_scope.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>

#include <mutex>
#include <string>
#include <string_view>

#include "core/memory_faults.h"

namespace tqimage {
namespace {

/// GDAL's own number for it, or the words of the libraries below that give none.
bool MeansNoMemory(CPLErrorNum number, const char* text) {
  if (number == CPLE_OutOfMemory) return true;
  const std::string_view all = text == nullptr ? "" : text;
  for (const std::string_view words : {"memory", "Memory", "No space for", "alloc"}) {
    if (all.find(words) != std::string_view::npos) return true;
  }
  return false;
}

void CPL_STDCALL OnGdalMessage(CPLErr level, CPLErrorNum number, const char* text) {
  if (level < CE_Warning) return;
  if (level >= CE_Failure && MeansNoMemory(number, text)) tqtortho::NoteMemoryFault();
  static_cast<GdalScope*>(CPLGetErrorHandlerUserData())->Note(level >= CE_Failure, text);
}

bool MeansLostPixels(std::string_view warning) {
  const auto has = [&](std::string_view part) {
    return warning.find(part) != std::string_view::npos;
  };
  if (has("extraneous bytes")) return false;  // padding between JPEG markers, harmless
  return has("remature end") || has("orrupt JPEG data") || has("unexpected end") ||
         has("ot enough data") || has("ead error");
}

}  // namespace

GdalScope::GdalScope() {
  CPLPushErrorHandlerEx(OnGdalMessage, this);
  static std::once_flag registered;
  std::call_once(registered, GDALAllRegister);
}

GdalScope::~GdalScope() { CPLPopErrorHandler(); }

void GdalScope::Forget() {
  failed_ = false;
  message_.clear();
}

void GdalScope::Note(bool error, const char* text) {
  const std::string_view all = text == nullptr ? "" : text;
  if (failed_ || !(error || MeansLostPixels(all))) return;
  failed_ = true;
  message_ = std::string(all.substr(0, all.find_first_of("\r\n")));
}

ThreadOption::ThreadOption(const char* key, const char* value) : key_(key) {
  const char* earlier = CPLGetThreadLocalConfigOption(key, nullptr);
  hadValue_ = earlier != nullptr;
  if (hadValue_) earlier_ = earlier;
  CPLSetThreadLocalConfigOption(key, value);
}

ThreadOption::~ThreadOption() {
  CPLSetThreadLocalConfigOption(key_, hadValue_ ? earlier_.c_str() : nullptr);
}

}  // namespace tqimage
