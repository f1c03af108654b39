#include "zentrel/transfer/copy_file_async_operation.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "common/unprivileged.h"
#include "transfer/support/transfer_test_support.h"
#include "zentrel/operations/thread_with_run_loop.h"
#include "zentrel/platform/file_manager.h"

namespace {
using namespace std::chrono_literals;
using zt::test::Outcome;
using zt::test::TransferScratch;

struct FileIdentity {
  ino_t inode = 0;
  timespec modified{};
};

FileIdentity identityOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return {st.st_ino, st.st_mtim};
}

class CopyFileAsyncOperationTest : public ::testing::Test {
 protected:
  std::shared_ptr<ZTCopyFileAsyncOperation> makeCopy(const std::string& source, const std::string& destination) {
    auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(worker_.thread());
    EXPECT_NE(copy, nullptr);
    if (!copy) return nullptr;
    outcome_.watch(*copy);
    copy->setSourceFilePath(source);
    copy->setDestinationFilePath(destination);
    auto recordSuccess = outcome_.successRecorder();
    copy->setSuccessHandler([recordSuccess, this](ZTCopyFileAsyncOperation& operation) {
      successPath_ = operation.destinationFilePath();
      recordSuccess();
    });
    return copy;
  }

  void runToEnd(ZTCopyFileAsyncOperation& copy) {
    copy.start();
    ASSERT_TRUE(copy.waitUntilFinished(30s));
    EXPECT_EQ(outcome_.handlerCalls(), 1);
    EXPECT_TRUE(outcome_.ranOnWorkerThread());
  }

  TransferScratch scratch_;
  ZTScopedThreadWithRunLoop<> worker_;
  Outcome outcome_;
  std::string successPath_;
};

TEST_F(CopyFileAsyncOperationTest, PathForCoordinateAccessFollowsTheFlag) {
  auto copy = makeCopy("/a/source", "/b/destination");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->filePathForCoordinateAccess(true), "/b/destination");
  EXPECT_EQ(copy->filePathForCoordinateAccess(false), "/a/source");
  copy->setCoordinateAccessForSource(true);
  EXPECT_EQ(copy->filePathForCoordinateAccess(true), "/a/source");
  EXPECT_EQ(copy->filePathForCoordinateAccess(false), "/b/destination");
}

TEST_F(CopyFileAsyncOperationTest, CopiesIntoFoldersItCreates) {
  const std::string content = zt::test::patternBytes(3 * 1024 * 1024 + 17);
  zt::test::writeFile(scratch_ / "source.bin", content);
  auto copy = makeCopy(scratch_ / "source.bin", scratch_ / "new/deeper/copy.bin");
  runToEnd(*copy);
  ASSERT_EQ(outcome_.kind(), Outcome::Kind::Success) << outcome_.error().value_or(ZTError()).description();
  EXPECT_EQ(successPath_, scratch_ / "new/deeper/copy.bin");
  EXPECT_EQ(copy->destinationFilePath(), scratch_ / "new/deeper/copy.bin");
  EXPECT_EQ(zt::test::readFile(scratch_ / "new/deeper/copy.bin"), content);
}

TEST_F(CopyFileAsyncOperationTest, IdenticalFileAtTheDestinationIsReusedUntouched) {
  for (const bool coordinateSource : {false, true}) {
    SCOPED_TRACE(coordinateSource ? "coordinating the source" : "coordinating the destination");
    zt::test::writeFile(scratch_ / "source.txt", "same bytes");
    zt::test::writeFile(scratch_ / "existing.txt", "same bytes");
    const timespec old[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (scratch_ / "existing.txt").c_str(), old, 0), 0);
    const FileIdentity before = identityOf(scratch_ / "existing.txt");

    outcome_.reset();
    auto copy = makeCopy(scratch_ / "source.txt", scratch_ / "existing.txt");
    copy->setCoordinateAccessForSource(coordinateSource);
    runToEnd(*copy);
    ASSERT_EQ(outcome_.kind(), Outcome::Kind::Success);
    EXPECT_EQ(copy->destinationFilePath(), scratch_ / "existing.txt");
    const FileIdentity after = identityOf(scratch_ / "existing.txt");
    EXPECT_EQ(after.inode, before.inode);
    EXPECT_EQ(after.modified.tv_sec, before.modified.tv_sec);
    EXPECT_FALSE(zt::test::exists(scratch_ / "existing-1.txt"));
  }
}

TEST_F(CopyFileAsyncOperationTest, DifferentFileAtTheDestinationGetsAUniqueNameBesideIt) {
  zt::test::writeFile(scratch_ / "source.txt", "new report");
  zt::test::writeFile(scratch_ / "report.txt", "old report");
  zt::test::writeFile(scratch_ / "report-1.txt", "older report");
  auto copy = makeCopy(scratch_ / "source.txt", scratch_ / "report.txt");
  runToEnd(*copy);
  ASSERT_EQ(outcome_.kind(), Outcome::Kind::Success);
  EXPECT_EQ(copy->destinationFilePath(), scratch_ / "report-2.txt");
  EXPECT_EQ(successPath_, scratch_ / "report-2.txt");
  EXPECT_EQ(zt::test::readFile(scratch_ / "report-2.txt"), "new report");
  EXPECT_EQ(zt::test::readFile(scratch_ / "report.txt"), "old report");
  EXPECT_EQ(zt::test::readFile(scratch_ / "report-1.txt"), "older report");
}

