#pragma once
// ZTMapArray and ZTMutableMapArray: an ordered array that also keeps, for each element, a map from
// the element's key to its index, so that an element is found by key, and its position looked up,
// in constant time.
//
// The key of an element is computed by the key-for-object callable given at construction. Keys are
// unique: a map array never holds two elements with equal keys. Keys are not stored per element;
// the callable is asked again whenever a key is needed, so it must give equal keys for the same
// element for as long as the element is in the array.
//
// Reading: a map array is a read-only sequence (size, operator[], at, front/back, const iteration,
// objects()) and can be passed wherever a const std::vector<T>& is read. Writing happens only
// through ZTMutableMapArray's methods, each of which leaves the key index exact:
//   for every index i, indexForKey(key(element i)) == i, and the index has exactly size() entries.
//
// Failures: duplicate keys at creation make create() return std::nullopt; adding or inserting an
// element whose key is present answers false (ZTNotFound from the sorted insertions) and changes
// nothing; removeObjectAtIndex past the end does nothing; at(), replaceObjectAtIndex,
// moveObjectAtIndex, exchangeObjectAtIndex and insertObject past the end throw ZTRangeException.
//
// Threads: none. A map array is a value like std::vector; the owner serialises access.

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zentrel/collections/array_additions.h"
#include "zentrel/collections/comparison.h"
#include "zentrel/collections/internal/object_traits.h"
#include "zentrel/platform/exceptions.h"
#include "zentrel/platform/not_found.h"

template <class T, class Key = T, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
class ZTMapArray {
 public:
  using value_type = T;
  using key_type = Key;
  using size_type = std::size_t;
  using const_iterator = typename std::vector<T>::const_iterator;
  using const_reverse_iterator = typename std::vector<T>::const_reverse_iterator;
  using KeyForObject = std::function<Key(const T&)>;

  // An empty map array keyed by the elements themselves.
  ZTMapArray()
    requires std::is_same_v<T, Key>
      : ZTMapArray(KeyForObject([](const T& object) { return object; })) {}

  // An empty map array with the given key callable. An empty callable throws
  // ZTInternalInconsistencyException.
  explicit ZTMapArray(KeyForObject keyForObject) : keyForObject_(std::move(keyForObject)) {
    if (!keyForObject_) throw ZTInternalInconsistencyException("A map array needs a key-for-object function.");
  }

  // A map array over the given elements, in order; std::nullopt when two of them have equal keys
  // or the key callable is empty.
  [[nodiscard]] static std::optional<ZTMapArray> create(std::vector<T> objects, KeyForObject keyForObject) {
    if (!keyForObject) return std::nullopt;
    ZTMapArray array(std::move(keyForObject));
    if (!array.adoptObjects(std::move(objects))) return std::nullopt;
    return array;
  }
  [[nodiscard]] static std::optional<ZTMapArray> create(std::vector<T> objects)
    requires std::is_same_v<T, Key>
  {
    return create(std::move(objects), [](const T& object) { return object; });
  }

  const KeyForObject& keyForObjectBlock() const { return keyForObject_; }

  // Lookups by key. containsObject and indexOfObject look at the object's key, so an object that
  // merely has the key of an element finds that element.
  bool containsObject(const T& object) const { return containsKey(keyForObject_(object)); }
  bool containsKey(const Key& key) const { return keysToIndexesMap_.find(key) != keysToIndexesMap_.end(); }
  std::size_t indexForKey(const Key& key) const {
    const auto found = keysToIndexesMap_.find(key);
    return found == keysToIndexesMap_.end() ? ZTNotFound : found->second;
  }
  std::size_t indexOfObject(const T& object) const { return indexForKey(keyForObject_(object)); }
  // The element with that key, or nullptr. The pointer is valid until the next mutation.
  const T* objectForKey(const Key& key) const {
    const std::size_t index = indexForKey(key);
    return index == ZTNotFound ? nullptr : &objectsArray_[index];
  }

