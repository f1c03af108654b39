#include "zentrel/transfer/copy_file_async_operation.h"

#include <gtest/gtest.h>

#include "zentrel/operations/thread_with_run_loop.h"

namespace {

TEST(CopyFileAsyncOperation, PathForCoordinateAccessFollowsTheFlag) {
  ZTScopedThreadWithRunLoop<> worker;
  auto copy = ZTConcurrentOperation::make<ZTCopyFileAsyncOperation>(worker.thread());
  ASSERT_NE(copy, nullptr);
  copy->setSourceFilePath("/a/source");
  copy->setDestinationFilePath("/b/destination");
  EXPECT_EQ(copy->filePathForCoordinateAccess(true), "/b/destination");
  EXPECT_EQ(copy->filePathForCoordinateAccess(false), "/a/source");
  copy->setCoordinateAccessForSource(true);
  EXPECT_EQ(copy->filePathForCoordinateAccess(true), "/a/source");
  EXPECT_EQ(copy->filePathForCoordinateAccess(false), "/b/destination");
}

}  // namespace
