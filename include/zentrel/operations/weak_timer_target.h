#pragma once
// ZTWeakTimerTarget: the target of a repeating timer that does not keep the real target alive.
// The timer holds the ZTWeakTimerTarget; the ZTWeakTimerTarget holds the real target weakly and,
// each time the timer fires, calls the action with the target and the timer — or does nothing once
// the target has gone. The owner of the target invalidates the timer when it is done with it
// (typically in its destructor).

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "zentrel/platform/export.h"
#include "zentrel/platform/run_loop.h"

class ZT_API ZTWeakTimerTarget {
 public:
  template <class T>
  [[nodiscard]] static std::shared_ptr<ZTWeakTimerTarget> create(std::weak_ptr<T> target,
                                                                 std::function<void(T&, ZTTimer&)> action) {
    auto result = std::shared_ptr<ZTWeakTimerTarget>(new ZTWeakTimerTarget());
    result->target_ = std::weak_ptr<void>(target);
    if (action) {
      result->action_ = [action = std::move(action)](void* object, ZTTimer& timer) {
        action(*static_cast<T*>(object), timer);
      };
    }
    return result;
  }

  // Schedules a repeating timer on the run loop whose action goes through a weak target.
  template <class T>
  [[nodiscard]] static std::shared_ptr<ZTTimer> scheduleRepeatingTimer(const std::shared_ptr<ZTRunLoop>& loop,
                                                                       std::chrono::duration<double> interval,
                                                                       std::weak_ptr<T> target,
                                                                       std::function<void(T&, ZTTimer&)> action) {
    auto weakTarget = create<T>(std::move(target), std::move(action));
    return loop->scheduleTimer(interval, true, [weakTarget](ZTTimer& timer) { weakTarget->timerFired(timer); });
  }

  // The timer's action: calls the action when the target is still alive.
  void timerFired(ZTTimer& timer) const;
  bool hasTarget() const { return !target_.expired(); }

 private:
  ZTWeakTimerTarget() = default;
  std::weak_ptr<void> target_;
  std::function<void(void*, ZTTimer&)> action_;
};
