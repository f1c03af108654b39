#include "zentrel/transfer/save_stream_to_local_file_operation.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "common/unprivileged.h"
#include "transfer/support/transfer_test_support.h"
#include "zentrel/filesystem/standard_directories.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/file_manager.h"
#include "zentrel/platform/stream.h"

namespace {
using namespace std::chrono_literals;
using zt::test::Outcome;
using zt::test::TransferScratch;

// One operation saving a stream, with its outcome.
struct Saving {
  Saving(std::shared_ptr<ZTInputStream> stream, std::string destination, std::shared_ptr<ZTThread> worker) {
    auto recordSuccess = outcome.successRecorder();
    operation = ZTSaveStreamToLocalFileOperation::create(
        std::move(stream), std::move(destination), nullptr, std::move(worker), nullptr, nullptr,
        [recordSuccess](ZTSaveStreamToLocalFileOperation&) { recordSuccess(); }, nullptr);
    if (operation) outcome.watch(*operation);
  }
  // Starts, waits for the end, and checks the rules every ending keeps.
  void runToEnd(const TransferScratch& scratch) {
    ASSERT_NE(operation, nullptr);
    operation->start();
    finish(scratch);
  }
  void finish(const TransferScratch& scratch) {
    ASSERT_TRUE(operation->waitUntilFinished(30s));
    EXPECT_EQ(outcome.handlerCalls(), 1);
    EXPECT_TRUE(outcome.ranOnWorkerThread());
    EXPECT_EQ(scratch.stagingFiles(), std::vector<std::string>()) << "staging files left behind";
    const auto status = operation->inputStream()->streamStatus();
    EXPECT_TRUE(status == ZTStreamStatus::Closed || status == ZTStreamStatus::Error || status == ZTStreamStatus::NotOpen)
        << "the stream stays open";
  }

