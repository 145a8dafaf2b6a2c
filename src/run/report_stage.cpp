// SPDX-License-Identifier: Apache-2.0
#include "run/report_stage.h"

#include "core/fingerprint.h"
#include "report/report_page.h"
#include "report/short_paths.h"
#include "survey/number_text.h"
#include "tqtortho/Version.h"

namespace tqtortho::host {
namespace {

std::vector<std::pair<std::string, std::string>> SettingsOf(const RunOptions& options,
                                                            const RunReport& report) {
  const char* finish = options.finish == Finish::kFill   ? "fill"
                       : options.finish == Finish::kMark ? "mark"
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

void WriteReport(const MosaicInput& input, const JobPaths& paths, const RunOptions& options,
                 const std::string& title, const std::string& fingerprint,
                 const std::vector<std::string>& notes, JobState& state, StageRelay& relay,
                 RunReport& report, RunObserver& observer) {
  const std::string path = paths.out + "/report.html";
  report.reportPath = options.outDir + "/report.html";
  const std::string own = Fingerprint().Add(fingerprint).Add(int{options.fullPaths}).Text();
  if (state.Stage("report", own)) return;
  // The page tells of the job up to here, not of itself.
  relay.End();
  RunReport shown = report;
  for (const auto& stage : shown.stages) shown.seconds += stage.seconds;
  shown.peakMemoryBytes = PeakMemory();
  relay.Begin("report");
  ReportInput page{shown,
                   input,
                   paths.out,
                   paths.work,
                   title,
                   SettingsOf(options, report),
                   {{"tqtortho", TQTORTHO_VERSION}},
                   notes};
  for (const auto& stage : shown.stages) {
    page.stagePeakMemoryBytes.push_back(stage.peakMemoryBytes);
  }
  if (!options.fullPaths) ShortenPaths(page, shown);
  std::string error;
  const bool written = WriteReportPage(page, path, error);
  relay.End();
  if (written) {
    state.FinishStage("report", own, {path}, nlohmann::json::object());
    return;
  }
  report.reportPath.clear();
  observer.Warn(error);
}

}  // namespace tqtortho::host
