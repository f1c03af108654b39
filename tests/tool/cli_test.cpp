// zt as a user and a script meet it: exit codes, error lines, --help texts and the bash completion,
// run against the built tool in child processes.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Result {
  int status = -1;
  std::string out, err;
};

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs argv[0] with the arguments, stdin from /dev/null; kills it if it runs past the deadline.
Result run(std::vector<std::string> argv, std::chrono::seconds deadline = std::chrono::seconds(60)) {
  static int counter = 0;
  const fs::path dir = fs::temp_directory_path() / ("zt_cli_test." + std::to_string(::getpid()));
  fs::create_directories(dir);
  const fs::path out = dir / (std::to_string(++counter) + ".out"), err = dir / (std::to_string(counter) + ".err");
  const pid_t child = ::fork();
  if (child == 0) {
    const int in = ::open("/dev/null", O_RDONLY);
    const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || o < 0 || e < 0) ::_exit(125);
    ::dup2(in, 0);
    ::dup2(o, 1);
    ::dup2(e, 2);
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  Result result;
  int status = 0;
  const auto until = std::chrono::steady_clock::now() + deadline;
  while (::waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > until) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      ADD_FAILURE() << argv[0] << " " << (argv.size() > 1 ? argv[1] : "") << " ran past its deadline";
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = slurp(out);
  result.err = slurp(err);
  fs::remove(out);
  fs::remove(err);
  return result;
}

Result zt(std::vector<std::string> args) {
  args.insert(args.begin(), ZT_TOOL_PATH);
  return run(std::move(args));
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

TEST(ZtCommandLine, VersionIsTheProjectVersion) {
  const Result r = zt({"--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "zt " ZT_VERSION "\n");
}

TEST(ZtCommandLine, UsageErrorsExitTwoWithOneLineThatPointsToHelp) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"no-such-command"}, "zt --help"},
      {{"guard"}, "zt guard --help"},
      {{"threads", "--calls", "many"}, "zt threads --help"},
      {{"format", "flag"}, "zt format flag --help"},
      {{"sysinfo", "--no-such-option"}, "zt sysinfo --help"},
  };
  for (const auto& [args, help] : cases) {
    const Result r = zt(args);
    EXPECT_EQ(r.status, 2) << args[0];
    EXPECT_EQ(r.out, "") << args[0];
    ASSERT_EQ(lines(r.err).size(), 1u) << r.err;
    EXPECT_NE(r.err.find("(see '" + help + "')"), std::string::npos) << r.err;
  }
}

TEST(ZtCommandLine, FailuresExitOneAndSayWhy) {
  const Result r = zt({"watch", "/nonexistent-zt-folder/inner/file.txt"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot watch /nonexistent-zt-folder/inner/file.txt"), std::string::npos) << r.err;
}

TEST(ZtCommandLine, ConflictsListForScriptsAsJson) {
  const fs::path dir = fs::temp_directory_path() / ("zt_conflicts_test." + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::ofstream(dir / "notes.txt") << "mine\n";
  std::ofstream(dir / "notes.sync-conflict-20260101-120000-ABCDEFG.txt") << "theirs\n";
  const Result listed = zt({"conflicts", (dir / "notes.txt").string(), "--json"});
  EXPECT_EQ(listed.status, 0) << listed.err;
  const auto json = nlohmann::json::parse(listed.out, nullptr, false);
  ASSERT_FALSE(json.is_discarded()) << listed.out;
  EXPECT_EQ(json["document"], (dir / "notes.txt").string());
  ASSERT_EQ(json["versions"].size(), 2u) << listed.out;
  EXPECT_EQ(json["versions"][0]["conflict"], false);
  EXPECT_EQ(json["versions"][1]["number"], 1);
  EXPECT_EQ(json["versions"][1]["syncClient"], "Syncthing");
  EXPECT_TRUE(json["versions"][1]["modified"].is_string());

  const Result mixed = zt({"conflicts", (dir / "notes.txt").string(), "--json", "--keep", "0"});
  EXPECT_EQ(mixed.status, 2);
  EXPECT_TRUE(fs::exists(dir / "notes.sync-conflict-20260101-120000-ABCDEFG.txt"));
  fs::remove_all(dir);
}

TEST(ZtCommandLine, EveryCommandHasHelpWithAnExample) {
  const Result listed = zt({"completion", "commands"});
  ASSERT_EQ(listed.status, 0) << listed.err;
  const auto paths = lines(listed.out);
  ASSERT_GT(paths.size(), 10u);
  EXPECT_EQ(paths.front(), "zt");
  for (const auto& path : paths) {
    std::vector<std::string> args;
    std::istringstream words(path);
    for (std::string word; words >> word;) args.push_back(word);
    args.erase(args.begin());
    args.push_back("--help");
    const Result help = zt(args);
    EXPECT_EQ(help.status, 0) << path;
    EXPECT_NE(help.out.find("Example: " + path.substr(0, path.find(' ', 3))), std::string::npos)
        << "'" << path << " --help' shows no example:\n" << help.out;
  }
  EXPECT_EQ(listed.out.find("completion"), std::string::npos) << "the completion command is hidden";
}

// What bash offers after the words typed so far (the last word is the one being completed).
std::string complete(const std::string& script, const std::string& typed) {
  const std::string program = "source '" + script + "'; COMP_WORDS=(" + typed +
                              "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zt; echo \"${COMPREPLY[*]}\"";
  const Result r = run({"bash", "-c", program});
  EXPECT_EQ(r.status, 0) << r.err;
  return r.out;
}

TEST(ZtCompletion, OffersCommandsThenTheTypedCommandsOptions) {
  const Result generated = zt({"completion", "bash"});
  ASSERT_EQ(generated.status, 0) << generated.err;
  const fs::path script = fs::temp_directory_path() / ("zt_completion_test." + std::to_string(::getpid()));
  std::ofstream(script) << generated.out;
  EXPECT_EQ(complete(script, "zt for"), "format\n");
  EXPECT_EQ(complete(script, "zt format l"), "length\n");
  EXPECT_EQ(complete(script, "zt format --locale de_DE length --l"), "--long\n");
  EXPECT_EQ(complete(script, "zt sysinfo --j"), "--json\n");
  EXPECT_EQ(complete(script, "zt --v"), "--version\n");
  EXPECT_EQ(complete(script, "zt watch ''"), "\n");  // file names: left to bash's default
  EXPECT_EQ(complete(script, "zt guard --id x -- th"), "\n");
  fs::remove(script);
}

}  // namespace
