// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "core/limits.h"
#include "geo/RasterTools.h"
#include "option_checks.h"
#include "stage/surface_limit.h"
#include "tqorkit/TqFSManager.h"
#include "tqtortho/tqRayTracer.h"

namespace tqtortho::app {
namespace {

struct TraceOptions {
  std::string dsm, out, method = "pyramid", ortho, mask, tmp;
  std::vector<double> position, rect, gsd;
};

tqorkit::tqExtOri MakePhoto(const TraceOptions& options) {
  tqorkit::tqExtOri::EXTORI record;
  for (int i = 0; i < 3; ++i) record.position[i] = options.position[static_cast<std::size_t>(i)];
  record.geoRect = {options.rect[0], options.rect[1], options.rect[2], options.rect[3]};
  tqorkit::tqExtOri photo;
  photo.Set(record);
  photo.SetGSD(options.gsd[0], options.gsd.size() > 1 ? options.gsd[1] : -options.gsd[0]);
  return photo;
}

int RunTrace(const TraceOptions& options) {
  std::string error;
  for (const std::string* input : {&options.dsm, &options.ortho, &options.mask}) {
    geo::RasterSummary raster;
    if (input->empty() && input != &options.dsm) continue;
    if (!geo::DescribeRaster(*input, raster, error)) return Fail(kBadInput, error);
    error = host::SurfaceTooLarge(*input, raster.width, raster.height);
    if (!error.empty()) return Fail(kBadInput, error);
    const std::int64_t cells = static_cast<std::int64_t>(raster.width) * raster.height;
    if (cells <= limits::kTracedCells) continue;
    return Fail(kBadInput, *input + ": has " + std::to_string(raster.width) + " x " +
                               std::to_string(raster.height) +
                               " cells; rays are traced through at most " +
                               std::to_string(limits::kTracedCells) + "; cut the raster");
  }
  for (const std::string* input : {&options.dsm, &options.ortho, &options.mask}) {
    if (!IsSameFile(*input, options.out)) continue;
    return Fail(kBadInput, options.out + ": is one of the inputs; give another --out");
  }
  const auto isFinite = [](double value) { return std::isfinite(value); };
  for (const auto& [option, values] :
       {std::pair("--position", &options.position), std::pair("--rect", &options.rect)}) {
    if (std::all_of(values->begin(), values->end(), isFinite)) continue;
    return Fail(kBadInput, std::string(option) + ": takes finite numbers only");
  }
  if (options.rect[0] > options.rect[2] || options.rect[1] > options.rect[3]) {
    return Fail(kBadInput, "--rect is minX,minY,maxX,maxY; a minimum lies above its maximum");
  }
  const double gsdY = options.gsd.size() > 1 ? options.gsd[1] : -options.gsd[0];
  if (!(options.gsd[0] > 0) || !(gsdY < 0) || !std::isfinite(options.gsd[0]) ||
      !std::isfinite(gsdY)) {
    return Fail(kBadInput, "--gsd is gx[,gy] with gx above 0 and gy below 0 (north-up)");
  }
  if (options.method == "masked" && options.mask.empty()) {
    return Fail(kBadInput, "--method masked needs --mask FILE");
  }
  if (!options.tmp.empty()) tqorkit::TqFSManager::SetOutputTmpFilePath(options.tmp);
  tqorkit::tqExtOri photo = MakePhoto(options);
  tqRayTracer tracer;
  bool ok = false;
  if (options.method == "pyramid") {
    ok = tracer.DoRayTracingOnPyr(photo, options.dsm, options.out, options.ortho);
  } else if (options.method == "full") {
    ok = tracer.DoRayTracingOnThumbnail(photo, options.dsm, options.out, options.ortho);
  } else {
    ok = tracer.DoRayTracing(photo, options.dsm, options.out, options.mask);
  }
  if (!ok) {
    return Fail(kFailed, options.out +
                             ": not made; the rectangle may miss the DSM, the mask may have "
                             "another size than its cells, or the place is not writable");
  }
  return kDone;
}

}  // namespace

void AddTrace(CLI::App& app, int& status) {
  auto o = std::make_shared<TraceOptions>();
  CLI::App* command =
      app.add_subcommand("trace", "Mask of the cells hidden from a position (255 hidden)");
  command->add_option("--dsm", o->dsm, "surface model")
      ->required()
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--position", o->position, "projection centre")
      ->required()
      ->delimiter(',')
      ->expected(3)
      ->type_name("X,Y,Z");
  command->add_option("--rect", o->rect, "first to last cell centre of the mask, ground units")
      ->required()
      ->delimiter(',')
      ->expected(4)
      ->type_name("minX,minY,maxX,maxY");
  command->add_option("--gsd", o->gsd, "ground size of a mask cell")
      ->required()
      ->delimiter(',')
      ->expected(1, 2)
      ->type_name("gx[,gy]");
  command->add_option("--out", o->out, "mask to write (GeoTIFF)")
      ->required()
      ->check(Named())
      ->type_name("FILE");
  command
      ->add_option("--method", o->method,
                   "pyramid: coarse to fine, as in a job; full: the DSM's own resolution; masked: "
                   "only where --mask is not 0")
      ->check(CLI::IsMember({"pyramid", "full", "masked"}))
      ->capture_default_str();
  command->add_option("--ortho", o->ortho, "ortho image; its 0 cells are not traced")
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--mask", o->mask, "footprint mask of the rectangle's DSM cells")
      ->check(Named())
      ->type_name("FILE");
  command->add_option("--tmp", o->tmp, "directory whose ot/bordermsk.tif is used")
      ->check(Named())
      ->type_name("DIR");
  command->footer(
      "Example: tqtortho trace --dsm dsm.tif --position 500050,5400050,200 --rect "
      "500000,5400000,500100,5400100 --gsd 0.1 --out hidden.tif --method full");
  command->callback([o, &status] { status = RunTrace(*o); });
}

void AddSelfTest(CLI::App& app, int& status) {
  struct Paths {
    std::string dsm, mask;
  };
  auto o = std::make_shared<Paths>();
  CLI::App* command = app.add_subcommand(
      "self-test", "Trace a generated DSM of 4000 x 4000 cells with blocks of height 100");
  command->add_option("DSM_OUT", o->dsm, "surface model to write")->required();
  command->add_option("MASK_OUT", o->mask, "mask to write")->required();
  command->callback([o, &status] {
    tqRayTracer tracer;
    status = tracer.DoRayTracing(std::string(), o->dsm, o->mask)
                 ? kDone
                 : Fail(kFailed, o->dsm + " or " + o->mask + ": cannot be written");
  });
}

}  // namespace tqtortho::app
