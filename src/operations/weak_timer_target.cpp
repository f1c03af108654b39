#include "zentrel/operations/weak_timer_target.h"

void ZTWeakTimerTarget::timerFired(ZTTimer& timer) const {
  if (!action_) return;
  if (auto target = target_.lock()) action_(target.get(), timer);
}