  // A copy of the elements, in order.
  std::vector<T> allObjects() const { return objectsArray_; }
  // The keys in no particular order.
  std::vector<Key> allKeys() const {
    std::vector<Key> keys;
    keys.reserve(keysToIndexesMap_.size());
    for (const auto& entry : keysToIndexesMap_) keys.push_back(entry.first);
    return keys;
  }

  // The read-only sequence.
  const std::vector<T>& objects() const { return objectsArray_; }
  operator const std::vector<T>&() const { return objectsArray_; }
  std::size_t size() const { return objectsArray_.size(); }
  std::size_t count() const { return objectsArray_.size(); }
  bool empty() const { return objectsArray_.empty(); }
  const T& operator[](std::size_t index) const { return objectsArray_[index]; }
  const T& at(std::size_t index) const {
    checkIndex(index);
    return objectsArray_[index];
  }
  const T& front() const { return at(0); }
  const T& back() const {
    if (objectsArray_.empty()) throw ZTRangeException("back() of an empty map array");
    return objectsArray_.back();
  }
  const T* firstObject() const { return objectsArray_.empty() ? nullptr : &objectsArray_.front(); }
  const T* lastObject() const { return objectsArray_.empty() ? nullptr : &objectsArray_.back(); }
  const_iterator begin() const { return objectsArray_.begin(); }
  const_iterator end() const { return objectsArray_.end(); }
  const_iterator cbegin() const { return objectsArray_.cbegin(); }
  const_iterator cend() const { return objectsArray_.cend(); }
  const_reverse_iterator rbegin() const { return objectsArray_.rbegin(); }
  const_reverse_iterator rend() const { return objectsArray_.rend(); }

  friend bool operator==(const ZTMapArray& a, const ZTMapArray& b)
    requires std::equality_comparable<T>
  {
    return a.objectsArray_ == b.objectsArray_;
  }

 protected:
  // Re-indexes the elements at [location, location + length): each one's key is mapped to its
  // index. Nothing happens for location ZTNotFound, length 0 or a range that overflows; the range
  // is clipped to the array. Entries of keys outside the range are not touched: a subclass that
  // changes the array removes stale keys itself before it re-indexes.
  void updateMapIndexesInArrayRange(std::size_t location, std::size_t length) {
    if (location == ZTNotFound || length == 0 || location + length < location) return;
    const std::size_t end = std::min(location + length, objectsArray_.size());
    for (std::size_t i = location; i < end; ++i) keysToIndexesMap_[keyForObject_(objectsArray_[i])] = i;
  }

  void checkIndex(std::size_t index) const {
    if (index >= objectsArray_.size())
      throw ZTRangeException("Index " + std::to_string(index) + " beyond bounds of a map array of " +
                             std::to_string(objectsArray_.size()) + " elements.");
  }

  // Replaces the contents; false (and the map array left empty) when two objects share a key.
  bool adoptObjects(std::vector<T> objects) {
    objectsArray_ = std::move(objects);
    keysToIndexesMap_.clear();
    keysToIndexesMap_.reserve(objectsArray_.size());
    updateMapIndexesInArrayRange(0, objectsArray_.size());
    if (keysToIndexesMap_.size() != objectsArray_.size()) {
      objectsArray_.clear();
      keysToIndexesMap_.clear();
      return false;
    }
    return true;
  }

  std::vector<T> objectsArray_;
  std::unordered_map<Key, std::size_t, Hash, KeyEqual> keysToIndexesMap_;
  KeyForObject keyForObject_;
};

// The mutable map array. Every method keeps the key index exact (see above).
template <class T, class Key = T, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
class ZTMutableMapArray : public ZTMapArray<T, Key, Hash, KeyEqual> {
  using Base = ZTMapArray<T, Key, Hash, KeyEqual>;

 public:
  using typename Base::KeyForObject;

  ZTMutableMapArray()
    requires std::is_same_v<T, Key>
  = default;
  explicit ZTMutableMapArray(KeyForObject keyForObject) : Base(std::move(keyForObject)) {}
  ZTMutableMapArray(std::size_t capacity, KeyForObject keyForObject) : Base(std::move(keyForObject)) {
    this->objectsArray_.reserve(capacity);
    this->keysToIndexesMap_.reserve(capacity);
  }

