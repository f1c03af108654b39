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
// A callable returning bool (std::less<>, a "less than" lambda) is not a comparator: it answers a
// different question, and read as an integer its true and false would mean "descending" and "same".
// Such callables do not satisfy ZTComparatorFor, so every function taking a comparator refuses them
// at compile time; wrap them or use std::compare_three_way. Neither does a callable whose result is
// a class convertible to an integer.
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

// What a comparator may answer: an integer other than bool, an enumeration, or a C++20 ordering.
template <class R>
concept ComparisonResult =
    std::same_as<R, std::strong_ordering> || std::same_as<R, std::weak_ordering> ||
    std::same_as<R, std::partial_ordering> || std::is_enum_v<R> || (std::is_integral_v<R> && !std::same_as<R, bool>);

template <ComparisonResult R>
Order normalizedComparison(const R& result) {
  if constexpr (std::is_same_v<R, std::strong_ordering> || std::is_same_v<R, std::weak_ordering> ||
                std::is_same_v<R, std::partial_ordering>) {
    if (result < 0) return Order::Ascending;
    if (result > 0) return Order::Descending;
    return Order::Same;
  } else {
    const auto value = static_cast<long long>(result);
    if (value < 0) return Order::Ascending;
    if (value > 0) return Order::Descending;
    return Order::Same;
  }
}

template <class T>
concept Dereferenceable = requires(const T& pointer) { *pointer; };

// The three ways a comparator can be called, tried in this order; the first one that the callable
// accepts is the one used, and its result must then be a ComparisonResult (a callable that answers
// bool in that form is refused, not tried in a later form).
template <class C, class E, class O>
concept DirectCall = std::invocable<C&, const E&, const O&>;
template <class C, class E, class O>
concept PointeeArgumentCall = !DirectCall<C, E, O> && std::is_member_function_pointer_v<C> && Dereferenceable<O> &&
                              std::invocable<C&, const E&, decltype(*std::declval<const O&>())>;
template <class C, class E, class O>
concept PointeeCall = !DirectCall<C, E, O> && !PointeeArgumentCall<C, E, O> && Dereferenceable<E> &&
                      Dereferenceable<O> &&
                      std::invocable<C&, decltype(*std::declval<const E&>()), decltype(*std::declval<const O&>())>;

template <class C, class E, class O>
concept DirectComparator =
    DirectCall<C, E, O> && ComparisonResult<std::remove_cvref_t<std::invoke_result_t<C&, const E&, const O&>>>;
template <class C, class E, class O>
concept PointeeArgumentComparator =
    PointeeArgumentCall<C, E, O> &&
    ComparisonResult<std::remove_cvref_t<std::invoke_result_t<C&, const E&, decltype(*std::declval<const O&>())>>>;
template <class C, class E, class O>
concept PointeeComparator =
    PointeeCall<C, E, O> &&
    ComparisonResult<std::remove_cvref_t<
        std::invoke_result_t<C&, decltype(*std::declval<const E&>()), decltype(*std::declval<const O&>())>>>;

// Calls a comparator with (element, object) in whichever of the forms above it takes.
template <class Comparator, class E, class O>
Order compareElement(Comparator& comparator, const E& element, const O& object) {
  if constexpr (DirectCall<Comparator, E, O>)
    return normalizedComparison(std::invoke(comparator, element, object));
  else if constexpr (PointeeArgumentCall<Comparator, E, O>)
    return normalizedComparison(std::invoke(comparator, element, *object));
  else
    return normalizedComparison(std::invoke(comparator, *element, *object));
}

}  // namespace zt::detail

// A comparator usable with elements of type E and searched objects of type O.
template <class C, class E, class O = E>
concept ZTComparatorFor = zt::detail::DirectComparator<C, E, O> || zt::detail::PointeeArgumentComparator<C, E, O> ||
                          zt::detail::PointeeComparator<C, E, O>;
