#pragma once
// Notification helpers on the default notification centre.
//
// "Processing thread" delivery: postNotificationOnProcessingThread hands the notification to a
// process-wide delivery function. The default one posts on the main thread: synchronously when
// called there, otherwise queued to the main run loop without waiting. An application with a
// processing thread of its own installs a function that forwards notifications there.

#include <functional>
#include <memory>
#include <string>

#include "zentrel/platform/export.h"
#include "zentrel/platform/notification_center.h"

namespace zt {

using ZTPostNotificationBlock = std::function<void(const ZTNotification&)>;

ZT_API void postNotificationOnProcessingThread(const ZTNotification& notification);
ZT_API void postNotificationOnProcessingThreadWithName(std::string name, std::shared_ptr<const void> object = {},
                                                       ZTValue userInfo = {});
// Replaces the process-wide delivery function (thread-safe). An empty function restores the default.
ZT_API void setPostNotificationOnPrcessingThreadBlock(ZTPostNotificationBlock block);

// Observes the default centre for one notification: the block runs on the main thread (through the
// main queue) the first time a matching notification is posted, and the observer then removes
// itself, so the block runs at most once. An empty block registers nothing and returns nullptr.
// The returned observer can be removed earlier with removeObserverSafetly.
ZT_API std::shared_ptr<ZTNotificationObserver> addObserverAndAutomaticallyRemoveAfterFiringForName(
    std::string name, const void* object, std::function<void(const ZTNotification&)> block);

// Removes the observer from the default centre; null does nothing.
ZT_API void removeObserverSafetly(const std::shared_ptr<ZTNotificationObserver>& observer);

}  // namespace zt
