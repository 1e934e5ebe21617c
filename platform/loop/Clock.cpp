#include "platform/loop/Clock.h"

#include "platform/os/TimeSource.h"

namespace Lum {

const TypeInfo& Clock::kType =
    TypeRegistry::add(TypeInfo("Lum::Clock", "Lum::Entity").attribute("time", kTime));

Clock::NotifieeConst::~NotifieeConst() = default;

void Clock::NotifieeConst::timeMinIs(double t) {
  timeMin_ = t;
  if (t == kNever) {
    if (timer_) timer_->disarm();
    return;
  }
  if (!notifier()) throwRangeException("Clock::NotifieeConst::timeMinIs without a clock");
  if (!timer_)
    timer_ =
        std::make_unique<EventLoop::Timer>(static_cast<TimerHandler&>(*this), notifier()->loop());
  timer_->arm(t);
}

void Clock::NotifieeConst::wakeIn(double delay) {
  const double t = now();
  if (timeMin_ != kNever && !(delay < t - timeMin_)) return;
  timeMinIs(t + delay);
}

void Clock::NotifieeConst::onTimer() {
  timeMin_ = kNever;
  lumNotify(kTime, &lumThunk<&NotifieeConst::onTime>, [this] { onTime(); });
}

}  // namespace Lum
