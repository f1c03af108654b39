#include "zentrel/operations/notification_helpers.h"

#include <atomic>

#include "zentrel/platform/dispatch.h"
#include "zentrel/platform/mutex.h"
#include "zentrel/platform/thread.h"

namespace zt {
namespace {
void defaultDelivery(const ZTNotification& notification) {
  if (ZTThread::isMainThread()) {
    ZTNotificationCenter::defaultCenter()->postNotification(notification);
  } else {
    ZTDispatchQueue::main()->async(
        [notification] { ZTNotificationCenter::defaultCenter()->postNotification(notification); });
  }
}

struct DeliveryHolder {
  ZTMutex mutex;
  std::shared_ptr<const ZTPostNotificationBlock> block ZT_GUARDED_BY(mutex);  // null = default delivery
};
DeliveryHolder& delivery() {
  static auto* holder = new DeliveryHolder;  // never destroyed: threads may post during exit
  return *holder;
}
}  // namespace

void postNotificationOnProcessingThread(const ZTNotification& notification) {
  std::shared_ptr<const ZTPostNotificationBlock> block;
  {
    DeliveryHolder& holder = delivery();
    ZTLockGuard lock(holder.mutex);
    block = holder.block;
  }
  if (block) (*block)(notification);
  else defaultDelivery(notification);
}

void postNotificationOnProcessingThreadWithName(std::string name, std::shared_ptr<const void> object, ZTValue userInfo) {
  postNotificationOnProcessingThread(ZTNotification(std::move(name), std::move(object), std::move(userInfo)));
}

void setPostNotificationOnPrcessingThreadBlock(ZTPostNotificationBlock block) {
  auto next = block ? std::make_shared<const ZTPostNotificationBlock>(std::move(block)) : nullptr;
  DeliveryHolder& holder = delivery();
  ZTLockGuard lock(holder.mutex);
  holder.block = std::move(next);
}

std::shared_ptr<ZTNotificationObserver> addObserverAndAutomaticallyRemoveAfterFiringForName(
    std::string name, const void* object, std::function<void(const ZTNotification&)> block) {
  if (!block) return nullptr;
  // The registration's callback cannot own the registration (that would be a cycle), so it
  // finds itself through a weak reference filled in once the centre has created it.
  struct State {
    std::atomic<bool> fired{false};
    ZTMutex mutex;
    std::weak_ptr<ZTNotificationObserver> observer ZT_GUARDED_BY(mutex);
  };
  auto state = std::make_shared<State>();
  auto observer = ZTNotificationCenter::defaultCenter()->addObserverForName(
      std::move(name), object, ZTDispatchQueue::main(),
      [state, block = std::move(block)](const ZTNotification& notification) {
        if (state->fired.exchange(true)) return;
        block(notification);
        std::shared_ptr<ZTNotificationObserver> self;
        {
          ZTLockGuard lock(state->mutex);
          self = state->observer.lock();
        }
        removeObserverSafetly(self);
      });
  bool firedBeforeKnown = false;
  {
    ZTLockGuard lock(state->mutex);
    state->observer = observer;
    firedBeforeKnown = state->fired.load();
  }
  // It may already have fired on the main thread before its registration was known to it.
  if (firedBeforeKnown) removeObserverSafetly(observer);
  return observer;
}

void removeObserverSafetly(const std::shared_ptr<ZTNotificationObserver>& observer) {
  if (!observer) return;
  ZTNotificationCenter::defaultCenter()->removeObserver(observer);
}

}  // namespace zt
