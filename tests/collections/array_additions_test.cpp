#include "zentrel/collections/array_additions.h"

#include <gtest/gtest.h>

#include <compare>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "zentrel/collections/set_additions.h"

namespace {

using Ints = std::vector<int>;

auto ascending = [](int element, int object) { return element <=> object; };

TEST(SortedSearch, FindsByBinarySearchAndCountsNoProbesOnEmpty) {
  int calls = 0;
  auto counting = [&](int element, int object) {
    ++calls;
    return element <=> object;
  };
  EXPECT_EQ(zt::indexOfObject(Ints{}, 3, counting), ZTNotFound);
  EXPECT_EQ(calls, 0);

  const Ints odd{1, 3, 5, 7, 9};
  for (std::size_t i = 0; i < odd.size(); ++i) EXPECT_EQ(zt::indexOfObject(odd, odd[i], ascending), i);
  EXPECT_EQ(zt::indexOfObject(odd, 4, ascending), ZTNotFound);
  EXPECT_EQ(zt::indexOfObject(odd, 0, ascending), ZTNotFound);
  EXPECT_EQ(zt::indexOfObject(odd, 10, ascending), ZTNotFound);
}

// With a run of equal elements the answer is the one the probes meet first: for n elements the
// first probe is n/2.
TEST(SortedSearch, RunsOfEqualElementsAnswerTheFirstProbedOne) {
  EXPECT_EQ(zt::indexOfObject(Ints{2, 2, 2, 2, 2}, 2, ascending), 2u);
  EXPECT_EQ(zt::indexOfObject(Ints{1, 2, 2, 2, 2, 2, 2}, 2, ascending), 3u);
  // 8 elements: probes 4 (3 > 2, descending), then low=0 n=4 -> probe 2 (2 == 2).
  EXPECT_EQ(zt::indexOfObject(Ints{1, 2, 2, 2, 3, 3, 3, 3}, 2, ascending), 2u);
}

TEST(SortedInsertion, RefusesOrAcceptsDuplicatesWhereTheProbesLand) {
  Ints numbers{1, 3, 5, 7};
  EXPECT_EQ(zt::insertObject(numbers, 5, false, ascending), ZTNotFound);
  EXPECT_EQ(numbers, (Ints{1, 3, 5, 7}));
  EXPECT_EQ(zt::insertObject(numbers, 5, true, ascending), 2u);
  EXPECT_EQ(numbers, (Ints{1, 3, 5, 5, 7}));

  Ints empty;
  EXPECT_EQ(zt::insertObject(empty, 4, false, ascending), 0u);
  EXPECT_EQ(zt::insertObject(empty, 9, ascending), 1u);
  EXPECT_EQ(zt::insertObject(empty, 0, ascending), 0u);
  EXPECT_EQ(empty, (Ints{0, 4, 9}));
}

TEST(SortedInsertion, NewEqualElementGoesAheadOfTheProbedOneNotAtTheEndOfTheRun) {
  struct Job {
    int priority;
    int id;
  };
  auto byPriority = [](const Job& element, const Job& object) { return element.priority <=> object.priority; };
  std::vector<Job> jobs{{1, 0}, {1, 1}, {1, 2}, {1, 3}};
  EXPECT_EQ(zt::insertObject(jobs, Job{1, 9}, byPriority), 2u);
  std::vector<int> ids;
  for (const Job& job : jobs) ids.push_back(job.id);
  EXPECT_EQ(ids, (Ints{0, 1, 9, 2, 3}));
}

struct Version {
  int number;
  int compare(const Version& other) const {
    return number < other.number ? -1 : number > other.number ? 1 : 0;
  }
};

TEST(SortedInsertion, ComparisonMethodAndRemoval) {
  std::vector<Version> versions{{1}, {4}, {6}};
  EXPECT_EQ(zt::insertObject(versions, Version{5}, &Version::compare), 2u);
  EXPECT_EQ(zt::indexOfObject(versions, Version{6}, &Version::compare), 3u);

  std::vector<std::shared_ptr<Version>> shared{std::make_shared<Version>(Version{2})};
  EXPECT_EQ(zt::insertObject(shared, std::make_shared<Version>(Version{3}), &Version::compare), 1u);

  Ints numbers{1, 2, 2, 3};
  EXPECT_TRUE(zt::removeObject(numbers, 2, ascending));
  EXPECT_EQ(numbers, (Ints{1, 2, 3}));
  EXPECT_FALSE(zt::removeObject(numbers, 7, ascending));
}

// An ordering enumeration and a comparator of the pointees, as a scheduler would write them.
enum class Ordering { Ascending = -1, Same = 0, Descending = 1 };
struct Task {
  int priority;
};
Ordering higherPriorityFirst(const Task& a, const Task& b) {
  if (a.priority == b.priority) return Ordering::Same;
  return a.priority > b.priority ? Ordering::Ascending : Ordering::Descending;
}

TEST(SortedInsertion, PointeeComparatorOverSharedElements) {
  std::vector<std::shared_ptr<Task>> ready;
  for (int priority : {1, 8, 4, 8, 0}) zt::insertObject(ready, std::make_shared<Task>(Task{priority}), higherPriorityFirst);
  std::vector<int> order;
  for (const auto& task : ready) order.push_back(task->priority);
  EXPECT_EQ(order, (Ints{8, 8, 4, 1, 0}));
  EXPECT_EQ(zt::indexOfObject(ready, std::make_shared<Task>(Task{4}), higherPriorityFirst), 2u);
}

// A "less than" predicate answers another question than a comparator; read as an ordering its true
// would mean "descending", so zt::removeObject(v, 4, std::less<>()) on {1, 3, 5, 7} removed 5.
// Every function that takes a comparator refuses a callable answering bool, at compile time.
template <class Comparator>
constexpr bool searchable = requires(const Ints& numbers, Comparator comparator) {
  zt::indexOfObject(numbers, 4, comparator);
};
template <class Comparator>
constexpr bool removable = requires(Ints& numbers, Comparator comparator) { zt::removeObject(numbers, 4, comparator); };
template <class Comparator>
constexpr bool insertable = requires(Ints& numbers, Comparator comparator) {
  zt::insertObject(numbers, 4, comparator);
  zt::insertObject(numbers, 4, false, comparator);
};
template <class Comparator>
constexpr bool comparesSharedVersions = requires(std::vector<std::shared_ptr<Version>>& versions,
                                                 std::shared_ptr<Version> object, Comparator comparator) {
  zt::insertObject(versions, object, comparator);
};
template <class Comparator>
constexpr bool acceptedEverywhere = searchable<Comparator> && removable<Comparator> && insertable<Comparator>;
template <class Comparator>
constexpr bool refusedEverywhere = !searchable<Comparator> && !removable<Comparator> && !insertable<Comparator>;

struct Answer {
  operator int() const { return 0; }
};
struct BoolMethodVersion {
  int number;
  bool lessThan(const BoolMethodVersion& other) const { return number < other.number; }
};

TEST(SortedSearch, PredicatesAnsweringBoolAreRefusedAsComparators) {
  auto lessThan = [](int element, int object) { return element < object; };
  static_assert(refusedEverywhere<std::less<>>);
  static_assert(refusedEverywhere<std::greater<int>>);
  static_assert(refusedEverywhere<decltype(lessThan)>);
  static_assert(refusedEverywhere<bool (*)(int, int)>);
  static_assert(refusedEverywhere<Answer (*)(int, int)>);
  // Over pointers, a bool predicate of the pointees is refused too, and so is a bool method.
  static_assert(!comparesSharedVersions<std::less<>>);
  static_assert(!comparesSharedVersions<bool (*)(const Version&, const Version&)>);
  static_assert(!ZTComparatorFor<decltype(&BoolMethodVersion::lessThan), BoolMethodVersion>);

  static_assert(acceptedEverywhere<decltype(ascending)>);
  static_assert(acceptedEverywhere<std::compare_three_way>);
  static_assert(acceptedEverywhere<int (*)(int, int)>);
  static_assert(acceptedEverywhere<Ordering (*)(int, int)>);
  static_assert(comparesSharedVersions<decltype(&Version::compare)>);

  // What the removal does with a three-way comparison: the 4 is absent, nothing goes.
  Ints numbers{1, 3, 5, 7};
  EXPECT_FALSE(zt::removeObject(numbers, 4, std::compare_three_way()));
  EXPECT_EQ(numbers, (Ints{1, 3, 5, 7}));
}

TEST(Subarrays, FromIndexRefusesTheCountItself) {
  const Ints items{0, 1, 2};
  EXPECT_EQ(zt::subarrayFromIndex(items, 1), (Ints{1, 2}));
  EXPECT_EQ(zt::subarrayFromIndex(items, 2), (Ints{2}));
  try {
    zt::subarrayFromIndex(items, 3);
    FAIL() << "index 3 of 3 items must raise";
  } catch (const ZTRangeException& error) {
    EXPECT_STREQ(error.what(), "Index 3 is out of bounds.");
  }
}

TEST(Subarrays, WindowsSlideToStayInside) {
  Ints ten;
  for (int i = 0; i < 10; ++i) ten.push_back(i);
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 0, 3), (Ints{0, 1, 2}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 9, 3), (Ints{7, 8, 9}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 5, 3), (Ints{4, 5, 6}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 5, 4), (Ints{4, 5, 6, 7}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 1, 4), (Ints{0, 1, 2, 3}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 8, 4), (Ints{6, 7, 8, 9}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 4, 10), ten);
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 3, 1), (Ints{3}));
  EXPECT_EQ(zt::subarrayWithItemAtIndex(ten, 3, 11), std::nullopt);
  EXPECT_THROW(zt::subarrayWithItemAtIndex(ten, 10, 1), ZTRangeException);
}

