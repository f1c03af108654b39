#pragma once
// ZTMutableNonRetainingDictionary: a dictionary that does not keep its values alive. Values are held
// as std::weak_ptr; a value whose last owner has let go reads as absent (objectForKey gives null,
// count() and allKeys() leave it out), and its entry is dropped by the next change of the
// dictionary or by removeDeadEntries().
//
// ZTNonRetainingDictionary is the same type: there is no separate immutable form.
//
// Threads: none; the owner serialises access. The values may die on any thread; a read that races
// with the death of its value sees either the live value or null, never a dangling one.

#include <cstddef>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

template <class Key, class Value, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
class ZTMutableNonRetainingDictionary {
 public:
  ZTMutableNonRetainingDictionary() = default;

  // Stores a weak reference; a null object removes the key.
  void setObject(const std::shared_ptr<Value>& object, const Key& key) {
    removeDeadEntries();
    if (!object) dictionary_.erase(key);
    else dictionary_.insert_or_assign(key, std::weak_ptr<Value>(object));
  }
  std::shared_ptr<Value> objectForKey(const Key& key) const {
    auto found = dictionary_.find(key);
    return found == dictionary_.end() ? nullptr : found->second.lock();
  }
  void removeObjectForKey(const Key& key) {
    dictionary_.erase(key);
    removeDeadEntries();
  }
  void removeAllObjects() { dictionary_.clear(); }

  // The number of keys whose values are alive.
  std::size_t count() const {
    std::size_t live = 0;
    for (const auto& entry : dictionary_) live += entry.second.expired() ? 0 : 1;
    return live;
  }
  // The keys whose values are alive, in no particular order.
  std::vector<Key> allKeys() const {
    std::vector<Key> keys;
    for (const auto& entry : dictionary_)
      if (!entry.second.expired()) keys.push_back(entry.first);
    return keys;
  }
  void removeDeadEntries() {
    std::erase_if(dictionary_, [](const auto& entry) { return entry.second.expired(); });
  }

 private:
  std::unordered_map<Key, std::weak_ptr<Value>, Hash, KeyEqual> dictionary_;
};

template <class Key, class Value, class Hash = std::hash<Key>, class KeyEqual = std::equal_to<Key>>
using ZTNonRetainingDictionary = ZTMutableNonRetainingDictionary<Key, Value, Hash, KeyEqual>;
