#include "zentrel/platform/notification_center.h"

#include <algorithm>
#include <atomic>

#include <exception>

#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/log.h"

struct ZTNotificationCenter::Registration final : ZTNotificationObserver {
  std::string observedName;  // empty = every name
  const void* object = nullptr;  // nullptr = any sender
  const void* owner = nullptr;   // for owner-based removal; nullptr for token registrations
  std::shared_ptr<ZTDispatchQueue> queue;
  Callback callback;
  std::atomic<bool> removed{false};

  const std::string& name() const override { return observedName; }
  bool matches(const ZTNotification& n) const {
    return (observedName.empty() || observedName == n.name) && (!object || object == n.object.get());
  }
};

std::shared_ptr<ZTNotificationCenter> ZTNotificationCenter::create() {
  return std::shared_ptr<ZTNotificationCenter>(new ZTNotificationCenter());
}

std::shared_ptr<ZTNotificationCenter> ZTNotificationCenter::defaultCenter() {
  static auto* center = new std::shared_ptr<ZTNotificationCenter>(create());  // lives as long as the process
  return *center;
}

std::shared_ptr<ZTNotificationObserver> ZTNotificationCenter::addObserverForName(std::string name, const void* object,
                                                                          std::shared_ptr<ZTDispatchQueue> queue,
                                                                          Callback callback) {
  if (!callback) return nullptr;
  auto registration = std::make_shared<Registration>();
  registration->observedName = std::move(name);
  registration->object = object;
  registration->queue = std::move(queue);
  registration->callback = std::move(callback);
  ZTLockGuard lock(mutex_);
  registrations_.push_back(registration);
  return registration;
}

void ZTNotificationCenter::addObserver(const void* owner, std::string name, const void* object, Callback callback) {
  if (!owner || !callback) return;
  auto registration = std::make_shared<Registration>();
  registration->observedName = std::move(name);
  registration->object = object;
  registration->owner = owner;
  registration->callback = std::move(callback);
  ZTLockGuard lock(mutex_);
  registrations_.push_back(std::move(registration));
}

void ZTNotificationCenter::removeObserver(const std::shared_ptr<ZTNotificationObserver>& observer) {
  if (!observer) return;
  ZTLockGuard lock(mutex_);
  std::erase_if(registrations_, [&](const std::shared_ptr<Registration>& r) {
    if (r.get() != observer.get()) return false;
    r->removed = true;
    return true;
  });
}

void ZTNotificationCenter::removeObserver(const void* owner, const std::string& name, const void* object) {
  if (!owner) return;
  ZTLockGuard lock(mutex_);
  std::erase_if(registrations_, [&](const std::shared_ptr<Registration>& r) {
    if (r->owner != owner || (!name.empty() && r->observedName != name) || (object && r->object != object)) {
      return false;
    }
    r->removed = true;
    return true;
  });
}

namespace {
// One observer's failure is its own: it is logged and the other observers are still told.
void deliver(const ZTNotificationCenter::Callback& callback, const ZTNotification& notification) {
  try {
    callback(notification);
  } catch (const std::exception& e) {
    ZTLogf("ERROR: an observer of \"%s\" threw: %s", notification.name.c_str(), e.what());
  } catch (...) {
    ZTLogf("ERROR: an observer of \"%s\" threw", notification.name.c_str());
  }
}
}  // namespace

void ZTNotificationCenter::postNotification(const ZTNotification& notification) {
  std::vector<std::shared_ptr<Registration>> matching;
  {
    ZTLockGuard lock(mutex_);
    for (const auto& r : registrations_)
      if (r->matches(notification)) matching.push_back(r);
  }
  for (const auto& r : matching) {
    if (r->removed.load()) continue;
    if (r->queue) {
      r->queue->async([r, notification] {
        if (!r->removed.load()) deliver(r->callback, notification);
      });
    } else {
      deliver(r->callback, notification);
    }
  }
}

void ZTNotificationCenter::postNotificationName(std::string name, std::shared_ptr<const void> object,
                                                ZTValue userInfo) {
  postNotification(ZTNotification(std::move(name), std::move(object), std::move(userInfo)));
}

std::size_t ZTNotificationCenter::observerCount() const {
  ZTLockGuard lock(mutex_);
  return registrations_.size();
}
