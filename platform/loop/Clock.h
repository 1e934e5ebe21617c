// Lum::Clock: the only form of timer a reactor has.
//
// A reactor on the clock (a Clock::NotifieeConst, usually a nested `LumClock`) asks
// for onTime() at or after a time with timeMinIs(t); timeMin() reads the time asked
// for last, infinity when none is pending. The request is cleared before onTime() is
// called, so onTime() may ask again. Times are on the scale of Lum::now(), so a test
// that installs a ManualTimeSource moves every clock reactor without sleeping.
#pragma once

#include <limits>
#include <memory>

#include "platform/core/Entity.h"
#include "platform/loop/EventLoop.h"

namespace Lum {

class Clock : public Entity {
 public:
  enum : int { kTime = Entity::kAttrEnd, kAttrEnd };
  static constexpr double kNever = std::numeric_limits<double>::infinity();

  class NotifieeConst : public Lum::NotifieeConst<Clock>, private TimerHandler {
   public:
    virtual void onTime() {}

    double timeMin() const { return timeMin_; }
    // Asks for onTime() at or after `t`; kNever cancels.
    void timeMinIs(double t);
    // The rule for a reactor that wants to be woken `delay` seconds from now and has
    // no reason to move a timer that is already running: a pending request is left
    // alone unless `delay` is less than the time since that request's moment; else
    // the timer is set to now + delay.
    void wakeIn(double delay);

   protected:
    ~NotifieeConst() override;

   private:
    void onTimer() override;
    std::string_view facility() const override { return "Lum::Clock"; }

    double timeMin_ = kNever;
    std::unique_ptr<EventLoop::Timer> timer_;
  };

  explicit Clock(const Name& name, EventLoop& loop = eventLoop()) : Entity(name), loop_(&loop) {}
  EventLoop& loop() const { return *loop_; }

  const TypeInfo& fwkType() const override { return kType; }
  static const TypeInfo& kType;

 private:
  EventLoop* loop_;
};

}  // namespace Lum
