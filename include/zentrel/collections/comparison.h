#pragma once
// The comparators the sorted collections use.
//
// A comparator is called as comparator(element, object) — the element of the collection first,
// the searched or inserted object second — and answers how the element orders against the object:
// negative (ascending: the element sorts before the object), zero (same) or positive (descending:
// the element sorts after the object). It may return any integer, any enumeration whose values are
// −1, 0 and +1 (such as ZTComparisonResult), or a C++20 ordering
// (std::strong_ordering, std::weak_ordering, std::partial_ordering; unordered counts as same).
//
// What a comparator may be:
//   - a callable taking (element, object);
//   - a pointer to a member function of the element type (the counterpart of a comparison method):
//     `&Version::compare` is called as element.compare(object), or element->compare(object) for
//     pointer and shared_ptr elements, where the method may also take the pointee (*object);
//   - for pointer and shared_ptr elements, a callable taking the pointees (*element, *object).

#include <compare>
#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace zt::detail {

enum class Order { Ascending = -1, Same = 0, Descending = 1 };

template <class R>
Order normalizedComparison(const R& result) {
  if constexpr (std::is_same_v<R, std::strong_ordering> || std::is_same_v<R, std::weak_ordering> ||
                std::is_same_v<R, std::partial_ordering>) {
    if (result < 0) return Order::Ascending;
    if (result > 0) return Order::Descending;
    return Order::Same;
  } else {
    static_assert(std::is_integral_v<R> || std::is_enum_v<R>,
                  "A comparator returns an integer, an enumeration or a C++20 ordering.");
    const auto value = static_cast<long long>(result);
    if (value < 0) return Order::Ascending;
    if (value > 0) return Order::Descending;
    return Order::Same;
  }
}

template <class T>
concept Dereferenceable = requires(const T& pointer) { *pointer; };

template <class C, class E, class O>
concept DirectComparator = std::invocable<C&, const E&, const O&>;
template <class C, class E, class O>
concept PointeeArgumentComparator = !DirectComparator<C, E, O> && std::is_member_function_pointer_v<C> &&
                                    Dereferenceable<O> &&
                                    std::invocable<C&, const E&, decltype(*std::declval<const O&>())>;
template <class C, class E, class O>
concept PointeeComparator = !DirectComparator<C, E, O> && !PointeeArgumentComparator<C, E, O> &&
                            Dereferenceable<E> && Dereferenceable<O> &&
                            std::invocable<C&, decltype(*std::declval<const E&>()), decltype(*std::declval<const O&>())>;

// Calls a comparator with (element, object) in whichever of the forms above it takes.
template <class Comparator, class E, class O>
Order compareElement(Comparator& comparator, const E& element, const O& object) {
  if constexpr (DirectComparator<Comparator, E, O>)
    return normalizedComparison(std::invoke(comparator, element, object));
  else if constexpr (PointeeArgumentComparator<Comparator, E, O>)
    return normalizedComparison(std::invoke(comparator, element, *object));
  else
    return normalizedComparison(std::invoke(comparator, *element, *object));
}

}  // namespace zt::detail

// A comparator usable with elements of type E and searched objects of type O.
template <class C, class E, class O = E>
concept ZTComparatorFor = zt::detail::DirectComparator<C, E, O> || zt::detail::PointeeArgumentComparator<C, E, O> ||
                          zt::detail::PointeeComparator<C, E, O>;
