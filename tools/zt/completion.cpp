#include "completion.h"

#include <iostream>
#include <sstream>

namespace ztool {
namespace {

bool isHidden(const CLI::App* command) { return command->get_group().empty(); }

std::vector<const CLI::App*> visibleSubcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* sub) { return !sub->get_name().empty() && !isHidden(sub); });
}

void collect(const CLI::App& app, const std::string& path,
             std::vector<std::pair<std::string, const CLI::App*>>& into) {
  into.emplace_back(path, &app);
  for (const CLI::App* sub : visibleSubcommands(app)) collect(*sub, path + " " + sub->get_name(), into);
}

std::vector<std::pair<std::string, const CLI::App*>> commandTree(const CLI::App& app) {
  std::vector<std::pair<std::string, const CLI::App*>> tree;
  collect(app, app.get_name().empty() ? "zt" : app.get_name(), tree);
  return tree;
}

std::string wordsFor(const CLI::App& command) {
  std::string words;
  const auto add = [&words](const std::string& word) { words += (words.empty() ? "" : " ") + word; };
  for (const CLI::App* sub : visibleSubcommands(command)) add(sub->get_name());
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_group().empty()) continue;
    for (const auto& name : option->get_lnames()) add("--" + name);
    for (const auto& name : option->get_snames()) add("-" + name);
  }
  return words;
}

}  // namespace

std::vector<std::string> commandPaths(const CLI::App& app) {
  std::vector<std::string> paths;
  for (const auto& [path, command] : commandTree(app)) paths.push_back(path);
  return paths;
}

std::string bashCompletionScript(const CLI::App& app) {
  const auto tree = commandTree(app);
  const std::string& root = tree.front().first;
  std::ostringstream s;
  s << "# bash completion for " << root << ", generated from its command tree by `" << root
    << " completion bash`.\n"
    << "_" << root << "() {\n"
    << "  local cur=\"${COMP_WORDS[COMP_CWORD]}\" path=\"" << root << "\" word i\n"
    << "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
    << "    word=\"${COMP_WORDS[i]}\"\n"
    << "    [[ \"$word\" == -- ]] && return 0\n"
    << "    case \"$path $word\" in\n";
  bool any = false;
  for (std::size_t i = 1; i < tree.size(); ++i) {
    s << (any ? "|" : "      ") << "\"" << tree[i].first << "\"";
    any = true;
  }
  if (any) s << ") path=\"$path $word\" ;;\n";
  s << "    esac\n"
    << "  done\n"
    << "  local words=\n"
    << "  case \"$path\" in\n";
  for (const auto& [path, command] : tree) s << "    \"" << path << "\") words=\"" << wordsFor(*command) << "\" ;;\n";
  s << "  esac\n"
    << "  local candidates=() w\n"
    << "  for w in $words; do\n"
    << "    if [[ \"$cur\" == -* ]]; then [[ \"$w\" == -* ]] || continue; else [[ \"$w\" == -* ]] && continue; fi\n"
    << "    [[ \"$w\" == \"$cur\"* ]] && candidates+=(\"$w\")\n"
    << "  done\n"
    << "  COMPREPLY=(\"${candidates[@]}\")\n"
    << "}\n"
    << "complete -o default -F _" << root << " " << root << "\n";
  return s.str();
}

void addCompletionCommand(CLI::App& app) {
  auto* command = app.add_subcommand("completion", "Print the bash completion script, or every command path");
  command->group("");
  static std::string what;
  command->add_option("what", what, "bash or commands")->required()->check(CLI::IsMember({"bash", "commands"}));
  command->callback([&app] {
    if (what == "bash") {
      std::cout << bashCompletionScript(app);
    } else {
      for (const auto& path : commandPaths(app)) std::cout << path << "\n";
    }
  });
}

}  // namespace ztool
