#pragma once
// ZTNotificationCenter: broadcasts named notifications to the observers that asked for them.
//
// An observer registers for a name (empty = every name) and a sender object (nullptr = any sender).
// Posting is synchronous: observers registered without a queue are called on the posting thread,
// in registration order, before post() returns; observers registered with a dispatch queue get the
// notification queued there (post() does not wait for them). An observer that throws is logged and
// the others are still told; the exception does not reach the poster.
//
// Thread-safe. Observers may be added and removed from any thread, also from inside a callback.
// Once removeObserver() has returned, the observer is not called again by later posts; a delivery
// already queued on a dispatch queue is skipped if the observer was removed before it runs.
//
// Sender objects are compared by address only; the notification keeps the sender alive while it is
// delivered when it is given as a std::shared_ptr.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zentrel/platform/export.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/value.h"

class ZTDispatchQueue;

// One broadcast: a name, the object that sent it and user info.
struct ZTNotification {
  std::string name;
  std::shared_ptr<const void> object;  // the sender, or null
  ZTValue userInfo;                     // a dictionary, or null

  ZTNotification() = default;
  ZTNotification(std::string n, std::shared_ptr<const void> o = {}, ZTValue info = {})
      : name(std::move(n)), object(std::move(o)), userInfo(std::move(info)) {}
};

// What addObserverForName() returns: the registration. Keep it to remove the observer; dropping it does
// not remove it (the centre holds the registration until it is removed).
class ZT_API ZTNotificationObserver {
 public:
  virtual ~ZTNotificationObserver() = default;
  virtual const std::string& name() const = 0;
};

// Broadcasts named notifications to the observers that asked for them.
class ZT_API ZTNotificationCenter : public std::enable_shared_from_this<ZTNotificationCenter> {
 public:
  using Callback = std::function<void(const ZTNotification&)>;

  [[nodiscard]] static std::shared_ptr<ZTNotificationCenter> create();
  static std::shared_ptr<ZTNotificationCenter> defaultCenter();

  // Registers a callable observer for a name and sender; with a queue the callback runs there, else on the poster's
  // thread. An empty callback registers nothing and returns nullptr.
  [[nodiscard]] std::shared_ptr<ZTNotificationObserver> addObserverForName(std::string name, const void* object,
                                                                           std::shared_ptr<ZTDispatchQueue> queue,
                                                                           Callback callback);
  // Registers a callback on behalf of an owner (any address that identifies it), to be removed
  // together with the owner's other registrations by removeObserver(owner, ...).
  void addObserver(const void* owner, std::string name, const void* object, Callback callback);

  void removeObserver(const std::shared_ptr<ZTNotificationObserver>& observer);
  // Removes the owner's registrations matching name (empty = any) and object (nullptr = any).
  void removeObserver(const void* owner, const std::string& name = {}, const void* object = nullptr);

  void postNotification(const ZTNotification& notification);
  void postNotificationName(std::string name, std::shared_ptr<const void> object = {}, ZTValue userInfo = {});

  // Number of registrations (for diagnostics and tests).
  std::size_t observerCount() const;

 private:
  struct Registration;
  ZTNotificationCenter() = default;
  mutable ZTMutex mutex_;
  std::vector<std::shared_ptr<Registration>> registrations_ ZT_GUARDED_BY(mutex_);
};
