#pragma once
// Conveniences for sets (std::set, std::unordered_set and anything with their interface), as free
// functions in namespace zt: removal by test, removal of any n members, and set arithmetic that
// returns new sets. Stateless, no locks: thread safety is that of the set passed in.

#include <cstddef>
#include <vector>

namespace zt {

// Removes every member for which test(member) is true, deciding for all members before removing
// any; answers how many went.
template <class Set, class Test>
std::size_t removeObjectsPassingtest(Set& set, Test test) {
  std::vector<typename Set::const_iterator> doomed;
  for (auto it = set.cbegin(); it != set.cend(); ++it)
    if (test(*it)) doomed.push_back(it);
  for (auto it : doomed) set.erase(it);
  return doomed.size();
}

// Removes n arbitrary members; all of them when the set has n or fewer.
template <class Set>
void removeAnyObjects(Set& set, std::size_t count) {
  if (set.size() <= count) {
    set.clear();
    return;
  }
  for (std::size_t i = 0; i < count; ++i) set.erase(set.begin());
}

// The members of `set` that are also in `other`.
template <class Set, class Other>
Set setByIntersecting(const Set& set, const Other& other) {
  Set result;
  for (const auto& member : set)
    if (other.find(member) != other.end()) result.insert(member);
  return result;
}

// The members of `set` that are not in `other`.
template <class Set, class Other>
Set setBySubtracting(const Set& set, const Other& other) {
  Set result;
  for (const auto& member : set)
    if (other.find(member) == other.end()) result.insert(member);
  return result;
}

}  // namespace zt
