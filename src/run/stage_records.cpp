// SPDX-License-Identifier: Apache-2.0
#include "run/stage_records.h"

namespace tqtortho::host {
namespace {

using Json = nlohmann::json;

/// Reads what is of the right kind; nothing is changed before everything was found.
template <typename Report, typename Read>
bool Guarded(const Json& record, Report& report, const Read& read) {
  try {
    Report found;
    read(record, found);
    report = found;
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}

}  // namespace

Json ToRecord(const DsmPrepareReport& report) {
  return {{"cells", report.cells}, {"true", report.trueCells}, {"filled", report.filledCells}};
}

bool FromRecord(const Json& record, DsmPrepareReport& report) {
  return Guarded(record, report, [](const Json& from, DsmPrepareReport& to) {
    from.at("cells").get_to(to.cells);
    from.at("true").get_to(to.trueCells);
    from.at("filled").get_to(to.filledCells);
  });
}

Json ToRecord(const WallReport& report) {
  return {{"wallCells", report.wallCells},
          {"changedCells", report.changedCells},
          {"judgedCells", report.judgedCells},
          {"displacement", report.displacement},
          {"photosTell", report.photosTell}};
}

bool FromRecord(const Json& record, WallReport& report) {
  return Guarded(record, report, [](const Json& from, WallReport& to) {
    from.at("wallCells").get_to(to.wallCells);
    from.at("changedCells").get_to(to.changedCells);
    from.at("judgedCells").get_to(to.judgedCells);
    from.at("displacement").get_to(to.displacement);
    from.at("photosTell").get_to(to.photosTell);
  });
}

Json ToRecord(const MosaicReport& report) {
  return {{"cells", report.cells},
          {"seen", report.seen},
          {"seenByOne", report.seenByOne},
          {"filled", report.filled},
          {"neverCovered", report.neverCovered},
          {"supplied", report.supplied},
          {"seamLength", report.seamLength},
          {"stepBefore", report.colourStepBefore},
          {"stepAfter", report.colourStepAfter},
          {"leftOut", report.leftOut}};
}

bool FromRecord(const Json& record, MosaicReport& report) {
  return Guarded(record, report, [](const Json& from, MosaicReport& to) {
    from.at("cells").get_to(to.cells);
    from.at("seen").get_to(to.seen);
    from.at("seenByOne").get_to(to.seenByOne);
    from.at("filled").get_to(to.filled);
    from.at("neverCovered").get_to(to.neverCovered);
    from.at("supplied").get_to(to.supplied);
    from.at("seamLength").get_to(to.seamLength);
    from.at("stepBefore").get_to(to.colourStepBefore);
    from.at("stepAfter").get_to(to.colourStepAfter);
    from.at("leftOut").get_to(to.leftOut);
  });
}

}  // namespace tqtortho::host