TEST_F(CopyFileAsyncOperationTest, BadPathsEndInTheFailureHandlerWithNothingWritten) {
  zt::test::writeFile(scratch_ / "source.txt", "bytes");
  zt::test::writeFile(scratch_ / "plain-file", "not a folder");
  struct Case {
    const char* what;
    std::string source;
    std::string destination;
  } cases[] = {
      {"missing source", scratch_ / "missing.txt", scratch_ / "out.txt"},
      {"destination under a regular file", scratch_ / "source.txt", scratch_ / "plain-file/sub/out.txt"},
      {"empty destination", scratch_ / "source.txt", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    outcome_.reset();
    auto copy = makeCopy(c.source, c.destination);
    runToEnd(*copy);
    EXPECT_EQ(outcome_.kind(), Outcome::Kind::Failure);
    ASSERT_TRUE(outcome_.error());
    EXPECT_EQ(outcome_.error()->domain(), ZTCocoaErrorDomain);
    EXPECT_FALSE(zt::test::exists(scratch_ / "out.txt"));
  }
  EXPECT_EQ(zt::test::readFile(scratch_ / "plain-file"), "not a folder");
}

TEST_F(CopyFileAsyncOperationTest, FolderWithoutWritePermissionFails) {
  if (zt::test::ranUnprivilegedInAChild()) return;  // root passes permission checks
  zt::test::writeFile(scratch_ / "source.txt", "bytes");
  ::mkdir((scratch_ / "locked").c_str(), 0500);
  auto copy = makeCopy(scratch_ / "source.txt", scratch_ / "locked/out.txt");
  runToEnd(*copy);
  EXPECT_EQ(outcome_.kind(), Outcome::Kind::Failure);
  ASSERT_TRUE(outcome_.error());
  EXPECT_EQ(outcome_.error()->code(), ZTFileWriteNoPermissionError);
  EXPECT_FALSE(zt::test::exists(scratch_ / "locked/out.txt"));
}

// Runs in a child process of its own (a private mount namespace); cleans up before it returns.
bool copyingOntoAReadOnlyFileSystem() {
  TransferScratch scratch;
  ::mkdir((scratch / "readonly").c_str(), 0700);
  zt::test::writeFile(scratch / "source.txt", "bytes");
  if (!zt::test::mountPrivateTmpfs(scratch / "readonly", "size=64k", MS_RDONLY)) return false;
  bool ok = false;
  {
    ZTScopedThreadWithRunLoop<> worker;
    Outcome outcome;
    auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(worker.thread());
    outcome.watch(*copy);
    copy->setSourceFilePath(scratch / "source.txt");
    copy->setDestinationFilePath(scratch / "readonly/sub/out.txt");
    copy->start();
    ok = copy->waitUntilFinished(30s) && outcome.kind() == Outcome::Kind::Failure && outcome.error() &&
         outcome.error()->code() == ZTFileWriteVolumeReadOnlyError && !zt::test::exists(scratch / "readonly/sub");
  }
  zt::test::unmountPrivateTmpfs(scratch / "readonly");
  return ok;
}

TEST(CopyFileAsyncOperationDeathTest, ReadOnlyFileSystemFailsWithItsError) {
  zt::test::expectChildSucceeds(copyingOntoAReadOnlyFileSystem, true);
}

TEST_F(CopyFileAsyncOperationTest, CancelledBeforeOrAtStartTouchesNothing) {
  zt::test::writeFile(scratch_ / "source.txt", "bytes");
  for (const bool inStartHandler : {false, true}) {
    SCOPED_TRACE(inStartHandler ? "cancelled by the start handler" : "cancelled before start");
    outcome_.reset();
    auto copy = makeCopy(scratch_ / "source.txt", scratch_ / "folder/out.txt");
    if (inStartHandler) {
      copy->setStartHandler([](ZTConcurrentOperation& operation) { operation.cancel(); });
    } else {
      copy->cancel();
    }
    runToEnd(*copy);
    EXPECT_EQ(outcome_.kind(), Outcome::Kind::Cancellation);
    EXPECT_FALSE(zt::test::exists(scratch_ / "folder"));
  }
}

// The comparison waits for a claim on the destination, then the copy for one on the source; a
// cancellation while either waits ends the operation as cancelled, with nothing new written.
TEST_F(CopyFileAsyncOperationTest, CancelledWhileWaitingForACoordinatedStepWritesNothing) {
  zt::test::writeFile(scratch_ / "source.txt", "new bytes");
  zt::test::writeFile(scratch_ / "taken.txt", "other bytes");
  struct Case {
    const char* what;
    std::string held;
    std::string destination;
  } cases[] = {
      {"during the comparison", scratch_ / "taken.txt", scratch_ / "taken.txt"},
      {"during the copy", scratch_ / "source.txt", scratch_ / "fresh.txt"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    outcome_.reset();
    zt::test::HeldWriteClaim claim(c.held);
    auto copy = makeCopy(scratch_ / "source.txt", c.destination);
    copy->start();
    ASSERT_TRUE(zt::test::waitFor([&] { return copy->isExecuting(); }));
    copy->cancel();
    claim.release();
    ASSERT_TRUE(copy->waitUntilFinished(30s));
    EXPECT_EQ(outcome_.kind(), Outcome::Kind::Cancellation);
    EXPECT_EQ(outcome_.handlerCalls(), 1);
    EXPECT_FALSE(zt::test::exists(scratch_ / "taken-1.txt"));
    EXPECT_FALSE(zt::test::exists(scratch_ / "fresh.txt"));
    EXPECT_EQ(zt::test::readFile(scratch_ / "taken.txt"), "other bytes");
  }
}

}  // namespace
