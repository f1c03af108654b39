#pragma once
// The command tree as data: every command path, and a bash completion script generated from it, so
// that a new subcommand completes (and is listed in the man page) as soon as it is registered.
// Read-only walks of a fully built CLI::App; call them from the thread that built it.

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace ztool {

// "zt", "zt format", "zt format length", ... in registration order. Hidden commands (those in
// the empty group, such as `zt completion`) are left out together with everything below them.
std::vector<std::string> commandPaths(const CLI::App& app);

// A bash script defining the completion of `zt`: subcommands, then the options of the command
// being typed; anything else completes as a file name.
std::string bashCompletionScript(const CLI::App& app);

// The hidden `zt completion bash|commands` subcommand the build uses for the installed completion
// file and the man page.
void addCompletionCommand(CLI::App& app);

}  // namespace ztool
