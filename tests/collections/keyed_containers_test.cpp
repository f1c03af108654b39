// The small keyed containers: counted dictionary, non-retaining dictionary, pair, weak array.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zentrel/collections/counted_dictionary.h"
#include "zentrel/collections/non_retaining_dictionary.h"
#include "zentrel/collections/pair.h"
#include "zentrel/collections/weak_array.h"

namespace {

TEST(CountedDictionary, EqualObjectsAddUsesAndTheLastReleaseRemoves) {
  ZTCountedDictionary<std::string, std::string> uses;
  uses.setObject("font", "body");
  uses.setObject("font", "body");
  uses.setObject("font", "body");
  EXPECT_EQ(uses.countForObjectForKey("body"), 3u);
  EXPECT_EQ(uses.decreaseCountForObjectForKey("body"), 2u);
  EXPECT_EQ(uses.decreaseCountForObjectForKey("body"), 1u);
  EXPECT_EQ(uses.decreaseCountForObjectForKey("body"), 0u);
  EXPECT_EQ(uses.objectForKey("body"), nullptr);
  EXPECT_EQ(uses.decreaseCountForObjectForKey("body"), ZTNotFound);
  EXPECT_EQ(uses.count(), 0u);
}

TEST(CountedDictionary, ADifferentObjectResetsTheCount) {
  ZTCountedDictionary<std::string, std::string> uses;
  uses.setObject("a", "k");
  uses.setObject("a", "k");
  uses.setObject("b", "k");
  EXPECT_EQ(*uses.objectForKey("k"), "b");
  EXPECT_EQ(uses.countForObjectForKey("k"), 1u);
  EXPECT_EQ(uses.increaseCountForObjectForKey("k"), 2u);
  EXPECT_EQ(uses.increaseCountForObjectForKey("absent"), ZTNotFound);
  EXPECT_EQ(uses.count(), 1u);
}

// Objects are counted as equal by value, as the same text made three times is one object used thrice;
// pointees without == fall back to identity, and raw pointers are compared as addresses.
TEST(CountedDictionary, SharedObjectsCountByEqualPointees) {
  ZTCountedDictionary<std::string, std::shared_ptr<std::string>> uses;
  const auto first = std::make_shared<std::string>("body");
  uses.setObject(first, "font");
  uses.setObject(std::make_shared<std::string>("body"), "font");
  uses.setObject(std::make_shared<std::string>("body"), "font");
  EXPECT_EQ(uses.countForObjectForKey("font"), 3u);
  EXPECT_EQ(*uses.objectForKey("font"), first);
  uses.setObject(std::make_shared<std::string>("title"), "font");
  EXPECT_EQ(uses.countForObjectForKey("font"), 1u);

  struct Opaque {};
  ZTCountedDictionary<int, std::shared_ptr<Opaque>> opaque;
  const auto object = std::make_shared<Opaque>();
  opaque.setObject(object, 1);
  opaque.setObject(object, 1);
  opaque.setObject(std::make_shared<Opaque>(), 2);
  opaque.setObject(std::make_shared<Opaque>(), 2);
  EXPECT_EQ(opaque.countForObjectForKey(1), 2u);
  EXPECT_EQ(opaque.countForObjectForKey(2), 1u);

  const char text[] = "a";
  const char same[] = "a";
  ZTCountedDictionary<int, const char*> pointers;
  pointers.setObject(text, 1);
  pointers.setObject(same, 1);
  EXPECT_EQ(pointers.countForObjectForKey(1), 1u);

  // Counting by identity is one parameter away.
  ZTCountedDictionary<int, std::shared_ptr<std::string>, std::hash<int>, std::equal_to<int>, std::equal_to<>> byIdentity;
  byIdentity.setObject(std::make_shared<std::string>("body"), 1);
  byIdentity.setObject(std::make_shared<std::string>("body"), 1);
  EXPECT_EQ(byIdentity.countForObjectForKey(1), 1u);
}

TEST(CountedDictionary, ExplicitCountsAndNilObjects) {
  ZTCountedDictionary<int, std::shared_ptr<int>> uses(8);
  auto object = std::make_shared<int>(1);
  uses.setObject(object, 1, 5);
  EXPECT_EQ(uses.countForObjectForKey(1), 5u);
  uses.setObject(object, 1, 0);
  EXPECT_EQ(uses.countForObjectForKey(1), ZTNotFound);
  uses.setObject(object, 2);
  uses.setObject(nullptr, 2);
  EXPECT_EQ(uses.count(), 0u);

  uses.setObject(object, 3);
  uses.setObject(std::make_shared<int>(2), 4, 2);
  std::size_t total = 0;
  uses.enumerateKeysAndObjectsUsingBlock([&](int, const std::shared_ptr<int>&, std::size_t count, bool&) { total += count; });
  EXPECT_EQ(total, 3u);
  uses.removeObjectForKey(3);
  EXPECT_EQ(uses.count(), 1u);
  uses.removeAllObjects();
  EXPECT_EQ(uses.count(), 0u);
}

TEST(CountedDictionary, DescriptionListsCountsAndObjects) {
  ZTCountedDictionary<std::string, int> uses;
  uses.setObject(7, "seven");
  uses.setObject(7, "seven");
  const std::string text = uses.description();
  EXPECT_NE(text.find("ZTCountedDictionary"), std::string::npos) << text;
  EXPECT_NE(text.find("seven: <count: 2; object = 7>"), std::string::npos) << text;
}

TEST(NonRetainingDictionary, DeadValuesReadAsAbsent) {
  ZTNonRetainingDictionary<std::string, int> views;
  auto alive = std::make_shared<int>(1);
  auto doomed = std::make_shared<int>(2);
  views.setObject(alive, "alive");
  views.setObject(doomed, "doomed");
  EXPECT_EQ(views.count(), 2u);
  EXPECT_EQ(alive.use_count(), 1);

  doomed.reset();
  EXPECT_EQ(views.objectForKey("doomed"), nullptr);
  EXPECT_EQ(views.objectForKey("alive"), alive);
  EXPECT_EQ(views.count(), 1u);
  EXPECT_EQ(views.allKeys(), (std::vector<std::string>{"alive"}));

  views.setObject(nullptr, "alive");
  EXPECT_EQ(views.count(), 0u);
}

TEST(Pair, HoldsTwoValuesAndDescribesThem) {
  auto pair = ZTPair<int, std::string>::pairWithFirst(1, "one");
  pair.setSecond("uno");
  EXPECT_EQ(pair.first(), 1);
  EXPECT_EQ(pair.second(), "uno");
  const std::string text = pair.description();
  EXPECT_NE(text.find(": first = 1; second = uno>"), std::string::npos) << text;
  ZTPair<std::shared_ptr<int>> empty;
  EXPECT_EQ(empty.first(), nullptr);
}

struct Tag {
  std::string name;
  bool operator==(const Tag&) const = default;
};

TEST(WeakArray, RemovesEveryEqualEntry) {
  auto a = std::make_shared<Tag>(Tag{"a"});
  auto b = std::make_shared<Tag>(Tag{"b"});
  auto otherA = std::make_shared<Tag>(Tag{"a"});
  ZTWeakArray<Tag> tags({a, b, otherA, a});
  EXPECT_EQ(tags.indexOfObject(otherA), 0u);
  EXPECT_EQ(tags.indexesOfObject(a), (std::vector<std::size_t>{0, 2, 3}));
  tags.removeObject(a);
  ASSERT_EQ(tags.count(), 1u);
  EXPECT_EQ(tags[0], b);
  EXPECT_FALSE(tags.containsObject(nullptr));
  EXPECT_EQ(tags.indexOfObject(a), ZTNotFound);
}

TEST(WeakArray, NullEntriesAndCompaction) {
  auto x = std::make_shared<Tag>(Tag{"x"});
  auto y = std::make_shared<Tag>(Tag{"y"});
  ZTWeakArray<Tag> tags;
  tags.addObject(x);
  tags.addObject(nullptr);
  tags.addObject(y);
  y.reset();
  EXPECT_EQ(tags.count(), 3u);
  EXPECT_EQ(tags.lastObject(), nullptr);
  EXPECT_EQ(tags.lastNonNullableObject(), x);
  EXPECT_EQ(tags.firstNonNullableObject(), x);
  tags.ztCompact();
  EXPECT_EQ(tags.count(), 1u);
  EXPECT_EQ(tags.firstObject(), x);

  ZTWeakArray<Tag> empty;
  EXPECT_EQ(empty.firstObject(), nullptr);
  EXPECT_EQ(empty.lastNonNullableObject(), nullptr);
  empty.removeLastObject();
  EXPECT_THROW(empty.objectAtIndex(0), ZTRangeException);
}

TEST(WeakArray, ArrayVocabulary) {
  auto a = std::make_shared<Tag>(Tag{"a"});
  auto b = std::make_shared<Tag>(Tag{"b"});
  auto c = std::make_shared<Tag>(Tag{"c"});
  ZTWeakArray<Tag> tags;
  tags.addObjectsFromArray({a, b});
  tags.insertObject(c, 0);
  tags.insertObject(c, 3);
  EXPECT_THROW(tags.insertObject(c, 9), ZTRangeException);
  tags.exchangeObjectAtIndex(0, 1);
  EXPECT_EQ(tags.allObjects(), (std::vector<std::shared_ptr<Tag>>{a, c, b, c}));
  tags.replaceObjectAtIndex(3, a);
  tags.setObject(b, 4);
  tags.removeObjectsAtIndexes({3, 0});
  EXPECT_EQ(tags.allObjects(), (std::vector<std::shared_ptr<Tag>>{c, b, b}));
  EXPECT_THROW(tags.removeObjectsAtIndexes({0, 3}), ZTRangeException);
  EXPECT_EQ(tags.count(), 3u);
  tags.removeObjectAtIndex(0);
  tags.removeLastObject();
  EXPECT_EQ(tags.allObjects(), (std::vector<std::shared_ptr<Tag>>{b}));
  tags.removeAllObjects();
  EXPECT_TRUE(tags.empty());
}

}  // namespace
