// The process's activity manager: the one event loop, its clock, and the activities
// on which reactors may queue their reactions.
//
//   Lum::ActivityFacility::activityManagerConfig().useEpollIs(true);
//   Lum::Ptr<Lum::Clock> clock = Lum::activityManager().config().clock();
//   Lum::activityManager().run();   // until stop()
//
// The loop is epoll whatever useEpoll says: the switch is kept so that the caller's
// request can be read back, since the platform has no other kind of loop.
#pragma once

#include "platform/core/Reactor.h"
#include "platform/loop/Clock.h"
#include "platform/loop/EventLoop.h"

namespace Lum {

class ActivityManagerConfig {
 public:
  explicit ActivityManagerConfig(EventLoop& loop);
  bool useEpoll() const { return useEpoll_; }
  void useEpollIs(bool v) { useEpoll_ = v; }
  const Ptr<Clock>& clock() const { return clock_; }
  EventLoop& loop() const { return *loop_; }

 private:
  EventLoop* loop_;
  Ptr<Clock> clock_;
  bool useEpoll_ = false;
};

class ActivityManager {
 public:
  explicit ActivityManager(EventLoop& loop = eventLoop());
  ActivityManagerConfig& config() { return config_; }
  EventLoop& loop() const { return config_.loop(); }
  // An activity whose queued reactions run as deferred work of this loop.
  Ptr<ActivityConfig> newActivity() const;
  void run() { loop().run(); }
  void stop() { loop().stop(); }

 private:
  ActivityManagerConfig config_;
};

ActivityManager& activityManager();

struct ActivityFacility {
  static ActivityManagerConfig& activityManagerConfig() { return activityManager().config(); }
};

}  // namespace Lum
