#include "platform/loop/ActivityManager.h"

namespace Lum {

namespace {
class LoopActivity : public ActivityConfig {
 public:
  explicit LoopActivity(EventLoop& loop) : loop_(&loop) {}
  void lumSchedule(const Ptr<ReactorBase>& reactor) override {
    loop_->defer([reactor] { reactor->handleNotification(); }, "Lum::Activity");
  }

 private:
  EventLoop* loop_;
};
}  // namespace

ActivityManagerConfig::ActivityManagerConfig(EventLoop& loop)
    : loop_(&loop), clock_(new Clock("clock", loop)) {}

ActivityManager::ActivityManager(EventLoop& loop) : config_(loop) {}

Ptr<ActivityConfig> ActivityManager::newActivity() const {
  return Ptr<ActivityConfig>(new LoopActivity(loop()));
}

ActivityManager& activityManager() {
  // Never destroyed, like the loop it runs: reactors held by static objects may
  // outlive any order of destruction at exit.
  static ActivityManager* manager = new ActivityManager(eventLoop());
  return *manager;
}

}  // namespace Lum