class Shape {
 public:
  virtual ~Shape() = default;
  int sides = 0;
};
class Polygon : public Shape, public ZTCopying {
 public:
  std::shared_ptr<ZTCopying> copy() const override { return std::make_shared<Polygon>(*this); }
};

TEST(DeepCopy, CopiesWhatCanBeCopiedAndLeavesTheRestOut) {
  auto polygon = std::make_shared<Polygon>();
  polygon->sides = 5;
  std::vector<std::shared_ptr<Shape>> shapes{polygon, std::make_shared<Shape>(), nullptr};
  auto copies = zt::deepCopy(shapes);
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_NE(copies[0], polygon);
  EXPECT_EQ(copies[0]->sides, 5);
  polygon->sides = 6;
  EXPECT_EQ(copies[0]->sides, 5);

  const std::vector<std::string> words{"a", "b"};
  EXPECT_EQ(zt::deepCopy(words), words);
}

TEST(MappingAndFiltering, MapSkipsNilAndStopsEarly) {
  const Ints numbers{1, 2, 3, 4, 5};
  auto halves = zt::mapObjectsUsingBlock(numbers, [](int n) -> std::optional<int> {
    if (n % 2) return std::nullopt;
    return n / 2;
  });
  EXPECT_EQ(halves, (Ints{1, 2}));
  auto firstThree = zt::mapObjectsUsingBlock(numbers, [](int n, std::size_t index, bool& stop) {
    stop = index == 2;
    return std::to_string(n);
  });
  EXPECT_EQ(firstThree, (std::vector<std::string>{"1", "2", "3"}));

  EXPECT_EQ(*zt::objectPassingTest(numbers, [](int n) { return n > 3; }), 4);
  EXPECT_EQ(zt::objectPassingTest(numbers, [](int n) { return n > 9; }), nullptr);
  EXPECT_EQ(zt::objectPassingTest(numbers, [](int, std::size_t, bool& stop) { return stop = true, false; }), nullptr);

  EXPECT_EQ(zt::filteredArrayUsingBlock(numbers, [](const int& n) { return n % 2 == 1; }), (Ints{1, 3, 5}));
  EXPECT_EQ(zt::filteredArrayUsingBlock(numbers, nullptr), numbers);
  const int threshold = 4;
  Ints sorted{1, 3, 5};
  EXPECT_EQ(zt::insertObject(sorted, threshold, false, ascending), 2u);
}

