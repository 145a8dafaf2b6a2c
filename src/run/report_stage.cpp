// SPDX-License-Identifier: Apache-2.0
#include "run/report_stage.h"

#include <nlohmann/json.hpp>

#include "core/fingerprint.h"
#include "report/report_page.h"
#include "report/short_paths.h"
#include "survey/number_text.h"
#include "tqtortho/Version.h"

namespace tqtortho::host {
namespace {

std::vector<std::pair<std::string, std::string>> SettingsOf(const RunOptions& options,
                                                            const RunReport& report) {
  const char* finish = options.finish == Finish::kFill      ? "fill"
                       : options.finish == Finish::kTexture ? "texture"
                       : options.finish == Finish::kMark    ? "mark"
                                                            : "none";
  return {{"surface model", options.dsmPath},
          {"cell size", Exact(report.gsd)},
          {"resampling", options.resampling == 0 ? "nearest" : "bilinear"},
          {"finish", finish},
          {"compression", options.format.compression},
          {"area", options.areaPath.empty() ? "everything" : options.areaPath},
          {"products", options.outDir}};
}

/// The page is passed on: it names files, not where they lie.
void ShortenPaths(ReportInput& page, RunReport& shown) {
  page.title = WithShortPaths(page.title);
  for (auto& [name, value] : page.settings) value = WithShortPaths(value);
  for (std::string& note : page.notes) note = WithShortPaths(note);
  for (PhotoOutcome& photo : shown.photos) photo.reason = WithShortPaths(photo.reason);
}

}  // namespace

void WriteReport(JobRun& run) {
  const std::string path = run.paths.out + "/report.html";
  RunReport& report = run.report;
  report.reportPath = run.options.outDir + "/report.html";
  const std::string fingerprint =
      Fingerprint().Add(run.productsFingerprint).Add(int{run.options.fullPaths}).Text();
  if (run.state.Stage("report", fingerprint)) return;
  // The page tells of the job up to here, not of itself.
  run.progress.End();
  RunReport shown = report;
  for (const auto& stage : shown.stages) shown.seconds += stage.seconds;
  shown.peakMemoryBytes = PeakMemory();
  run.progress.Begin("report");
  std::vector<std::string> notes = run.survey.notes;
  notes.insert(notes.end(), run.observer.Lines().begin(), run.observer.Lines().end());
  const MosaicInput input = run.Orthos();
  ReportInput page{shown,
                   input,
                   run.paths.out,
                   run.paths.work,
                   run.survey.source,
                   SettingsOf(run.options, report),
                   {{"tqtortho", TQTORTHO_VERSION}},
                   notes};
  for (const auto& stage : shown.stages) {
    page.stagePeakMemoryBytes.push_back(stage.peakMemoryBytes);
  }
  if (!run.options.fullPaths) ShortenPaths(page, shown);
  std::string error;
  const bool written = WriteReportPage(page, path, error);
  run.progress.End();
  if (written) {
    run.state.FinishStage("report", fingerprint, {path}, nlohmann::json::object());
    return;
  }
  report.reportPath.clear();
  run.observer.Warn(error);
}

}  // namespace tqtortho::host
