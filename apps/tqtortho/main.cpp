// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>

#include "commands.h"
#include "tqtortho/Version.h"

namespace tqtortho::app {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void OnSignal(int) {
  interrupted = 1;
  // A second Ctrl-C ends the process at once; files are complete or absent at any moment.
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
}

}  // namespace

void WatchInterrupts() {
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
}

bool Interrupted() { return interrupted != 0; }

void Complain(const std::string& text) { std::fprintf(stderr, "tqtortho: %s\n", text.c_str()); }

int Fail(int status, const std::string& text) {
  Complain(text);
  return status;
}

}  // namespace tqtortho::app

int main(int argc, char** argv) {
  using namespace tqtortho::app;
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
    Complain(std::string(error.what()) + "; see tqtortho --help");
    return kBadInput;
  } catch (const std::bad_alloc&) {
    return Fail(kFailed, "out of memory; use fewer --threads or a coarser --gsd");
  } catch (const std::exception& error) {
    return Fail(kFailed, error.what());
  }
  return status;
}