  [[nodiscard]] static std::optional<ZTMutableMapArray> create(std::vector<T> objects, KeyForObject keyForObject) {
    if (!keyForObject) return std::nullopt;
    ZTMutableMapArray array(std::move(keyForObject));
    if (!array.adoptObjects(std::move(objects))) return std::nullopt;
    return array;
  }
  [[nodiscard]] static std::optional<ZTMutableMapArray> create(std::vector<T> objects)
    requires std::is_same_v<T, Key>
  {
    return create(std::move(objects), [](const T& object) { return object; });
  }

  // Appends; false and nothing changes when the object's key is present.
  [[nodiscard]] bool addObject(T object) {
    Key key = this->keyForObject_(object);
    if (this->containsKey(key)) return false;
    this->objectsArray_.push_back(std::move(object));
    this->keysToIndexesMap_.emplace(std::move(key), this->objectsArray_.size() - 1);
    return true;
  }

  // Appends all or nothing: false and nothing changes when any object's key is present, or when
  // two of the given objects share a key.
  [[nodiscard]] bool addObjectsFromArray(const std::vector<T>& objects) {
    std::unordered_map<Key, std::size_t, Hash, KeyEqual> added;
    added.reserve(objects.size());
    const std::size_t oldCount = this->objectsArray_.size();
    for (std::size_t i = 0; i < objects.size(); ++i) {
      Key key = this->keyForObject_(objects[i]);
      if (this->containsKey(key)) return false;
      if (!added.emplace(std::move(key), oldCount + i).second) return false;
    }
    this->objectsArray_.insert(this->objectsArray_.end(), objects.begin(), objects.end());
    this->keysToIndexesMap_.merge(added);
    return true;
  }

  // Inserts before the element at index (index == size() appends); false and nothing changes when
  // the key is present. An index past size() throws ZTRangeException.
  [[nodiscard]] bool insertObject(T object, std::size_t index) {
    if (this->containsObject(object)) return false;
    const std::size_t oldCount = this->objectsArray_.size();
    if (index == oldCount) return addObject(std::move(object));
    if (index > oldCount)
      throw ZTRangeException("Index " + std::to_string(index) + " beyond bounds of a map array of " +
                             std::to_string(oldCount) + " elements.");
    this->objectsArray_.insert(this->objectsArray_.begin() + static_cast<std::ptrdiff_t>(index), std::move(object));
    this->updateMapIndexesInArrayRange(index, oldCount - index + 1);
    return true;
  }

  // Inserts into an array kept sorted by the comparator (see comparison.h; a member-function
  // pointer of T is accepted as the comparison method) and returns the index where the object now
  // stands, or ZTNotFound when its key was present. Binary search: among elements that compare
  // equal, the object goes in front of the one the probes meet first.
  template <class Comparator>
    requires ZTComparatorFor<Comparator, T>
  [[nodiscard]] std::size_t insertObject(T object, Comparator comparator) {
    if (this->containsObject(object)) return ZTNotFound;
    const std::size_t index = zt::detail::probeSorted(this->objectsArray_, object, comparator).second;
    (void)insertObject(std::move(object), index);  // cannot be refused: the key is absent
    return index;
  }

