// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>

#include "commands.h"
#include "geo/InputPolicy.h"
#include "internal/process_memory.h"
#include "stop_watch.h"
#include "tqtortho/Version.h"

int main(int argc, char** argv) {
  using namespace tqtortho::app;
  WatchForStops();
  geo::UseLocalFilesOnly();
  tqimage::BoundRasterCache();
  CLI::App app{
      "True orthophotos from oriented photos and a surface model.\n\n"
      "  tqtortho sample --out town                       a synthetic town to try it on\n"
      "  tqtortho run --dsm town/dsm.tif --cameras town/cameras.txt --photos town/photos.txt --out "
      "out\n"
      "  tqtortho run --project ~/my-project --out out    a survey of OpenDroneMap or another "
      "tool"};
  app.name("tqtortho");
  app.set_version_flag("--version", std::string("tqtortho ") + TQTORTHO_VERSION);
  app.require_subcommand(1);
  int status = kDone;
  AddRun(app, status);
  AddInfo(app, status);
  AddImport(app, status);
  AddSample(app, status);
  AddScore(app, status);
  AddMosaic(app, status);
  AddBlock(app, status);
  AddBorder(app, status);
  AddThumbnails(app, status);
  AddTrace(app, status);
  AddSelfTest(app, status);
  AddHelpPages(app, status);
  const auto known = app.get_subcommands([](const CLI::App*) { return true; });
  if (argc > 1 && argv[1][0] != '-' &&
      std::none_of(known.begin(), known.end(),
                   [&](const CLI::App* command) { return command->get_name() == argv[1]; })) {
    return Fail(kBadInput, std::string(argv[1]) + ": no such subcommand; see tqtortho --help");
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return Fail(kBadInput, std::string(error.what()) + "; see tqtortho --help");
  } catch (const std::bad_alloc&) {
    return Fail(kFailed, "out of memory; use fewer --threads or a coarser --gsd");
  } catch (const std::exception& error) {
    return Fail(kFailed, error.what());
  }
  return Interrupted() ? Fail(kInterrupted, kInterruptedText) : status;
}
