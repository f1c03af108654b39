// Copying a file in the background, then saving a stream into a file, both reported on the main
// thread. Run it with a file to copy and a destination; without arguments it copies itself into
// the current folder.
//
// Build on its own against an installed ZentrelLib:
//   cmake -S . -B build && cmake --build build && ./build/transfer_copy SOURCE DEST

#include <zentrel/filesystem/unique_names.h>
#include <zentrel/operations/thread_with_run_loop.h>
#include <zentrel/platform/run_loop.h>
#include <zentrel/platform/stream.h>
#include <zentrel/transfer/copy_file_async_operation.h>
#include <zentrel/transfer/save_stream_to_local_file_operation.h>

#include <chrono>
#include <iostream>
#include <string>

namespace {

// Runs the main loop until `done` is set by a call posted to it, for at most a minute.
void runMainLoopUntil(const bool& done) {
  ZTRunLoop::main()->runWithCondition([&] { return !done; }, std::chrono::minutes(1));
}

}  // namespace

int main(int argc, char** argv) {
  const std::string source = argc > 1 ? argv[1] : "/proc/self/exe";
  const std::string destination = argc > 2 ? argv[2] : "transfer_copy-copy";

  // 1. The copy runs on a worker thread of its own; the handlers run there too, so they hop back
  //    to the main thread with what they learned.
  bool copied = false;
  bool copyFailed = false;
  auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(
      ZTConcurrentOperation::spawnedWorkerThread, nullptr, nullptr,
      [&](ZTConcurrentOperation&, const ZTError& error) {
        (void)ZTRunLoop::main()->post([&, text = error.localizedDescription()] {
          std::cerr << "Copy failed: " << text << "\n";
          copyFailed = true;
          copied = true;
        });
      });
  copy->setSourceFilePath(source);
  copy->setDestinationFilePath(destination);
  copy->setSuccessHandler([&](ZTCopyFileAsyncOperation& operation) {
    (void)ZTRunLoop::main()->post([&, written = operation.destinationFilePath()] {
      // An identical file already there is reused; a different one gets a free name beside it.
      std::cout << "Copied to " << written << "\n";
      copied = true;
    });
  });
  copy->start();
  runMainLoopUntil(copied);

  // 2. A stream saved into a file: staged privately, moved into place only once complete.
  bool saved = false;
  bool saveFailed = false;
  auto worker = ZTThreadWithRunLoop::spawnThreadWithName("saving");
  auto save = ZTSaveStreamToLocalFileOperation::create(
      ZTInputStream::inputStreamWithData(ZTBytes{'h', 'e', 'l', 'l', 'o', '\n'}),
      ZTGenerateMacStyleUniquePath(destination + ".hello", false), nullptr,
      worker, nullptr, nullptr,
      [&](ZTSaveStreamToLocalFileOperation& operation) {
        (void)ZTRunLoop::main()->post([&, path = operation.localFilePath()] {
          std::cout << "Saved a stream to " << path << "\n";
          saved = true;
        });
      },
      [&](ZTConcurrentOperation&, const ZTError& error) {
        (void)ZTRunLoop::main()->post([&, text = error.localizedDescription()] {
          std::cerr << "Saving failed: " << text << "\n";
          saveFailed = true;
          saved = true;
        });
      });
  save->start();
  runMainLoopUntil(saved);
  worker->cancel();
  return copied && saved && !copyFailed && !saveFailed ? 0 : 1;
}
