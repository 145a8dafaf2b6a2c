// SPDX-License-Identifier: Apache-2.0
#include "source_options.h"

#include "commands.h"
#include "host/odm_import.h"
#include "host/survey_reader.h"

namespace tqtortho::app {

void AddSourceOptions(CLI::App& command, SourceOptions& source) {
  command.add_option("--dsm", source.dsm, "surface model (GeoTIFF, metric coordinates)")
      ->type_name("FILE");
  auto* cameras = command.add_option("--cameras", source.cameras, "camera list")->type_name("FILE");
  auto* photos = command.add_option("--photos", source.photos, "photo list")->type_name("FILE");
  auto* odm = command.add_option("--odm", source.odm, "OpenDroneMap project, as it lies on disk")
                  ->type_name("DIR");
  odm->excludes(cameras)->excludes(photos);
  cameras->needs(photos);
  photos->needs(cameras);
}

std::optional<host::Survey> LoadSurvey(const SourceOptions& source) {
  if (!source.odm.empty()) {
    std::string error;
    auto survey = host::ImportOdm(source.odm, error);
    if (!survey) Complain(error);
    return survey;
  }
  if (source.cameras.empty()) {
    Complain("no survey given; use --cameras FILE with --photos FILE (and --dsm), or --odm DIR");
    return std::nullopt;
  }
  std::vector<std::string> problems;
  auto survey = host::ReadSurvey(source.cameras, source.photos, problems);
  for (const auto& line : problems) Complain(line);
  return survey;
}

}  // namespace tqtortho::app
