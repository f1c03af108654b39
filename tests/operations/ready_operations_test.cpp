// The queue's ready list against the plain sorted-array binary insertion it stands for.

#include "operations/internal/ready_operations.h"

#include <gtest/gtest.h>

#include <random>

#include "support/operation_test_support.h"
#include "zentrel/operations/operation_queue.h"

namespace {

// The reference: a vector kept sorted by the queue's comparator, a newcomer inserted where the
// binary search first meets an equal element.
std::size_t referenceInsert(std::vector<ZTOperation*>& array, ZTOperation* operation) {
  std::size_t lo = 0;
  std::size_t n = array.size();
  while (n > 0) {
    const std::size_t mid = lo + n / 2;
    const auto order = ZTOperationsComparator(*array[mid], *operation);
    if (order == ZTComparisonResult::OrderedSame) {
      lo = mid;
      break;
    }
    if (order == ZTComparisonResult::OrderedAscending) {
      lo = mid + 1;
      n = n - n / 2 - 1;
    } else {
      n = n / 2;
    }
  }
  array.insert(array.begin() + static_cast<std::ptrdiff_t>(lo), operation);
  return lo;
}

TEST(ReadyOperations, MatchesBinaryInsertionIntoASortedArrayThroughSplitsPopsAndRemovals) {
  std::mt19937 random(7);
  std::vector<std::shared_ptr<ZTOperation>> operations;
  zt::detail::ReadyOperations ready;
  std::vector<ZTOperation*> reference;
  const std::int64_t priorities[] = {-8, -4, 0, 4, 8};
  for (int step = 0; step < 6000; ++step) {
    const auto action = random() % 10;
    if (action < 7 || reference.empty()) {
      auto operation = std::make_shared<ZTOperation>();
      // Mostly one priority, so that long runs of equals build up and blocks split.
      operation->setQueuePriority(random() % 4 == 0 ? priorities[random() % 5] : 0);
      operations.push_back(operation);
      ASSERT_EQ(ready.insert(operation.get()), referenceInsert(reference, operation.get())) << "step " << step;
    } else if (action < 9) {
      ASSERT_EQ(ready.popFront(), reference.front());
      reference.erase(reference.begin());
    } else {
      const auto index = random() % reference.size();
      ASSERT_TRUE(ready.remove(reference[index]));
      reference.erase(reference.begin() + static_cast<std::ptrdiff_t>(index));
    }
    ASSERT_EQ(ready.size(), reference.size());
  }
  std::vector<ZTOperation*> listed;
  ready.forEach([&](ZTOperation* operation) { listed.push_back(operation); });
  EXPECT_EQ(listed, reference);
}

}  // namespace
