// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "commands.h"
#include "host/input_check.h"
#include "source_options.h"

namespace tqtortho::app {
namespace {

void PrintDsm(const std::string& path, const host::DsmFacts& dsm) {
  std::printf("DSM      %s\n", path.c_str());
  std::printf("         %d x %d cells of %.6g, %s %s\n", dsm.cols, dsm.rows, dsm.cell,
              dsm.crsName.empty() ? "no coordinate system" : dsm.crsName.c_str(),
              dsm.crsCode.c_str());
  std::printf("         heights %.2f to %.2f, mean %.2f; no data %.1f %%\n", dsm.minHeight,
              dsm.maxHeight, dsm.meanHeight, 100 * dsm.noDataShare);
}

int PrintFindings(const std::vector<host::Finding>& findings) {
  int status = kDone;
  for (const auto& finding : findings) {
    const bool error = finding.level == host::Finding::Level::kError;
    std::fprintf(stderr, "%s: %s\n", error ? "error" : "warning", finding.text.c_str());
    if (error) status = kBadInput;
  }
  return status;
}

int Info(const SourceOptions& source) {
  const bool dsmOnly =
      !source.dsm.empty() && source.odm.empty() && source.cameras.empty() && source.photos.empty();
  if (dsmOnly) {
    host::DsmFacts facts;
    std::vector<host::Finding> findings;
    host::CheckDsm(source.dsm, facts, findings);
    if (facts.cols > 0) PrintDsm(source.dsm, facts);
    return PrintFindings(findings);
  }
  auto survey = LoadSurvey(source);
  if (!survey) return kBadInput;
  const std::string dsm = source.dsm.empty() ? survey->dsmPath : source.dsm;
  std::printf("survey   %s\n", survey->source.c_str());
  for (const auto& note : survey->notes) std::printf("         %s\n", note.c_str());
  for (const auto& camera : survey->cameras) {
    std::printf("camera   %d %s: %.0f x %.0f pixels, focal length %.2f pixels, lens model %d\n",
                camera.id, camera.name.c_str(), camera.width, camera.height,
                camera.focalLength / camera.sensorWidth * camera.width, camera.model);
  }
  if (dsm.empty()) {
    std::size_t count = 0;
    for (const auto& block : survey->blocks) count += block.photos.size();
    std::printf("photos   %zu in %zu blocks (no DSM given: nothing else can be checked)\n", count,
                survey->blocks.size());
    return kDone;
  }
  const host::CheckResult check = host::CheckSurvey(*survey, dsm);
  if (check.facts.dsm.cols > 0) PrintDsm(dsm, check.facts.dsm);
  if (check.facts.photos > 0) {
    std::printf("photos   %d usable in %zu blocks, %.1f m above ground, ground resolution %.3g m\n",
                check.facts.photos, survey->blocks.size(), check.facts.meanHeightAboveGround,
                check.facts.photoResolution);
    std::printf("         a job would use --gsd %.3g\n",
                host::RoundUpTwoDigits(check.facts.photoResolution));
  }
  return PrintFindings(check.findings);
}

}  // namespace

void AddInfo(CLI::App& app, int& status) {
  auto source = std::make_shared<SourceOptions>();
  CLI::App* command =
      app.add_subcommand("info", "What a DSM or a survey holds, and what is wrong with it");
  AddSourceOptions(*command, *source);
  command->footer("Examples:\n  tqtortho info --dsm dsm.tif\n  tqtortho info --odm ~/odm/village");
  command->callback([source, &status] { status = Info(*source); });
}

}  // namespace tqtortho::app