TEST(Construction, TerminatedListSkipsNilsAndStopsAtTheTerminator) {
  auto a = std::make_shared<std::string>("a");
  auto b = std::make_shared<std::string>("b");
  auto end = std::make_shared<std::string>("T");
  auto equalToEnd = std::make_shared<std::string>("T");
  using Ptr = std::shared_ptr<std::string>;
  EXPECT_EQ(zt::arrayWithTerminateObject(end, a, Ptr(), b, end, a), (std::vector<Ptr>{a, b}));
  EXPECT_EQ(zt::arrayWithTerminateObject(end, end, a), (std::vector<Ptr>{}));
  EXPECT_EQ(zt::arrayWithTerminateObject(end, equalToEnd, end), (std::vector<Ptr>{equalToEnd}));

  EXPECT_EQ(zt::arrayWithRepeatedObject(7, 3), (Ints{7, 7, 7}));
  EXPECT_TRUE(zt::arrayWithRepeatedObject(7, 0).empty());
  EXPECT_TRUE(zt::arrayWithRepeatedObject(7, -2).empty());
}

TEST(MutableArrays, StackAndMoves) {
  Ints stack;
  zt::push(stack, 1);
  zt::push(stack, 2);
  EXPECT_EQ(zt::pop(stack), 2);
  EXPECT_EQ(zt::pop(stack), 1);
  EXPECT_THROW(zt::pop(stack), ZTRangeException);

  std::vector<std::string> letters{"a", "b", "c"};
  zt::moveObjectAtIndex(letters, 0, 2);
  EXPECT_EQ(letters, (std::vector<std::string>{"b", "c", "a"}));
  zt::moveObjectAtIndex(letters, 2, 0);
  EXPECT_EQ(letters, (std::vector<std::string>{"a", "b", "c"}));
  zt::moveObjectAtIndex(letters, 0, 7);
  EXPECT_EQ(letters, (std::vector<std::string>{"b", "c", "a"}));
  EXPECT_THROW(zt::moveObjectAtIndex(letters, 3, 0), ZTRangeException);

  Ints numbers{5, 1, 6, 2, 7};
  EXPECT_EQ(zt::removeObjectsPassingTest(numbers, [](int n) { return n > 4; }), 3u);
  EXPECT_EQ(numbers, (Ints{1, 2}));
  Ints indexed{9, 9, 9, 9};
  zt::removeObjectsPassingTest(indexed, [](int, std::size_t index, bool&) { return index % 2 == 0; });
  EXPECT_EQ(indexed.size(), 2u);
}

TEST(Sets, RemovalAndArithmetic) {
  std::set<int> numbers{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(zt::removeObjectsPassingtest(numbers, [](int n) { return n % 2 == 0; }), 3u);
  EXPECT_EQ(numbers, (std::set<int>{1, 3, 5}));

  std::unordered_set<int> pool{1, 2, 3};
  zt::removeAnyObjects(pool, 0);
  EXPECT_EQ(pool.size(), 3u);
  zt::removeAnyObjects(pool, 2);
  EXPECT_EQ(pool.size(), 1u);
  zt::removeAnyObjects(pool, 5);
  EXPECT_TRUE(pool.empty());

  const std::set<int> a{1, 2, 3, 4};
  const std::unordered_set<int> b{3, 4, 5};
  EXPECT_EQ(zt::setByIntersecting(a, b), (std::set<int>{3, 4}));
  EXPECT_EQ(zt::setBySubtracting(a, b), (std::set<int>{1, 2}));
  EXPECT_EQ(a, (std::set<int>{1, 2, 3, 4}));
}

}  // namespace
