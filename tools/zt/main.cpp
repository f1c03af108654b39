// zt — the ZentrelLib command-line tool: puts the library's capabilities in a user's hands.
//
// Exit status: 0 on success, 1 when the work failed (the subcommand says why on stderr), 2 for a
// command line zt cannot use (one line on stderr: what was wrong and where to get help). A few
// subcommands document more codes of their own (`zt guard` passes on the guarded command's).

#include <clocale>
#include <exception>
#include <iostream>
#include <string>

#include "commands.h"
#include "completion.h"

namespace {

constexpr int kUsageError = 2;
constexpr int kFailure = 1;

// "zt format length": the deepest command the parser had reached.
std::string commandLine(const CLI::App& app) {
  std::string line = "zt";
  const CLI::App* current = &app;
  for (int depth = 0; depth < 16; ++depth) {
    const auto parsed = current->get_subcommands();
    if (parsed.empty()) break;
    current = parsed.front();
    line += " " + current->get_name();
  }
  return line;
}

std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  CLI::App app{"zt shows the ZentrelLib C++ foundation library at work.\n"
               "Run a command with --help to see what it does.",
               "zt"};
  app.set_version_flag("--version", "zt " ZT_VERSION);
  app.require_subcommand(0, 1);
  app.footer("Example: zt demo\n"
             "Exit status: 0 on success, 1 when the work failed, 2 for a command line zt cannot use.");
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
  ztool::addDateCommand(app);
  ztool::addReachabilityCommand(app);
  ztool::addFetchCommand(app);
  ztool::addCompletionCommand(app);
  ztool::addPairCommand(app);
  ztool::addHandoffCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {  // --help, --version
    return app.exit(e);
  } catch (const CLI::RuntimeError& e) {
    return e.get_exit_code();  // the subcommand has said what went wrong
  } catch (const CLI::ParseError& e) {
    const std::string where = commandLine(app);
    std::cerr << where << ": " << oneLine(e.what()) << " (see '" << where << " --help')\n";
    return kUsageError;
  } catch (const std::exception& e) {
    std::cerr << commandLine(app) << ": " << oneLine(e.what()) << "\n";
    return kFailure;
  }
  if (app.get_subcommands().empty()) {
    std::cout << app.help();
  }
  return 0;
}