  Outcome outcome;
  std::shared_ptr<ZTSaveStreamToLocalFileOperation> operation;
};

class SaveStreamToLocalFileOperationTest : public ::testing::Test {
 protected:
  TransferScratch scratch_;
  ZTScopedThreadWithRunLoop<> worker_;
};

TEST_F(SaveStreamToLocalFileOperationTest, RefusesAMissingWorkerThreadAndAnOpenedStream) {
  auto unused = ZTInputStream::inputStreamWithData(ZTBytes{1, 2, 3});
  EXPECT_EQ(ZTSaveStreamToLocalFileOperation::create(unused, scratch_ / "out", nullptr, nullptr, nullptr, nullptr,
                                                     nullptr, nullptr),
            nullptr);
  auto opened = ZTInputStream::inputStreamWithData(ZTBytes{1, 2, 3});
  opened->open();
  EXPECT_EQ(ZTSaveStreamToLocalFileOperation::create(opened, scratch_ / "out", nullptr, worker_.thread(), nullptr,
                                                     nullptr, nullptr, nullptr),
            nullptr);
  EXPECT_NE(ZTSaveStreamToLocalFileOperation::create(unused, scratch_ / "out", nullptr, worker_.thread(), nullptr,
                                                     nullptr, nullptr, nullptr),
            nullptr);
}

TEST_F(SaveStreamToLocalFileOperationTest, SavesMemoryFileAndEmptyStreamsWhole) {
  // Memory lends its buffer; a file of 25 MiB takes three scratch-buffer reads.
  const std::string big = zt::test::patternBytes(25 * 1024 * 1024 + 3);
  zt::test::writeFile(scratch_ / "source.bin", big);
  struct Case {
    const char* what;
    std::shared_ptr<ZTInputStream> stream;
    std::string expected;
  } cases[] = {
      {"memory", ZTInputStream::inputStreamWithData(ZTBytes(big.begin(), big.begin() + 3'000'001)),
       big.substr(0, 3'000'001)},
      {"file", ZTInputStream::inputStreamWithFileAtPath(scratch_ / "source.bin"), big},
      {"empty", ZTInputStream::inputStreamWithData(ZTBytes{}), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string destination = scratch_ / (std::string("saved-") + c.what);
    Saving saving(c.stream, destination, worker_.thread());
    saving.runToEnd(scratch_);
    ASSERT_EQ(saving.outcome.kind(), Outcome::Kind::Success);
    ASSERT_TRUE(zt::test::exists(destination));
    EXPECT_TRUE(zt::test::readFile(destination) == c.expected) << "content differs";
    EXPECT_EQ(saving.operation->temporaryFileHandle()->fileDescriptor(), -1);
    EXPECT_FALSE(zt::test::exists(saving.operation->temporaryFilePath()));
  }
}

TEST_F(SaveStreamToLocalFileOperationTest, SavesWhatASocketPeerSendsUntilItCloses) {
  auto connection = zt::test::makeLoopbackConnection();
  ASSERT_TRUE(connection);
  auto pair = ZTStream::streamPairWithSocket(connection->server);
  ASSERT_TRUE(pair);
  Saving saving(pair->inputStream, scratch_ / "received.bin", worker_.thread());
  saving.operation->start();
  const std::string content = zt::test::patternBytes(5 * 1024 * 1024 + 11);
  std::thread peer([&] {
    for (std::size_t offset = 0; offset < content.size(); offset += 100'000) {
      ASSERT_TRUE(zt::test::writeAll(connection->client, std::string_view(content).substr(offset, 100'000)));
    }
    ::close(connection->client);
  });
  saving.finish(scratch_);
  peer.join();
  ASSERT_EQ(saving.outcome.kind(), Outcome::Kind::Success);
  EXPECT_TRUE(zt::test::readFile(scratch_ / "received.bin") == content);
}

TEST_F(SaveStreamToLocalFileOperationTest, PeerResetMidwayFailsWithTheStreamsErrorAndLeavesNothing) {
  auto connection = zt::test::makeLoopbackConnection();
  ASSERT_TRUE(connection);
  auto pair = ZTStream::streamPairWithSocket(connection->server);
  ASSERT_TRUE(pair);
  Saving saving(pair->inputStream, scratch_ / "received.bin", worker_.thread());
  saving.operation->start();
  ASSERT_TRUE(zt::test::writeAll(connection->client, zt::test::patternBytes(300'000)));
  // Wait until part of it is staged, so the reset comes in the middle.
  ASSERT_TRUE(zt::test::waitFor([&] {
    const auto handle = saving.operation->temporaryFileHandle();
    struct stat st {};
    return handle && ::fstat(handle->fileDescriptor(), &st) == 0 && st.st_size > 0;
  }));
  zt::test::resetConnection(connection->client);
  saving.finish(scratch_);
  EXPECT_EQ(saving.outcome.kind(), Outcome::Kind::Failure);
  ASSERT_TRUE(saving.outcome.error());
  EXPECT_EQ(saving.outcome.error()->domain(), ZTPOSIXErrorDomain);
  EXPECT_EQ(saving.outcome.error()->code(), ECONNRESET);
  EXPECT_FALSE(zt::test::exists(scratch_ / "received.bin"));
}

TEST_F(SaveStreamToLocalFileOperationTest, DestinationThatCannotBeWrittenFailsAndLeavesNothing) {
  zt::test::writeFile(scratch_ / "plain-file", "x");
  zt::test::writeFile(scratch_ / "taken", "someone's file");
  struct Case {
    const char* what;
    std::string destination;
    std::int64_t code;
  } cases[] = {
      {"under a regular file", scratch_ / "plain-file/out.bin", ZTFileNoSuchFileError},  // ENOTDIR
      {"in a missing folder", scratch_ / "missing/out.bin", ZTFileNoSuchFileError},
      {"onto an existing file", scratch_ / "taken", ZTFileWriteFileExistsError},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(1000, 7)), c.destination, worker_.thread());
    saving.runToEnd(scratch_);
    EXPECT_EQ(saving.outcome.kind(), Outcome::Kind::Failure);
    ASSERT_TRUE(saving.outcome.error());
    EXPECT_EQ(saving.outcome.error()->domain(), ZTCocoaErrorDomain);
    EXPECT_EQ(saving.outcome.error()->code(), c.code) << saving.outcome.error()->description();
  }
  EXPECT_EQ(zt::test::readFile(scratch_ / "taken"), "someone's file");
  EXPECT_EQ(zt::test::readFile(scratch_ / "plain-file"), "x");
}

TEST_F(SaveStreamToLocalFileOperationTest, FolderWithoutWritePermissionFails) {
  if (zt::test::ranUnprivilegedInAChild()) return;  // root passes permission checks
  ::mkdir((scratch_ / "locked").c_str(), 0500);
  Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(10, 1)), scratch_ / "locked/out.bin", worker_.thread());
  saving.runToEnd(scratch_);
  EXPECT_EQ(saving.outcome.kind(), Outcome::Kind::Failure);
  EXPECT_FALSE(zt::test::exists(scratch_ / "locked/out.bin"));
}

TEST_F(SaveStreamToLocalFileOperationTest, CancellationAtEachStepReportsItAndLeavesNothing) {
  enum class When { BeforeStart, InStartHandler, WhileStreaming, WhileMovingIntoPlace };
  for (const When when : {When::BeforeStart, When::InStartHandler, When::WhileStreaming, When::WhileMovingIntoPlace}) {
    SCOPED_TRACE(static_cast<int>(when));
    auto connection = zt::test::makeLoopbackConnection();
    ASSERT_TRUE(connection);
    auto pair = ZTStream::streamPairWithSocket(connection->server);
    ASSERT_TRUE(pair);
    const std::string destination = scratch_ / "out.bin";
    Saving saving(pair->inputStream, destination, worker_.thread());
    auto& operation = *saving.operation;

    if (when == When::BeforeStart) operation.cancel();
    if (when == When::InStartHandler) operation.setStartHandler([](ZTConcurrentOperation& op) { op.cancel(); });
    operation.start();
    const bool reads = when == When::WhileStreaming || when == When::WhileMovingIntoPlace;
    if (reads) {
      ASSERT_TRUE(zt::test::writeAll(connection->client, zt::test::patternBytes(200'000)));
    }
    if (when == When::WhileStreaming) {
      ASSERT_TRUE(zt::test::waitFor([&] {
        const auto handle = operation.temporaryFileHandle();
        struct stat st {};
        return handle && ::fstat(handle->fileDescriptor(), &st) == 0 && st.st_size > 0;
      }));
      operation.cancel();
    }
    if (when == When::WhileMovingIntoPlace) {
      // A writer holds the destination: the move waits for it, and is cancelled meanwhile.
      zt::test::HeldWriteClaim claim(destination);
      ::shutdown(connection->client, SHUT_WR);
      ASSERT_TRUE(zt::test::waitFor([&] {
        const auto handle = operation.temporaryFileHandle();
        return handle && handle->fileDescriptor() == -1;  // closed: the move has begun
      }));
      operation.cancel();
      claim.release();
    }
    saving.finish(scratch_);
    EXPECT_EQ(saving.outcome.kind(), Outcome::Kind::Cancellation);
    EXPECT_TRUE(operation.isCancelled());
    EXPECT_FALSE(zt::test::exists(destination));
    ::close(connection->client);
  }
}

TEST_F(SaveStreamToLocalFileOperationTest, OperationReleasedWhileRunningClosesItsStreamAndRemovesItsStaging) {
  auto connection = zt::test::makeLoopbackConnection();
  ASSERT_TRUE(connection);
  auto pair = ZTStream::streamPairWithSocket(connection->server);
  ASSERT_TRUE(pair);
  Saving saving(pair->inputStream, scratch_ / "out.bin", worker_.thread());
  saving.operation->start();
  ASSERT_TRUE(zt::test::writeAll(connection->client, zt::test::patternBytes(100'000)));
  ASSERT_TRUE(zt::test::waitFor([&] {
    const auto handle = saving.operation->temporaryFileHandle();
    struct stat st {};
    return handle && ::fstat(handle->fileDescriptor(), &st) == 0 && st.st_size > 0;
  }));
  std::weak_ptr<ZTSaveStreamToLocalFileOperation> weak = saving.operation;
  saving.operation.reset();
  EXPECT_TRUE(zt::test::waitFor([&] { return weak.expired() && scratch_.stagingFiles().empty(); }));
  EXPECT_EQ(pair->inputStream->streamStatus(), ZTStreamStatus::Closed);
  EXPECT_FALSE(zt::test::exists(scratch_ / "out.bin"));
  EXPECT_EQ(saving.outcome.handlerCalls(), 0);
  ::close(connection->client);
}

TEST_F(SaveStreamToLocalFileOperationTest, CancellingAfterTheSuccessChangesNothing) {
  Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(10, 1)), scratch_ / "out.bin", worker_.thread());
  saving.runToEnd(scratch_);
  ASSERT_EQ(saving.outcome.kind(), Outcome::Kind::Success);
  saving.operation->cancel();
  EXPECT_FALSE(saving.operation->isCancelled());
  EXPECT_EQ(zt::test::readFile(scratch_ / "out.bin"), std::string(10, '\1'));
  EXPECT_EQ(saving.outcome.handlerCalls(), 1);
}

// The children of the death tests below: each runs in a process of its own and answers whether
// everything went as expected. They clean up before they return (std::exit skips destructors).

// A full disk, for real: a 1 MiB tmpfs in a private mount namespace holds the staging folder, and
// an endless stream fills it.
bool savingOntoAFullDisk() {
  TransferScratch scratch;
  ::mkdir((scratch / "small").c_str(), 0700);
  if (!zt::test::mountPrivateTmpfs(scratch / "small", "size=1m")) return false;
  bool ok = false;
  {
    zt::test::ScopedEnvironment tmpdir("TMPDIR", (scratch / "small").c_str());
    ZTScopedThreadWithRunLoop<> worker;
    Saving saving(ZTInputStream::inputStreamWithFileAtPath("/dev/zero"), scratch / "out.bin", worker.thread());
    saving.operation->start();
    const auto error = saving.operation->waitUntilFinished(60s) ? saving.outcome.error() : std::nullopt;
    ok = saving.outcome.kind() == Outcome::Kind::Failure && error && error->domain() == ZTCocoaErrorDomain &&
         error->code() == ZTFileWriteOutOfSpaceError && error->localizedDescription() == "No space left on device" &&
         !zt::test::exists(scratch / "out.bin") && scratch.stagingFiles().empty();
  }
  zt::test::unmountPrivateTmpfs(scratch / "small");
  return ok;
}

// A file-size limit stops the staging file: the write fails with the file handle's error (EFBIG).
bool savingBeyondAFileSizeLimit() {
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{1024 * 1024, 1024 * 1024};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
  TransferScratch scratch;
  ZTScopedThreadWithRunLoop<> worker;
  Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(3 * 1024 * 1024, 9)), scratch / "out.bin",
                worker.thread());
  saving.operation->start();
  const auto error = saving.operation->waitUntilFinished(60s) ? saving.outcome.error() : std::nullopt;
  const auto underlying = error ? error->underlyingError() : std::nullopt;
  return saving.outcome.kind() == Outcome::Kind::Failure && underlying && underlying->code() == EFBIG &&
         !zt::test::exists(scratch / "out.bin") && scratch.stagingFiles().empty();
}

// The staging file cannot be made: a tmpfs without a free inode holds the temporary folder.
bool savingWithoutRoomForTheStagingFile() {
  TransferScratch scratch;
  ::mkdir((scratch / "tiny").c_str(), 0700);
  if (!zt::test::mountPrivateTmpfs(scratch / "tiny", "size=64k,nr_inodes=2")) return false;
  bool ok = false;
  {
    zt::test::ScopedEnvironment tmpdir("TMPDIR", (scratch / "tiny").c_str());
    ZTScopedThreadWithRunLoop<> worker;
    Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(10, 1)), scratch / "out.bin", worker.thread());
    saving.operation->start();
    ok = ZTTemporaryDirectory() == scratch / ("tiny/zentrel-" + std::to_string(::geteuid())) &&
         saving.operation->waitUntilFinished(60s) && saving.outcome.kind() == Outcome::Kind::Failure &&
         saving.outcome.error() == ZTError(ZTPOSIXErrorDomain, 5) && !zt::test::exists(scratch / "out.bin");
  }
  zt::test::unmountPrivateTmpfs(scratch / "tiny");
  return ok;
}

// A read-only file system at the destination: root cannot write there either.
bool savingOntoAReadOnlyFileSystem() {
  TransferScratch scratch;
  ::mkdir((scratch / "readonly").c_str(), 0700);
  if (!zt::test::mountPrivateTmpfs(scratch / "readonly", "size=64k", MS_RDONLY)) return false;
  bool ok = false;
  {
    ZTScopedThreadWithRunLoop<> worker;
    Saving saving(ZTInputStream::inputStreamWithData(ZTBytes(1000, 1)), scratch / "readonly/out.bin",
                  worker.thread());
    saving.operation->start();
    ok = saving.operation->waitUntilFinished(60s) && saving.outcome.kind() == Outcome::Kind::Failure &&
         saving.outcome.error() && saving.outcome.error()->code() == ZTFileWriteVolumeReadOnlyError &&
         scratch.stagingFiles().empty();
  }
  zt::test::unmountPrivateTmpfs(scratch / "readonly");
  return ok;
}

TEST(SaveStreamToLocalFileOperationDeathTest, FullDiskFailsWithOutOfSpaceAndLeavesNothing) {
  zt::test::expectChildSucceeds(savingOntoAFullDisk, true);
}

TEST(SaveStreamToLocalFileOperationDeathTest, FileSizeLimitFailsWithTheWriteErrorAndLeavesNothing) {
  zt::test::expectChildSucceeds(savingBeyondAFileSizeLimit, false);
}

TEST(SaveStreamToLocalFileOperationDeathTest, StagingFileThatCannotBeMadeFailsWithInputOutputError) {
  zt::test::expectChildSucceeds(savingWithoutRoomForTheStagingFile, true);
}

TEST(SaveStreamToLocalFileOperationDeathTest, ReadOnlyDestinationFailsAndLeavesNothing) {
  zt::test::expectChildSucceeds(savingOntoAReadOnlyFileSystem, true);
}

}  // namespace
