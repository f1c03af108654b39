#pragma once
// Ordering results and the comparators the sorted collections use.
//
// A comparator is called as comparator(element, object) — the element of the collection first,
// the searched or inserted object second — and answers how the element orders against the object:
//   ZTOrderedAscending  (negative): the element sorts before the object;
//   ZTOrderedSame       (zero):     they are equal for sorting;
//   ZTOrderedDescending (positive): the element sorts after the object.
// A comparator may return ZTComparisonResult, any integer (its sign is used) or a C++20 ordering
// (std::strong_ordering, std::weak_ordering, std::partial_ordering; unordered counts as same).
//
// Wherever a comparator is accepted, a pointer to a member function of the element type works too
// (the counterpart of a comparison selector): `&Version::compare` is called as
// element.compare(object), or element->compare(object) for pointer and shared_ptr elements; for
// those the method may take the pointee, element->compare(*object).

#include <compare>
#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

enum ZTComparisonResult : int {
  ZTOrderedAscending = -1,
  ZTOrderedSame = 0,
  ZTOrderedDescending = 1,
};

namespace zt::detail {

template <class R>
ZTComparisonResult normalizedComparison(const R& result) {
  if constexpr (std::is_same_v<R, std::strong_ordering> || std::is_same_v<R, std::weak_ordering> ||
                std::is_same_v<R, std::partial_ordering>) {
    if (result < 0) return ZTOrderedAscending;
    if (result > 0) return ZTOrderedDescending;
    return ZTOrderedSame;
  } else {
    const auto value = static_cast<long long>(result);
    if (value < 0) return ZTOrderedAscending;
    if (value > 0) return ZTOrderedDescending;
    return ZTOrderedSame;
  }
}

template <class C, class E, class O>
concept DirectComparator = std::invocable<C&, const E&, const O&>;
// A comparison method of the pointee applied to pointer elements: element->compare(*object).
template <class C, class E, class O>
concept PointeeComparator = !DirectComparator<C, E, O> && std::is_member_function_pointer_v<C> &&
                            requires(const O& object) { *object; } &&
                            std::invocable<C&, const E&, decltype(*std::declval<const O&>())>;

// Calls a comparator (callable or member-function pointer) with (element, object).
template <class Comparator, class E, class O>
ZTComparisonResult compareElement(Comparator& comparator, const E& element, const O& object) {
  if constexpr (DirectComparator<Comparator, E, O>) return normalizedComparison(std::invoke(comparator, element, object));
  else return normalizedComparison(std::invoke(comparator, element, *object));
}

}  // namespace zt::detail

// A comparator usable with elements of type E and searched objects of type O.
template <class C, class E, class O = E>
concept ZTComparatorFor =
    zt::detail::DirectComparator<C, E, O> || zt::detail::PointeeComparator<C, E, O>;
