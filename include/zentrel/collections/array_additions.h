#pragma once
// Conveniences for sequences (std::vector and anything with the same interface), as free functions
// in namespace zt: binary search and sorted insertion, windows around an index, deep copy, mapping
// and filtering, stack operations and construction from a terminated argument list.
//
// Comparators follow comparison.h: called as comparator(element, object), answering how the element
// orders against the object; a pointer to a member function of the element type works as well.
// Not found is ZTNotFound. Everything here is stateless and takes no locks: thread safety is that
// of the container passed in.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "zentrel/collections/comparison.h"
#include "zentrel/collections/copying.h"
#include "zentrel/collections/internal/object_traits.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/not_found.h"

namespace zt {

namespace detail {

// Calls a per-element callable written as f(object), f(object, index) or f(object, index, stop).
template <class F, class T>
decltype(auto) callWithIndex(F& function, const T& object, std::size_t index, bool& stop) {
  if constexpr (std::is_invocable_v<F&, const T&, std::size_t, bool&>) return function(object, index, stop);
  else if constexpr (std::is_invocable_v<F&, const T&, std::size_t>) return function(object, index);
  else return function(object);
}

// The binary search probes shared by the search and the insertion: (found, index). When found,
// index is the probed equal element; otherwise the insertion point.
template <class Sequence, class T, class Comparator>
std::pair<bool, std::size_t> probeSorted(const Sequence& array, const T& object, Comparator& comparator) {
  std::size_t low = 0;
  std::size_t n = array.size();
  while (n > 0) {
    const std::size_t half = n / 2;
    const std::size_t mid = low + half;
    switch (compareElement(comparator, array[mid], object)) {
      case zt::detail::Order::Ascending:
        low = mid + 1;
        n = n - half - 1;
        break;
      case zt::detail::Order::Descending:
        n = half;
        break;
      case zt::detail::Order::Same:
        return {true, mid};
    }
  }
  return {false, low};
}

}  // namespace detail

// The index of an element that compares same as the object, found by binary search, or ZTNotFound.
// Among several equal elements, whichever the probes meet first is answered, not necessarily the
// first of the run. An empty array answers ZTNotFound without calling the comparator.
template <class Sequence, class T, class Comparator>
  requires ZTComparatorFor<Comparator, typename Sequence::value_type, T>
std::size_t indexOfObject(const Sequence& array, const T& object, Comparator comparator) {
  const auto [found, index] = detail::probeSorted(array, object, comparator);
  return found ? index : ZTNotFound;
}

// Inserts into an array sorted by the comparator and answers the index of insertion. Among equal
// elements the object goes in front of the one the probes met, which is not the end of the run of
// equals: callers that need first-in-first-out order among equals must not rely on it. With
// allowDuplicates false an equal element makes it answer ZTNotFound and insert nothing.
template <class T, class Alloc, class U, class Comparator>
  requires ZTComparatorFor<Comparator, T, std::remove_cvref_t<U>>
[[nodiscard]] std::size_t insertObject(std::vector<T, Alloc>& array, U&& object, bool allowDuplicates,
                                       Comparator comparator) {
  const auto [found, index] = detail::probeSorted(array, object, comparator);
  if (found && !allowDuplicates) return ZTNotFound;
  array.insert(array.begin() + static_cast<std::ptrdiff_t>(index), std::forward<U>(object));
  return index;
}
// The same with duplicates allowed (the form for a comparison method).
template <class T, class Alloc, class U, class Comparator>
  requires ZTComparatorFor<Comparator, T, std::remove_cvref_t<U>>
std::size_t insertObject(std::vector<T, Alloc>& array, U&& object, Comparator comparator) {
  return insertObject(array, std::forward<U>(object), true, std::move(comparator));
}

// Removes the element the binary search finds (only that one); true when something was removed.
template <class T, class Alloc, class U, class Comparator>
  requires ZTComparatorFor<Comparator, T, U>
bool removeObject(std::vector<T, Alloc>& array, const U& object, Comparator comparator) {
  const std::size_t index = indexOfObject(array, object, std::move(comparator));
  if (index == ZTNotFound) return false;
  array.erase(array.begin() + static_cast<std::ptrdiff_t>(index));
  return true;
}

// The items from index to the end. An index at or past the count throws ZTRangeException with the
// reason "Index <index> is out of bounds." — the count itself included.
template <class T, class Alloc>
std::vector<T, Alloc> subarrayFromIndex(const std::vector<T, Alloc>& array, std::size_t index) {
  if (index >= array.size()) throw ZTRangeException("Index " + std::to_string(index) + " is out of bounds.");
  return std::vector<T, Alloc>(array.begin() + static_cast<std::ptrdiff_t>(index), array.end());
}

// A window of `lenght` items that contains the item at index: centred on it for an odd length; for
// an even length the item is the one just before the centre (length 4 gives index−1 … index+2).
// Near either end the window slides to stay inside the array. std::nullopt when the array has fewer
// than `lenght` items; length 1 with an index past the end throws ZTRangeException.
template <class T, class Alloc>
std::optional<std::vector<T, Alloc>> subarrayWithItemAtIndex(const std::vector<T, Alloc>& array, std::size_t index,
                                                             std::size_t lenght) {
  const std::size_t count = array.size();
  if (count < lenght) return std::nullopt;
  auto range = [&](std::size_t location, std::size_t length) {
    return std::vector<T, Alloc>(array.begin() + static_cast<std::ptrdiff_t>(location),
                                 array.begin() + static_cast<std::ptrdiff_t>(location + length));
  };
  if (lenght == 1) {
    if (index >= count)
      throw ZTRangeException("Index " + std::to_string(index) + " beyond bounds of an array of " +
                             std::to_string(count) + " items.");
    return range(index, 1);
  }
  const auto i = static_cast<std::int64_t>(std::min<std::size_t>(index, ZTNotFound));
  const auto length = static_cast<std::int64_t>(lenght);
  const std::int64_t start = i - (length % 2) - length / 2 + 1;
  const bool over = i + length / 2 > static_cast<std::int64_t>(count) - 1;
  if (start < 0) return range(0, lenght);
  if (over) return range(count - lenght, lenght);
  return range(static_cast<std::size_t>(start), lenght);
}

// A copy in which every element is independent of the original: values are copied; objects held by
// pointer are copied through ZTCopying, and those that are not ZTCopying (and null pointers) are
// left out of the result rather than shared.
template <class T, class Alloc>
std::vector<T, Alloc> deepCopy(const std::vector<T, Alloc>& array) {
  if constexpr (detail::IsSharedPtr<T>::value) {
    using Object = typename T::element_type;
    std::vector<T, Alloc> copies;
    copies.reserve(array.size());
    for (const T& element : array) {
      const ZTCopying* copyable = nullptr;
      if constexpr (std::is_convertible_v<Object*, const ZTCopying*>) copyable = element.get();
      else if constexpr (std::is_polymorphic_v<Object>) copyable = dynamic_cast<const ZTCopying*>(element.get());
      if (!copyable) continue;
      if (auto copy = std::dynamic_pointer_cast<Object>(copyable->copy())) copies.push_back(std::move(copy));
    }
    return copies;
  } else {
    static_assert(!std::is_pointer_v<T>, "deepCopy of raw pointers cannot own the copies; hold them in shared_ptr.");
    return array;
  }
}

// The results of block(object, index, stop) (or block(object)) in order; the block may set stop to
// end early. Nil results (null pointers, empty optionals) are left out; optionals are unwrapped.
template <class T, class Alloc, class Block>
auto mapObjectsUsingBlock(const std::vector<T, Alloc>& array, Block block) {
  bool stop = false;
  using R = std::decay_t<decltype(detail::callWithIndex(block, array.front(), 0, stop))>;
  if constexpr (detail::IsOptional<R>::value) {
    std::vector<typename R::value_type> results;
    results.reserve(array.size());
    for (std::size_t i = 0; i < array.size() && !stop; ++i)
      if (R result = detail::callWithIndex(block, array[i], i, stop)) results.push_back(std::move(*result));
    return results;
  } else {
    std::vector<R> results;
    results.reserve(array.size());
    for (std::size_t i = 0; i < array.size() && !stop; ++i) {
      R result = detail::callWithIndex(block, array[i], i, stop);
      if (!detail::isNil(result)) results.push_back(std::move(result));
    }
    return results;
  }
}

// The first element for which test(object, index, stop) (or test(object)) is true, or nullptr.
// The pointer is valid until the array changes.
template <class T, class Alloc, class Test>
const T* objectPassingTest(const std::vector<T, Alloc>& array, Test test) {
  bool stop = false;
  for (std::size_t i = 0; i < array.size() && !stop; ++i)
    if (detail::callWithIndex(test, array[i], i, stop)) return &array[i];
  return nullptr;
}

// The elements for which the test is true, in order; an empty std::function gives the whole array.
template <class T, class Alloc>
std::vector<T, Alloc> filteredArrayUsingBlock(const std::vector<T, Alloc>& array,
                                              const std::type_identity_t<std::function<bool(const T&)>>& test) {
  if (!test) return array;
  std::vector<T, Alloc> kept;
  std::copy_if(array.begin(), array.end(), std::back_inserter(kept), test);
  return kept;
}

// The objects up to, not including, the first one identical to the terminator (the same pointer);
// nil arguments are skipped and do not end the list. For pointer-like elements (raw pointers,
// shared_ptr).
template <class P, class... Objects>
std::vector<P> arrayWithTerminateObject(const P& terminator, const Objects&... objects) {
  std::vector<P> result;
  result.reserve(sizeof...(objects));
  bool terminated = false;
  auto collect = [&](const P& object) {
    if (terminated) return;
    if (object == terminator) terminated = true;
    else if (!detail::isNil(object)) result.push_back(object);
  };
  (collect(P(objects)), ...);
  return result;
}

// The object `count` times; a count of 0 or below gives an empty array.
template <class T>
std::vector<T> arrayWithRepeatedObject(const T& object, std::int64_t count) {
  return count <= 0 ? std::vector<T>() : std::vector<T>(static_cast<std::size_t>(count), object);
}

// Stack operations. pop() of an empty array throws ZTRangeException.
template <class T, class Alloc, class U>
void push(std::vector<T, Alloc>& array, U&& object) {
  array.push_back(std::forward<U>(object));
}
template <class T, class Alloc>
T pop(std::vector<T, Alloc>& array) {
  if (array.empty()) throw ZTRangeException("pop from an empty array");
  T last = std::move(array.back());
  array.pop_back();
  return last;
}

// Removes, in one pass, every element for which test(object, index, stop) (or test(object)) is
// true; indexes are those of the array before the removal. Answers how many went.
template <class T, class Alloc, class Test>
std::size_t removeObjectsPassingTest(std::vector<T, Alloc>& array, Test test) {
  std::vector<bool> doomed(array.size(), false);
  bool stop = false;
  for (std::size_t i = 0; i < array.size() && !stop; ++i) doomed[i] = detail::callWithIndex(test, array[i], i, stop);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < array.size(); ++i)
    if (!doomed[i]) {
      if (kept != i) array[kept] = std::move(array[i]);
      ++kept;
    }
  const std::size_t removed = array.size() - kept;
  array.erase(array.begin() + static_cast<std::ptrdiff_t>(kept), array.end());
  return removed;
}

// Takes the element at `from` out and puts it at `to` — appended when `to` is at or past the count
// once it is out. A move, not a swap. `from` past the end throws ZTRangeException.
template <class T, class Alloc>
void moveObjectAtIndex(std::vector<T, Alloc>& array, std::size_t from, std::size_t to) {
  if (from >= array.size())
    throw ZTRangeException("Index " + std::to_string(from) + " beyond bounds of an array of " +
                           std::to_string(array.size()) + " items.");
  T object = std::move(array[from]);
  array.erase(array.begin() + static_cast<std::ptrdiff_t>(from));
  if (to >= array.size()) array.push_back(std::move(object));
  else array.insert(array.begin() + static_cast<std::ptrdiff_t>(to), std::move(object));
}

}  // namespace zt
