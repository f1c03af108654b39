#pragma once
// Machinery of the delegate interfaces and the delegate proxy: what a pointer to a member function
// says about its method. Not included directly.

#include <type_traits>

namespace zt::detail {

// Class: the class that declares the member (for &Derived::m where Derived does not override m, the
// base that does). Parameters: void(A...), the parameter list alone. IsConst: a const method.
template <class M>
struct MemberFunctionTraits;
template <class R, class C, bool Const, class... A>
struct MemberFunctionTraitsOf {
  using Result = R;
  using Class = C;
  using Parameters = void(A...);
  static constexpr bool IsConst = Const;
};
template <class R, class C, class... A>
struct MemberFunctionTraits<R (C::*)(A...)> : MemberFunctionTraitsOf<R, C, false, A...> {};
template <class R, class C, class... A>
struct MemberFunctionTraits<R (C::*)(A...) const> : MemberFunctionTraitsOf<R, C, true, A...> {};
template <class R, class C, class... A>
struct MemberFunctionTraits<R (C::*)(A...) noexcept> : MemberFunctionTraitsOf<R, C, false, A...> {};
template <class R, class C, class... A>
struct MemberFunctionTraits<R (C::*)(A...) const noexcept> : MemberFunctionTraitsOf<R, C, true, A...> {};

template <class M>
concept PlainMemberFunctionPointer = requires { typename MemberFunctionTraits<M>::Class; };

// Whether Override, a pointer to a member named through some class, is an override of Method
// declared below Method's class: the same parameters and constness, a result usable as Method's, and
// declared in a class derived from Method's class rather than in that class itself.
template <auto Method, class Override>
concept OverrideOf = PlainMemberFunctionPointer<decltype(Method)> && PlainMemberFunctionPointer<Override> &&
    std::is_same_v<typename MemberFunctionTraits<decltype(Method)>::Parameters,
                    typename MemberFunctionTraits<Override>::Parameters> &&
    MemberFunctionTraits<decltype(Method)>::IsConst == MemberFunctionTraits<Override>::IsConst &&
    std::is_convertible_v<typename MemberFunctionTraits<Override>::Result,
                          typename MemberFunctionTraits<decltype(Method)>::Result> &&
    std::is_base_of_v<typename MemberFunctionTraits<decltype(Method)>::Class,
                      typename MemberFunctionTraits<Override>::Class> &&
    !std::is_same_v<typename MemberFunctionTraits<decltype(Method)>::Class,
                    typename MemberFunctionTraits<Override>::Class>;

}  // namespace zt::detail
