// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <string>

#include "check/input_check.h"
#include "check/job_estimate.h"
#include "commands.h"
#include "importers/project_import.h"
#include "source_options.h"

namespace tqtortho::app {
namespace {

void Print(const std::vector<std::string>& lines) {
  for (const auto& line : lines) std::printf("%s\n", line.c_str());
}

int PrintFindings(const std::vector<host::Finding>& findings) {
  if (Interrupted()) return Fail(kInterrupted, kInterruptedText);
  std::vector<std::string> errors;
  for (const auto& finding : findings) {
    if (finding.level == host::Finding::Level::kError) {
      errors.push_back(finding.text);
    } else {
      Warn(finding.text);
    }
  }
  if (errors.empty()) return kDone;
  ComplainOfFirst(errors, true);
  return kBadInput;
}

int Info(const SourceOptions& source) {
  if (!source.dsm.empty() && !source.Any()) {
    host::DsmFacts facts;
    std::vector<host::Finding> findings;
    host::CheckDsm(source.dsm, facts, findings);
    if (facts.cols > 0) Print(host::DescribeDsm(source.dsm, facts));
    return PrintFindings(findings);
  }
  auto survey = LoadSurvey(source, true);
  if (!survey) return kBadInput;
  const std::string dsm = source.dsm.empty() ? survey->dsmPath : source.dsm;
  std::printf("survey   %s\n", survey->source.c_str());
  for (const auto& note : survey->notes) std::printf("         %s\n", note.c_str());
  for (const auto& camera : survey->cameras) {
    std::printf("camera   %s\n", host::DescribeCamera(camera).c_str());
  }
  if (dsm.empty()) {
    std::size_t count = 0;
    for (const auto& block : survey->blocks) count += block.photos.size();
    std::printf("photos   %zu in %zu blocks (no DSM given: nothing else can be checked)\n", count,
                survey->blocks.size());
    return kDone;
  }
  host::CheckResult check = host::CheckSurvey(*survey, dsm);
  if (check.facts.dsm.cols > 0) Print(host::DescribeDsm(dsm, check.facts.dsm));
  if (check.facts.photos > 0) {
    const double gsd = host::RoundUpTwoDigits(check.facts.photoResolution);
    const auto estimate = host::EstimateJob(*survey, check.facts.dsm, gsd, 0);
    const std::int64_t room = host::FreeSpace(".");
    Print(host::DescribeJob(*survey, check.facts, estimate, room));
    std::printf("         a job would use --gsd %.3g\n", gsd);
    // Whether a job would run is told, and is no fault of the survey.
    host::CheckCost(estimate, check.facts.photoResolution, "this directory",
                    {room, host::MachineMemory()}, true, check.findings);
  }
  return PrintFindings(check.findings);
}

}  // namespace

void AddInfo(CLI::App& app, int& status) {
  auto source = std::make_shared<SourceOptions>();
  CLI::App* command =
      app.add_subcommand("info", "What a DSM or a survey holds, and what is wrong with it");
  AddSourceOptions(*command, *source);
  command->footer(
      "Examples:\n  tqtortho info --dsm dsm.tif\n  tqtortho info --project ~/odm/village");
  command->callback([source, &status] { status = Info(*source); });
}

}  // namespace tqtortho::app