  // Removals. An absent key, an absent object or an index past the end does nothing.
  void removeObjectForKey(const Key& key) { removeObjectAtIndex(this->indexForKey(key)); }
  void removeObject(const T& object) { removeObjectAtIndex(this->indexOfObject(object)); }
  void removeObjectAtIndex(std::size_t index) {
    const std::size_t oldCount = this->objectsArray_.size();
    if (index >= oldCount) return;
    this->keysToIndexesMap_.erase(this->keyForObject_(this->objectsArray_[index]));
    this->objectsArray_.erase(this->objectsArray_.begin() + static_cast<std::ptrdiff_t>(index));
    this->updateMapIndexesInArrayRange(index, oldCount - index - 1);
  }
  // Removes `length` elements starting at `location` (fewer when the range runs past the end).
  void removeObjectsInRange(std::size_t location, std::size_t length) {
    const std::size_t oldCount = this->objectsArray_.size();
    if (location >= oldCount || length == 0) return;
    const std::size_t end = (length > oldCount - location) ? oldCount : location + length;
    for (std::size_t i = location; i < end; ++i) this->keysToIndexesMap_.erase(this->keyForObject_(this->objectsArray_[i]));
    this->objectsArray_.erase(this->objectsArray_.begin() + static_cast<std::ptrdiff_t>(location),
                              this->objectsArray_.begin() + static_cast<std::ptrdiff_t>(end));
    this->updateMapIndexesInArrayRange(location, this->objectsArray_.size() - location);
  }
  void removeObjectsInArray(const std::vector<T>& objects) {
    for (const T& object : objects) removeObject(object);
  }
  // Throws ZTRangeException on an empty map array.
  void removeLastObject() {
    if (this->objectsArray_.empty()) throw ZTRangeException("removeLastObject on an empty map array");
    this->keysToIndexesMap_.erase(this->keyForObject_(this->objectsArray_.back()));
    this->objectsArray_.pop_back();
  }
  void removeAllObjects() {
    this->objectsArray_.clear();
    this->keysToIndexesMap_.clear();
  }

  // Replaces the element at index. True when done or when the object is the very element there;
  // false and nothing changes when the new key belongs to another element. Index past the end:
  // ZTRangeException.
  [[nodiscard]] bool replaceObjectAtIndex(std::size_t index, T object) {
    this->checkIndex(index);
    T& old = this->objectsArray_[index];
    if (zt::detail::isSameObject(old, object)) return true;
    Key oldKey = this->keyForObject_(old);
    Key newKey = this->keyForObject_(object);
    if (!KeyEqual()(oldKey, newKey) && this->containsKey(newKey)) return false;
    this->keysToIndexesMap_.erase(oldKey);
    old = std::move(object);
    this->keysToIndexesMap_[std::move(newKey)] = index;
    return true;
  }

  // Moves the element at `from` so that it stands at `to` (appends when `to` is at or past the
  // last index once the element is out). `from` past the end: ZTRangeException.
  void moveObjectAtIndex(std::size_t from, std::size_t to) {
    this->checkIndex(from);
    T object = this->objectsArray_[from];
    removeObjectAtIndex(from);
    // Neither can be refused: the object's key left the array with it.
    if (to >= this->objectsArray_.size()) (void)addObject(std::move(object));
    else (void)insertObject(std::move(object), to);
  }

  // Swaps two elements. Either index past the end: ZTRangeException.
  void exchangeObjectAtIndex(std::size_t first, std::size_t second) {
    if (first == second) return;
    this->checkIndex(first);
    this->checkIndex(second);
    std::swap(this->objectsArray_[first], this->objectsArray_[second]);
    this->keysToIndexesMap_[this->keyForObject_(this->objectsArray_[first])] = first;
    this->keysToIndexesMap_[this->keyForObject_(this->objectsArray_[second])] = second;
  }

  // Stable sort by a comparator returning an ordering result (see comparison.h), or by a
  // member-function pointer of T; then the whole array is re-indexed.
  template <class Comparator>
    requires ZTComparatorFor<Comparator, T>
  void sortUsingComparator(Comparator comparator) {
    std::stable_sort(this->objectsArray_.begin(), this->objectsArray_.end(), [&](const T& a, const T& b) {
      return zt::detail::compareElement(comparator, a, b) == zt::detail::Order::Ascending;
    });
    this->updateMapIndexesInArrayRange(0, this->objectsArray_.size());
  }
  // Stable sort by a strict weak ordering ("less than"), as std::sort takes it.
  template <class Less = std::less<>>
    requires std::predicate<Less&, const T&, const T&>
  void sort(Less less = Less()) {
    std::stable_sort(this->objectsArray_.begin(), this->objectsArray_.end(), less);
    this->updateMapIndexesInArrayRange(0, this->objectsArray_.size());
  }
};
