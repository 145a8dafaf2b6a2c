// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "commands.h"
#include "core/limits.h"
#include "geo/RasterTools.h"
#include "importers/project_import.h"
#include "option_checks.h"
#include "prepare/photo_staging.h"
#include "source_options.h"
#include "survey/map_scale.h"
#include "survey/number_text.h"
#include "tqfd/FileInput.h"

namespace tqtortho::app {
namespace {

namespace fs = std::filesystem;

/// Lists of other programs share these names (a COLMAP model has a cameras.txt), and the source's
/// own lists are not to be written over either.
bool MayReplace(const fs::path& file, const std::string& source) {
  std::error_code ignored;
  if (!fs::exists(file, ignored)) return true;
  if (!source.empty() && fs::equivalent(file, source, ignored)) return false;
  std::ifstream in = tqfd::OpenInputFile(file.string(), limits::kListBytes);
  std::string line;
  std::getline(in, line);
  return host::ReadInt(line).has_value();
}

void PrintSurvey(const host::Survey& survey) {
  std::printf("survey   %s\n", survey.source.c_str());
  for (const auto& note : survey.notes) std::printf("         %s\n", note.c_str());
  for (const auto& camera : survey.cameras) {
    std::printf("camera   %s\n", host::DescribeCamera(camera).c_str());
  }
  std::size_t photos = 0;
  for (const auto& block : survey.blocks) photos += block.photos.size();
  std::printf("photos   %zu in %zu block%s\n", photos, survey.blocks.size(),
              survey.blocks.size() == 1 ? "" : "s");
}

/// Refuses poses on a map that is not true to scale before anybody works with them. Those of a
/// system of their own (--crs) are moved by the job, which looks then.
bool MapFits(const host::Survey& survey) {
  geo::RasterSummary dsm;
  std::string ignored;
  if (survey.dsmPath.empty() || !survey.crs.empty() || survey.blocks.empty() ||
      survey.blocks[0].photos.empty() || !geo::DescribeRaster(survey.dsmPath, dsm, ignored)) {
    return true;
  }
  const host::SurveyPhoto& first = survey.blocks[0].photos[0];
  const auto finding =
      host::CheckMapScale(survey.dsmPath, dsm.coefficients.GetProjection(), first.x, first.y);
  if (!finding) return true;
  const bool refused = finding->level == host::Finding::Level::kError;
  refused ? Complain(finding->text) : Warn(finding->text);
  return !refused;
}

int Import(const SourceOptions& source, const std::string& out) {
  const fs::path folder(out);
  const fs::path cameras = folder / "cameras.txt", photos = folder / "photos.txt";
  auto survey = LoadSurvey(source);
  if (!survey) return kBadInput;
  for (const std::string& project : source.projects) {
    if (project.empty() || !IsSameFile(project, out)) continue;
    return Fail(kBadInput, out + ": is the project itself; give another --out");
  }
  for (const auto& [file, own] :
       {std::pair(cameras, source.cameras), std::pair(photos, source.photos)}) {
    if (MayReplace(file, own)) continue;
    return Fail(kBadInput,
                file.string() + ": is there and no list of an import; give another --out");
  }
  if (!MapFits(*survey)) return kBadInput;
  PrintSurvey(*survey);
  std::error_code failed;
  fs::create_directories(folder, failed);
  for (auto& block : survey->blocks) {
    block.path = fs::absolute(block.path).lexically_normal().string();
  }
  std::string error;
  if (!host::StagePhotos(*survey, out, error)) return Fail(kBadInput, error);
  if (!host::WriteCameraFile(cameras.string(), *survey) ||
      !host::WritePhotoList(photos.string(), *survey)) {
    return Fail(kBadInput, out + ": cannot be written to; give another --out or free some space");
  }
  std::printf(
      "written  %s, %s; run a job on them:\n  tqtortho run --dsm %s --cameras %s --photos "
      "%s%s%s --out OUT\n",
      cameras.c_str(), photos.c_str(), survey->dsmPath.empty() ? "DSM" : survey->dsmPath.c_str(),
      cameras.c_str(), photos.c_str(), survey->crs.empty() ? "" : " --crs ", survey->crs.c_str());
  return kDone;
}

}  // namespace

void AddImport(CLI::App& app, int& status) {
  struct Arguments {
    SourceOptions source;
    std::string out;
  };
  auto a = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(
      "import", "A survey of another tool as camera and photo list, to look at and to run");
  AddSourceOptions(*command, a->source);
  command->add_option("--out", a->out, "directory of cameras.txt and photos.txt")
      ->required()
      ->check(Named())
      ->type_name("DIR");
  command->footer(
      "Examples:\n"
      "  tqtortho import --project ~/odm/village --out lists\n"
      "  tqtortho import --colmap model/sparse/0 --crs EPSG:32651 --offset 292632,2731169 --out "
      "lists");
  command->callback([a, &status] { status = Import(a->source, a->out); });
}

}  // namespace tqtortho::app
