#pragma once
// ZTCountedDictionary: a dictionary whose every entry carries a use count, so that the same object
// can be stored many times under one key and goes away only when its last user lets go.
//
// Storing an object equal to the one the key holds adds one use; storing a different object
// replaces the entry and its count (count 1). decreaseCountForObjectForKey removes the entry when
// the count reaches zero. Counts of absent keys read as ZTNotFound.
//
// "Nil": for pointer-like values (raw pointers, shared_ptr, optional) storing a null value removes
// the key, as removeObjectForKey does. Equality of values is ValueEqual. By default shared_ptr values
// are equal when their pointees compare equal with == (three separately made strings "body" count
// as one object used three times), or when they are the same pointer if the pointee has no ==; other
// values use their own ==, so raw pointers compare by address. Pass std::equal_to<> to count
// shared_ptr values by identity.
//
// Threads: none; the owner serialises access.

#include <cstddef>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>

#include "zentrel/collections/internal/object_traits.h"
#include "zentrel/platform/debug_name.h"
#include "zentrel/platform/not_found.h"

template <class Value>
struct ZTCountedDictionaryEntry {
  Value object;
  std::size_t count = 0;

  [[nodiscard]] static ZTCountedDictionaryEntry countedDictionaryEntryForObject(Value object, std::size_t count) {
    return {std::move(object), count};
  }
};

// "<count: 3; object = x>" (the object is written only when it can be streamed).
template <class Value>
std::ostream& operator<<(std::ostream& out, const ZTCountedDictionaryEntry<Value>& entry) {
  out << "<count: " << entry.count << "; object = ";
  if constexpr (requires(std::ostream& o, const Value& v) { o << v; }) out << entry.object;
  else out << "?";
  return out << ">";
}

// A dictionary whose entries carry a use count; an entry goes when its last user releases it.
template <class Key, class Value, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>,
          class ValueEqual = zt::detail::EqualObjects>
class ZTCountedDictionary {
 public:
  using Entry = ZTCountedDictionaryEntry<Value>;

  ZTCountedDictionary() = default;
  explicit ZTCountedDictionary(std::size_t capacity) { dictionary_.reserve(capacity); }

  std::size_t count() const { return dictionary_.size(); }

  // The key's object, or nullptr. The pointer is valid until the next change of the dictionary.
  const Value* objectForKey(const Key& key) const {
    auto found = dictionary_.find(key);
    return found == dictionary_.end() ? nullptr : &found->second.object;
  }

  // One more use when the key holds an equal object (the object kept is the one stored first);
  // otherwise a new entry with count 1.
  void setObject(Value object, const Key& key) {
    if (zt::detail::isNil(object)) {
      dictionary_.erase(key);
      return;
    }
    auto found = dictionary_.find(key);
    if (found != dictionary_.end() && ValueEqual()(found->second.object, object)) {
      ++found->second.count;
      return;
    }
    dictionary_.insert_or_assign(key, Entry{std::move(object), 1});
  }
  // Sets the entry with exactly that count; a count of 0 (or a nil object) removes the key.
  void setObject(Value object, const Key& key, std::size_t withCount) {
    if (withCount == 0 || zt::detail::isNil(object)) {
      dictionary_.erase(key);
      return;
    }
    dictionary_.insert_or_assign(key, Entry{std::move(object), withCount});
  }

  void removeObjectForKey(const Key& key) { dictionary_.erase(key); }
  void removeAllObjects() { dictionary_.clear(); }

  std::size_t countForObjectForKey(const Key& key) const {
    auto found = dictionary_.find(key);
    return found == dictionary_.end() ? ZTNotFound : found->second.count;
  }
  // The new count, or ZTNotFound (and nothing created) when the key is absent.
  [[nodiscard]] std::size_t increaseCountForObjectForKey(const Key& key) {
    auto found = dictionary_.find(key);
    if (found == dictionary_.end()) return ZTNotFound;
    return ++found->second.count;
  }
  // The new count; 0 when that was the last use and the key is gone; ZTNotFound when absent.
  std::size_t decreaseCountForObjectForKey(const Key& key) {
    auto found = dictionary_.find(key);
    if (found == dictionary_.end()) return ZTNotFound;
    if (found->second.count <= 1) {
      dictionary_.erase(found);
      return 0;
    }
    return --found->second.count;
  }

  // Calls block(key, object, count, stop) for each entry, in no particular order; setting stop
  // ends the walk. The block must not change the dictionary.
  template <class Block>
  void enumerateKeysAndObjectsUsingBlock(Block&& block) const {
    bool stop = false;
    for (const auto& [key, entry] : dictionary_) {
      block(key, entry.object, entry.count, stop);
      if (stop) break;
    }
  }

  // "<ZTCountedDictionary<...> 0x...: {key: <count: n; object = x>, ...}>".
  std::string description() const {
    std::ostringstream out;
    out << "<" << ZTDebugClassNameForObject(this) << " " << static_cast<const void*>(this) << ": {";
    bool first = true;
    for (const auto& [key, entry] : dictionary_) {
      out << (first ? "" : ", ");
      first = false;
      if constexpr (requires(std::ostream& o, const Key& k) { o << k; }) out << key;
      else out << "?";
      out << ": " << entry;
    }
    out << "}>";
    return out.str();
  }

 private:
  std::unordered_map<Key, Entry, Hash, KeyEqual> dictionary_;
};
