#include "zentrel/collections/map_array.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Item {
  int id;
  std::string label;
  bool operator==(const Item&) const = default;
};

using ItemArray = ZTMutableMapArray<Item, int>;

ItemArray::KeyForObject byId() {
  return [](const Item& item) { return item.id; };
}

// The invariant every map array keeps: each element's key maps to its index, and nothing else is
// in the index.
template <class MapArray>
::testing::AssertionResult indexIsExact(const MapArray& array) {
  if (array.allKeys().size() != array.size())
    return ::testing::AssertionFailure() << array.allKeys().size() << " keys for " << array.size() << " elements";
  for (std::size_t i = 0; i < array.size(); ++i) {
    const auto key = array.keyForObjectBlock()(array[i]);
    if (array.indexForKey(key) != i)
      return ::testing::AssertionFailure() << "element " << i << " is indexed at " << array.indexForKey(key);
  }
  return ::testing::AssertionSuccess();
}

std::vector<int> ids(const ItemArray& array) {
  std::vector<int> result;
  for (const Item& item : array) result.push_back(item.id);
  return result;
}

TEST(MapArray, IdentityKeyedArrayFindsElementsByValue) {
  ZTMutableMapArray<std::string> names;
  EXPECT_TRUE(names.addObject("ada"));
  EXPECT_TRUE(names.addObject("grace"));
  EXPECT_TRUE(names.containsObject("grace"));
  EXPECT_FALSE(names.containsObject("linus"));
  EXPECT_EQ(names.indexOfObject("grace"), 1u);
  EXPECT_EQ(names.indexOfObject("linus"), ZTNotFound);
  EXPECT_FALSE(names.addObject("ada"));
  EXPECT_EQ(names.size(), 2u);
}

TEST(MapArray, CreationRefusesDuplicateKeys) {
  EXPECT_FALSE(ItemArray::create({{1, "a"}, {2, "b"}, {1, "c"}}, byId()).has_value());
  EXPECT_FALSE(ItemArray::create({{1, "a"}}, nullptr).has_value());
  EXPECT_THROW(ItemArray(nullptr), ZTInternalInconsistencyException);

  auto array = ZTMapArray<Item, int>::create({{3, "c"}, {1, "a"}, {2, "b"}}, byId());
  ASSERT_TRUE(array.has_value());
  EXPECT_TRUE(indexIsExact(*array));
  EXPECT_EQ(array->objectForKey(1)->label, "a");
  EXPECT_EQ(array->objectForKey(4), nullptr);
  EXPECT_EQ(array->indexForKey(2), 2u);
}

TEST(MapArray, LookupIsByKeyNotByElement) {
  auto array = ItemArray::create({{1, "one"}, {2, "two"}}, byId());
  ASSERT_TRUE(array);
  const Item impostor{2, "not two"};
  EXPECT_TRUE(array->containsObject(impostor));
  EXPECT_EQ(array->indexOfObject(impostor), 1u);
  EXPECT_FALSE(array->addObject(impostor));
  EXPECT_EQ((*array)[1].label, "two");
}

