// `zt copy SOURCE DEST`: copies a file on a worker thread with ZTCopyFileAsyncOperation and prints
// the path actually written. A DEST that is a folder receives the file under its own name. An
// identical file already at the destination is kept and nothing is copied; a different one is left
// alone and the copy gets a free name beside it ("report-1.txt").

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "zentrel/platform/run_loop.h"
#include "zentrel/transfer/copy_file_async_operation.h"

namespace ztool {
namespace {

bool isFolder(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isItem(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace

int runCopy(const std::string& source, const std::string& destinationArgument) {
  std::error_code error;
  std::string destination = std::filesystem::absolute(destinationArgument, error).lexically_normal().string();
  if (error) {
    std::cerr << "zt copy: " << destinationArgument << ": " << error.message() << "\n";
    return 1;
  }
  if (isFolder(destination)) destination = (std::filesystem::path(destination) / std::filesystem::path(source).filename()).string();
  const bool destinationExisted = isItem(destination);

  struct Result {
    bool done = false;
    int status = 1;
    std::string written;
    std::string failure;
  };
  auto result = std::make_shared<Result>();  // touched on the main thread only
  const auto mainLoop = ZTRunLoop::main();
  auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(
      ZTConcurrentOperation::spawnedWorkerThread, nullptr, nullptr,
      [result, mainLoop](ZTConcurrentOperation&, const ZTError& failure) {
        (void)mainLoop->post([result, mainLoop, text = failure.localizedDescription()] {
          result->failure = text;
          result->done = true;
          mainLoop->stop();
        });
      });
  if (!copy) {
    std::cerr << "zt copy: no worker thread\n";
    return 1;
  }
  copy->setSourceFilePath(std::filesystem::absolute(source, error).string());
  copy->setDestinationFilePath(destination);
  copy->setSuccessHandler([result, mainLoop](ZTCopyFileAsyncOperation& operation) {
    (void)mainLoop->post([result, mainLoop, written = operation.destinationFilePath()] {
      result->written = written;
      result->status = 0;
      result->done = true;
      mainLoop->stop();
    });
  });
  copy->start();
  // The reports stop the main loop; a turn that ends for another reason goes round again.
  const auto deadline = ZTRunLoop::Clock::now() + std::chrono::hours(24);
  for (int turns = 0; !result->done && ZTRunLoop::Clock::now() < deadline && turns < 1'000'000; ++turns) {
    mainLoop->runUntil(deadline);
  }
  if (!result->done) {
    std::cerr << "zt copy: gave up waiting\n";
    return 1;
  }
  if (result->status != 0) {
    std::cerr << "zt copy: " << result->failure << "\n";
    return result->status;
  }
  if (destinationExisted && result->written == destination) {
    std::cerr << "zt copy: an identical file is already there; nothing was copied\n";
  } else if (destinationExisted) {
    std::cerr << "zt copy: " << destination << " holds other contents; the copy was put beside it\n";
  }
  std::cout << result->written << "\n";
  return 0;
}

void addCopyCommand(CLI::App& app) {
  auto* command = app.add_subcommand(
      "copy", "Copy a file in the background under file coordination and print the path written "
              "(an identical file at DEST is reused; a different one gets a free name beside it)");
  static std::string source;
  static std::string destination;
  command->add_option("SOURCE", source, "The file to copy")->required();
  command->add_option("DEST", destination, "Where to put it: a file path, or a folder to copy into")->required();
  command->callback([] {
    const int status = runCopy(source, destination);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace ztool
