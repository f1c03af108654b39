// zt — the ZentrelLib command-line tool: puts the library's capabilities in a user's hands.

#include <clocale>
#include <iostream>

#include "commands.h"

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  CLI::App app{"zt — shows the ZentrelLib C++ foundation library at work.\n"
               "Run a command with --help to see what it does."};
  app.set_version_flag("--version", "zt 0.1.0 (ZentrelLib 0.1.0)");
  app.require_subcommand(0, 1);
  ztool::addDemoCommand(app);
  ztool::addThreadsCommand(app);
  ztool::addOperationsCommand(app);
  ztool::addCollectionsCommand(app);
  ztool::addFilesCommand(app);
  ztool::addConflictsCommand(app);
  ztool::addCopyCommand(app);
  ztool::addGeometryCommand(app);
  ztool::addTextCommand(app);
  ztool::addWatchCommand(app);
  ztool::addSysinfoCommand(app);
  ztool::addFormatCommand(app);
  ztool::addGuardCommand(app);
  ztool::addHandoffCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }
  if (app.get_subcommands().empty()) {
    std::cout << app.help();
  }
  return 0;
}