TEST(MapArray, ReadsLikeAVector) {
  auto array = ItemArray::create({{1, "a"}, {2, "b"}, {3, "c"}}, byId());
  ASSERT_TRUE(array);
  const std::vector<Item>& view = *array;
  EXPECT_EQ(view.size(), 3u);
  EXPECT_EQ(array->front().id, 1);
  EXPECT_EQ(array->back().id, 3);
  EXPECT_EQ(array->firstObject()->id, 1);
  EXPECT_EQ(array->at(2).label, "c");
  EXPECT_THROW(array->at(3), ZTRangeException);
  EXPECT_EQ(std::vector<int>(ids(*array)), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(array->allObjects(), view);

  ItemArray empty(byId());
  EXPECT_EQ(empty.firstObject(), nullptr);
  EXPECT_EQ(empty.lastObject(), nullptr);
  EXPECT_THROW(empty.front(), ZTRangeException);
  EXPECT_THROW(empty.back(), ZTRangeException);
}

TEST(MapArray, InsertionReindexesTheTail) {
  auto array = ItemArray::create({{1, "a"}, {2, "b"}, {3, "c"}}, byId());
  ASSERT_TRUE(array);
  EXPECT_TRUE(array->insertObject({0, "z"}, 0));
  EXPECT_EQ(ids(*array), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_TRUE(indexIsExact(*array));

  EXPECT_TRUE(array->insertObject({9, "end"}, array->size()));
  EXPECT_EQ(array->indexForKey(9), 4u);
  EXPECT_FALSE(array->insertObject({2, "dup"}, 1));
  EXPECT_THROW((void)array->insertObject({10, "far"}, 9), ZTRangeException);
  EXPECT_TRUE(indexIsExact(*array));
}

TEST(MapArray, AddingManyIsAllOrNothing) {
  auto array = ItemArray::create({{1, "a"}}, byId());
  ASSERT_TRUE(array);
  EXPECT_FALSE(array->addObjectsFromArray({{2, "b"}, {1, "again"}}));
  EXPECT_FALSE(array->addObjectsFromArray({{2, "b"}, {3, "c"}, {2, "twice"}}));
  EXPECT_EQ(ids(*array), (std::vector<int>{1}));
  EXPECT_TRUE(indexIsExact(*array));

  EXPECT_TRUE(array->addObjectsFromArray({{2, "b"}, {3, "c"}}));
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(indexIsExact(*array));
}

TEST(MapArray, RemovalShiftsIndexesAndIgnoresOutOfRange) {
  auto array = ItemArray::create({{1, "a"}, {2, "b"}, {3, "c"}}, byId());
  ASSERT_TRUE(array);
  array->removeObjectAtIndex(1);
  EXPECT_EQ(array->indexForKey(1), 0u);
  EXPECT_EQ(array->indexForKey(3), 1u);
  EXPECT_EQ(array->indexForKey(2), ZTNotFound);
  EXPECT_FALSE(array->containsKey(2));

  array->removeObjectAtIndex(2);
  array->removeObjectAtIndex(ZTNotFound);
  array->removeObjectForKey(42);
  array->removeObject({42, "absent"});
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 3}));

  array->removeObject({3, "any label"});
  EXPECT_EQ(ids(*array), (std::vector<int>{1}));
  array->removeLastObject();
  EXPECT_TRUE(array->empty());
  EXPECT_THROW(array->removeLastObject(), ZTRangeException);
  EXPECT_TRUE(indexIsExact(*array));
}

TEST(MapArray, RangeAndArrayRemovals) {
  auto array = ItemArray::create({{1, ""}, {2, ""}, {3, ""}, {4, ""}, {5, ""}}, byId());
  ASSERT_TRUE(array);
  array->removeObjectsInRange(1, 2);
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 4, 5}));
  EXPECT_TRUE(indexIsExact(*array));
  array->removeObjectsInRange(2, 10);
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 4}));
  array->removeObjectsInRange(7, 1);
  array->removeObjectsInArray({{4, ""}, {8, ""}});
  EXPECT_EQ(ids(*array), (std::vector<int>{1}));
  EXPECT_TRUE(indexIsExact(*array));
  array->removeAllObjects();
  EXPECT_TRUE(array->empty());
  EXPECT_TRUE(array->allKeys().empty());
}

TEST(MapArray, ReplacementKeepsKeysUnique) {
  auto array = ItemArray::create({{1, "a"}, {2, "b"}}, byId());
  ASSERT_TRUE(array);
  EXPECT_TRUE(array->replaceObjectAtIndex(0, {1, "a, renamed"}));
  EXPECT_EQ((*array)[0].label, "a, renamed");
  EXPECT_FALSE(array->replaceObjectAtIndex(0, {2, "steals b's key"}));
  EXPECT_EQ((*array)[0].label, "a, renamed");
  EXPECT_TRUE(array->replaceObjectAtIndex(1, {7, "new key"}));
  EXPECT_FALSE(array->containsKey(2));
  EXPECT_EQ(array->indexForKey(7), 1u);
  EXPECT_TRUE(indexIsExact(*array));
  EXPECT_THROW((void)array->replaceObjectAtIndex(2, {8, ""}), ZTRangeException);
}

TEST(MapArray, ReplacingWithTheSameSharedObjectChangesNothing) {
  using Shared = std::shared_ptr<Item>;
  ZTMutableMapArray<Shared, int> array([](const Shared& item) { return item->id; });
  auto item = std::make_shared<Item>(Item{1, "a"});
  ASSERT_TRUE(array.addObject(item));
  EXPECT_TRUE(array.replaceObjectAtIndex(0, item));
  EXPECT_EQ(array[0], item);
  auto twin = std::make_shared<Item>(Item{1, "twin"});
  EXPECT_TRUE(array.replaceObjectAtIndex(0, twin));
  EXPECT_EQ(array[0], twin);
  EXPECT_TRUE(indexIsExact(array));
}

