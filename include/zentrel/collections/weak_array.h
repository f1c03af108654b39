#pragma once
// ZTWeakArray: an ordered array of weak references. It never keeps its objects alive; an entry whose
// object has died reads as null and stays in place until compaction (removeAllNulls, ztCompact)
// takes it out. Null entries can also be stored on purpose.
//
// Equality (indexOfObject, containsObject, removeObject): an entry matches an object when it is the
// same object, or when both are alive and the pointees compare equal with == (where T has it). A
// null object is never found.
//
// Failures: indexes past the end throw ZTRangeException, except removeLastObject on an empty array,
// which does nothing.
// Threads: none; the owner serialises access. Objects may die on any thread; reading an entry whose
// object is dying gives either the live object or null.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zentrel/collections/internal/object_traits.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/not_found.h"

template <class T>
class ZTWeakArray {
 public:
  using ObjectPtr = std::shared_ptr<T>;

  ZTWeakArray() = default;
  explicit ZTWeakArray(const std::vector<ObjectPtr>& objects) { addObjectsFromArray(objects); }

  // The number of entries, null ones included.
  std::size_t count() const { return pointers_.size(); }
  bool empty() const { return pointers_.empty(); }

  ObjectPtr objectAtIndex(std::size_t index) const {
    checkIndex(index);
    return pointers_[index].lock();
  }
  ObjectPtr operator[](std::size_t index) const { return objectAtIndex(index); }
  void setObject(const ObjectPtr& object, std::size_t atIndexedSubscript) {
    if (atIndexedSubscript == pointers_.size()) addObject(object);
    else replaceObjectAtIndex(atIndexedSubscript, object);
  }

  void addObject(const ObjectPtr& object) { pointers_.emplace_back(object); }
  void addObjectsFromArray(const std::vector<ObjectPtr>& objects) {
    pointers_.insert(pointers_.end(), objects.begin(), objects.end());
  }
  // index == count() appends.
  void insertObject(const ObjectPtr& object, std::size_t atIndex) {
    if (atIndex > pointers_.size()) checkIndex(atIndex);
    pointers_.insert(pointers_.begin() + static_cast<std::ptrdiff_t>(atIndex), std::weak_ptr<T>(object));
  }
  void removeObjectAtIndex(std::size_t index) {
    checkIndex(index);
    pointers_.erase(pointers_.begin() + static_cast<std::ptrdiff_t>(index));
  }
  void replaceObjectAtIndex(std::size_t index, const ObjectPtr& withObject) {
    checkIndex(index);
    pointers_[index] = withObject;
  }
  void removeLastObject() {
    if (!pointers_.empty()) pointers_.pop_back();
  }
  void exchangeObjectAtIndex(std::size_t first, std::size_t second) {
    checkIndex(first);
    checkIndex(second);
    std::swap(pointers_[first], pointers_[second]);
  }
  void removeAllObjects() { pointers_.clear(); }

  std::size_t indexOfObject(const ObjectPtr& object) const {
    if (!object) return ZTNotFound;
    for (std::size_t i = 0; i < pointers_.size(); ++i)
      if (matches(i, object)) return i;
    return ZTNotFound;
  }
  // Every matching index, ascending.
  std::vector<std::size_t> indexesOfObject(const ObjectPtr& object) const {
    std::vector<std::size_t> indexes;
    if (!object) return indexes;
    for (std::size_t i = 0; i < pointers_.size(); ++i)
      if (matches(i, object)) indexes.push_back(i);
    return indexes;
  }
  bool containsObject(const ObjectPtr& object) const { return indexOfObject(object) != ZTNotFound; }
  // Removes every matching entry.
  void removeObject(const ObjectPtr& object) { removeObjectsAtIndexes(indexesOfObject(object)); }
  // Removes the given indexes (any order, duplicates allowed); an index past the end throws and
  // removes nothing.
  void removeObjectsAtIndexes(std::vector<std::size_t> indexes) {
    std::sort(indexes.begin(), indexes.end());
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    if (!indexes.empty()) checkIndex(indexes.back());
    for (auto it = indexes.rbegin(); it != indexes.rend(); ++it)
      pointers_.erase(pointers_.begin() + static_cast<std::ptrdiff_t>(*it));
  }

  // Compaction: removes every null entry, explicit or left by a dead object.
  void removeAllNulls() {
    std::erase_if(pointers_, [](const std::weak_ptr<T>& pointer) { return pointer.expired(); });
  }
  void ztCompact() { removeAllNulls(); }

  ObjectPtr firstNonNullableObject() const {
    for (const auto& pointer : pointers_)
      if (auto object = pointer.lock()) return object;
    return nullptr;
  }
  ObjectPtr lastNonNullableObject() const {
    for (auto it = pointers_.rbegin(); it != pointers_.rend(); ++it)
      if (auto object = it->lock()) return object;
    return nullptr;
  }
  // Entry 0 or the last entry; null when empty or when that entry is null.
  ObjectPtr firstObject() const { return pointers_.empty() ? nullptr : pointers_.front().lock(); }
  ObjectPtr lastObject() const { return pointers_.empty() ? nullptr : pointers_.back().lock(); }

  // The live objects, in order.
  std::vector<ObjectPtr> allObjects() const {
    std::vector<ObjectPtr> objects;
    objects.reserve(pointers_.size());
    for (const auto& pointer : pointers_)
      if (auto object = pointer.lock()) objects.push_back(std::move(object));
    return objects;
  }

 private:
  bool matches(std::size_t index, const ObjectPtr& object) const {
    return zt::detail::isEqualObject(pointers_[index].lock(), object);
  }
  void checkIndex(std::size_t index) const {
    if (index >= pointers_.size())
      throw ZTRangeException("Index " + std::to_string(index) + " beyond bounds of a weak array of " +
                             std::to_string(pointers_.size()) + " entries.");
  }

  std::vector<std::weak_ptr<T>> pointers_;
};
