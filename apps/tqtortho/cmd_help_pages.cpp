// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "help_model.h"
#include "tqtortho/Version.h"

namespace tqtortho::app {

void AddHelpPages(CLI::App& app, int& status) {
  struct Arguments {
    std::string form, date, out;
  };
  auto a = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand(
      "help-pages", "Manual page and shell completions, made from this help (for packagers)");
  command->group("");  // people who use the command need not see it
  command->add_option("form", a->form, "what to write")
      ->required()
      ->check(CLI::IsMember({"man", "bash", "zsh", "fish"}));
  command->add_option("--date", a->date, "date of the manual page, YYYY-MM-DD")->type_name("DATE");
  command->add_option("--out", a->out, "file to write; without it, standard output")
      ->type_name("FILE");
  command->callback([a, &app, &status] {
    const HelpCommand tool = ReadHelp(app);
    const std::string text = a->form == "bash"   ? BashCompletion(tool)
                             : a->form == "zsh"  ? ZshCompletion(tool)
                             : a->form == "fish" ? FishCompletion(tool)
                                                 : ManPage(tool, TQTORTHO_VERSION, a->date);
    std::FILE* file = a->out.empty() ? stdout : std::fopen(a->out.c_str(), "wb");
    bool written = file != nullptr &&
                   std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
                   std::fflush(file) == 0;
    if (file != nullptr && file != stdout) written = std::fclose(file) == 0 && written;
    status = written ? kDone
                     : Fail(kFailed, (a->out.empty() ? "standard output" : a->out) +
                                         std::string(": cannot be written"));
  });
}

}  // namespace tqtortho::app