TEST(MapArray, MoveAndExchange) {
  auto array = ItemArray::create({{1, ""}, {2, ""}, {3, ""}}, byId());
  ASSERT_TRUE(array);
  array->moveObjectAtIndex(0, 2);
  EXPECT_EQ(ids(*array), (std::vector<int>{2, 3, 1}));
  array->moveObjectAtIndex(2, 0);
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 2, 3}));
  array->moveObjectAtIndex(0, 99);
  EXPECT_EQ(ids(*array), (std::vector<int>{2, 3, 1}));
  EXPECT_THROW(array->moveObjectAtIndex(3, 0), ZTRangeException);
  EXPECT_TRUE(indexIsExact(*array));

  array->exchangeObjectAtIndex(1, 1);
  EXPECT_EQ(ids(*array), (std::vector<int>{2, 3, 1}));
  array->exchangeObjectAtIndex(0, 2);
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 3, 2}));
  EXPECT_THROW(array->exchangeObjectAtIndex(0, 3), ZTRangeException);
  EXPECT_TRUE(indexIsExact(*array));
}

TEST(MapArray, SortingReindexesEverything) {
  auto array = ItemArray::create({{3, "c"}, {1, "a"}, {2, "b"}}, byId());
  ASSERT_TRUE(array);
  array->sort([](const Item& a, const Item& b) { return a.id < b.id; });
  EXPECT_EQ(ids(*array), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(indexIsExact(*array));
  array->sortUsingComparator([](const Item& a, const Item& b) { return b.id <=> a.id; });
  EXPECT_EQ(ids(*array), (std::vector<int>{3, 2, 1}));
  EXPECT_TRUE(indexIsExact(*array));
}

template <class Comparator>
constexpr bool insertsWith = requires(ZTMutableMapArray<int>& array, Comparator comparator) {
  array.insertObject(4, comparator);
};
template <class Comparator>
constexpr bool sortsWith = requires(ZTMutableMapArray<int>& array, Comparator comparator) {
  array.sortUsingComparator(comparator);
};

TEST(MapArray, SortedInsertionByComparator) {
  auto numbers = ZTMutableMapArray<int>::create({1, 3, 5});
  ASSERT_TRUE(numbers);
  auto ascending = [](int element, int object) { return element <=> object; };
  EXPECT_EQ(numbers->insertObject(4, ascending), 2u);
  EXPECT_EQ(numbers->objects(), (std::vector<int>{1, 3, 4, 5}));
  EXPECT_EQ(numbers->insertObject(3, ascending), ZTNotFound);
  EXPECT_EQ(numbers->insertObject(0, ascending), 0u);
  EXPECT_EQ(numbers->insertObject(9, ascending), 5u);
  EXPECT_EQ(numbers->objects(), (std::vector<int>{0, 1, 3, 4, 5, 9}));
  EXPECT_TRUE(indexIsExact(*numbers));

  ZTMutableMapArray<int> empty;
  EXPECT_EQ(empty.insertObject(7, ascending), 0u);

  // "Less than" predicates are not comparators (see comparison.h); sort() is the form that takes them.
  static_assert(!insertsWith<std::less<>> && !sortsWith<std::less<>>);
  static_assert(insertsWith<decltype(ascending)> && sortsWith<decltype(ascending)>);
}

TEST(MapArray, SortedInsertionLandsBeforeTheProbedEqualElement) {
  // Keys differ, sort ranks collide: the new element goes in front of the equal one the probes hit.
  ItemArray array(byId());
  for (int id = 0; id < 5; ++id) ASSERT_TRUE(array.addObject({id, "rank"}));
  auto byLabel = [](const Item& element, const Item& object) { return element.label.compare(object.label); };
  const std::size_t index = array.insertObject(Item{10, "rank"}, byLabel);
  EXPECT_EQ(index, 2u);
  EXPECT_EQ(array[2].id, 10);
  EXPECT_EQ(array[3].id, 2);
  EXPECT_TRUE(indexIsExact(array));
}

struct Version {
  int major;
  int compare(const Version& other) const {
    return major < other.major ? -1 : major > other.major ? 1 : 0;
  }
};

TEST(MapArray, SortedInsertionByComparisonMethod) {
  ZTMutableMapArray<std::shared_ptr<Version>, int> versions(
      [](const std::shared_ptr<Version>& version) { return version->major; });
  for (int major : {1, 4, 9}) ASSERT_TRUE(versions.addObject(std::make_shared<Version>(Version{major})));
  EXPECT_EQ(versions.insertObject(std::make_shared<Version>(Version{5}), &Version::compare), 2u);
  EXPECT_EQ(versions.insertObject(std::make_shared<Version>(Version{4}), &Version::compare), ZTNotFound);
  EXPECT_TRUE(indexIsExact(versions));
}

// Random sequences of every kind of mutation; after each one the index must be exact and the
// contents must match a plain vector that went through the same steps.
TEST(MapArray, IndexStaysExactUnderRandomMutations) {
  std::mt19937 random(20261122);
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  ItemArray array(byId());
  std::vector<int> model;
  auto contains = [&](int id) { return std::find(model.begin(), model.end(), id) != model.end(); };

  for (int step = 0; step < 4000; ++step) {
    const int id = pick(60);
    const std::size_t size = model.size();
    switch (pick(11)) {
      case 0:
        EXPECT_EQ(array.addObject({id, ""}), !contains(id));
        if (!contains(id)) model.push_back(id);
        break;
      case 1: {
        const std::size_t at = size == 0 ? 0 : static_cast<std::size_t>(pick(static_cast<int>(size) + 1));
        const bool fresh = !contains(id);
        EXPECT_EQ(array.insertObject({id, ""}, at), fresh);
        if (fresh) model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), id);
        break;
      }
      case 2: {
        const std::size_t at = static_cast<std::size_t>(pick(static_cast<int>(size) + 2));
        array.removeObjectAtIndex(at);
        if (at < size) model.erase(model.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      }
      case 3:
        array.removeObjectForKey(id);
        std::erase(model, id);
        break;
      case 4:
        if (size > 0) {
          const auto at = static_cast<std::size_t>(pick(static_cast<int>(size)));
          const bool taken = contains(id) && model[at] != id;
          EXPECT_EQ(array.replaceObjectAtIndex(at, {id, "r"}), !taken);
          if (!taken) model[at] = id;
        }
        break;
      case 5:
        if (size > 0) {
          const auto from = static_cast<std::size_t>(pick(static_cast<int>(size)));
          const auto to = static_cast<std::size_t>(pick(static_cast<int>(size) + 1));
          array.moveObjectAtIndex(from, to);
          const int moved = model[from];
          model.erase(model.begin() + static_cast<std::ptrdiff_t>(from));
          if (to >= model.size()) model.push_back(moved);
          else model.insert(model.begin() + static_cast<std::ptrdiff_t>(to), moved);
        }
        break;
      case 6:
        if (size > 1) {
          const auto a = static_cast<std::size_t>(pick(static_cast<int>(size)));
          const auto b = static_cast<std::size_t>(pick(static_cast<int>(size)));
          array.exchangeObjectAtIndex(a, b);
          std::swap(model[a], model[b]);
        }
        break;
      case 7: {
        const std::size_t location = static_cast<std::size_t>(pick(static_cast<int>(size) + 1));
        const std::size_t length = static_cast<std::size_t>(pick(4));
        array.removeObjectsInRange(location, length);
        if (location < size)
          model.erase(model.begin() + static_cast<std::ptrdiff_t>(location),
                      model.begin() + static_cast<std::ptrdiff_t>(std::min(size, location + length)));
        break;
      }
      case 8: {
        std::vector<Item> batch{{id, ""}, {id + 100, ""}};
        const bool fresh = !contains(id) && !contains(id + 100);
        EXPECT_EQ(array.addObjectsFromArray(batch), fresh);
        if (fresh) {
          model.push_back(id);
          model.push_back(id + 100);
        }
        break;
      }
      case 9:
        if (size > 0 && pick(4) == 0) {
          array.removeLastObject();
          model.pop_back();
        }
        break;
      case 10:
        if (pick(20) == 0) {
          array.sort([](const Item& a, const Item& b) { return a.id < b.id; });
          std::sort(model.begin(), model.end());
        }
        break;
    }
    ASSERT_TRUE(indexIsExact(array)) << "after step " << step;
    ASSERT_EQ(ids(array), model) << "after step " << step;
  }
}

}  // namespace
