#include <gtest/gtest.h>

#include "DemoModel.h"

namespace Demo {
namespace {

using Lum::Name;

class ReactorTest : public ::testing::Test {
 protected:
  void SetUp() override { log.clear(); }
  Ptr<LinkDir> dir_{new LinkDir("links")};
  Ptr<Settings> settings_{new Settings("settings")};
};

// Guards the catch-up: a reactor handed another notifier reacts as to a change,
// the same notifier again does nothing, and a new element around another entity of
// the same key is given that entity rather than rebuilt.
TEST_F(ReactorTest, NewNotifierIsTreatedAsAChange) {
  Ptr<LinkWatcherSm> sm(new LinkWatcherSm(dir_, settings_));
  EXPECT_EQ(taken(), Log{"enabled=0"});
  sm->settings()->notifierIs(settings_);
  EXPECT_TRUE(log.empty());
  Ptr<Settings> other(new Settings("other"));
  other->enabledIs(true);
  sm->settings()->notifierIs(other);
  EXPECT_EQ(taken(), Log{"enabled=1"});

  Ptr<Link> a = dir_->linkIs("a");
  log.clear();
  Ptr<Link> twin(new Link("a"));
  Lum::Collection<LinkWatcherSm, LinkWatcherSm::LumLinkSm, Name, Ptr<const Link>> direct{
      sm.ptr(), "x", {"link"}};
  Ptr<LinkWatcherSm::LumLinkSm> d = direct.is(a);
  EXPECT_EQ(direct.is(twin), d);
  EXPECT_EQ(d->notifier(), twin);
  // Attaching in the constructor is the first change of notifier, then the twin's.
  EXPECT_EQ(log, (Log{"a catch-up", "a init", "a catch-up"}));
}

// Guards the order of deletion: zombie before doPrepareToDie, back pointer cleared
// after it, notifications off at the end, and no reaction after.
TEST_F(ReactorTest, DeletionRunsItsStepsInOrder) {
  Ptr<LinkWatcherSm> sm(new LinkWatcherSm(dir_, settings_));
  Ptr<Link> a = dir_->linkIs("a");
  Ptr<LinkWatcherSm::LumLinkSm> aSm = sm->linkSm("a");
  ASSERT_TRUE(aSm);
  EXPECT_TRUE(aSm->hasNotificationActive());
  log.clear();

  // doPrepareToDie of the element is recorded with its parent still set (no "(orphan)").
  Ptr<LinkWatcherSm::LumLinkSm> gone = sm->linkSmDel("a");
  ASSERT_EQ(gone, aSm);
  EXPECT_EQ(taken(), Log{"a prepareToDie"});
  EXPECT_EQ(gone->parent(), nullptr);
  EXPECT_FALSE(gone->hasNotificationActive());
  a->operStatusIs(1);
  EXPECT_TRUE(log.empty()) << "a deleted state machine reacted: " << log.front();
}

// Guards iteration: deleting the element under the iterator, and the one after it,
// must neither crash nor skip a survivor; and no element is made for an empty key.
TEST_F(ReactorTest, DeletingWhileIterating) {
  EXPECT_THROW(dir_->linkIs(Name()), Lum::RangeException);  // no element without a key
  for (const char* n : {"a", "b", "c", "d"}) dir_->linkIs(n);
  Ptr<LinkWatcherSm> sm(new LinkWatcherSm(dir_, settings_));
  ASSERT_EQ(sm->linkSms(), 4u);
  std::vector<std::string> seen;
  for (auto it = dir_->linkIterator(); it; ++it) {
    seen.push_back(std::string(it.key().view()));
    if (it.key() == Name("a")) dir_->linkDel("a");
    if (it.key() == Name("b")) dir_->linkDel("c");
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "d"}));
  EXPECT_EQ(sm->linkSms(), 2u);
  EXPECT_FALSE(sm->linkSm("a"));
}

// Guards the zombie rule: nothing reacts once its machine is a zombie, nested and
// keyed reactors included. (Reactions per attribute and per key, an equal write not
// notified: the status registry walk.)
TEST_F(ReactorTest, ZombieNeverReacts) {
  Ptr<Link> a = dir_->linkIs("a");
  Ptr<LinkWatcherSm> sm(new LinkWatcherSm(dir_, settings_));
  log.clear();
  sm->lumDoZombieReactors(true);
  EXPECT_TRUE(sm->linkSm("a")->lumMarkedForDeletion()) << "zombie state must reach sub-machines";
  EXPECT_FALSE(sm->settings()->hasNotificationActive());
  a->operStatusIs(2);
  a->vlanVniIs(10, 5010);
  settings_->enabledIs(true);
  EXPECT_TRUE(log.empty());
}

// Guards deferred freeing: a reaction that deletes its own state machine must finish
// on a live object (run under the sanitizers to make a fault visible).
TEST_F(ReactorTest, ReactionMayDeleteItsOwnMachine) {
  struct SelfDeleting : Link::NotifieeConst {
    Ptr<SelfDeleting>* holder = nullptr;
    int calls = 0;
    void onOperStatus() override {
      *holder = nullptr;  // the last outside reference
      ++calls;
      log.push_back(std::to_string(calls) + " " + std::to_string(references()));
    }
  };
  Ptr<Link> a = dir_->linkIs("a");
  Ptr<SelfDeleting> r(new SelfDeleting);
  r->holder = &r;
  r->notifierIs(a);
  r->isRegisteredNotifieeIs(true);
  a->operStatusIs(1);
  EXPECT_FALSE(r);
  EXPECT_EQ(log, Log{"1 1"});
  EXPECT_EQ(a->lumNotifieeCount(), 0u);
}

// A stand-in activity: remembers what it was asked to run.
struct RecordingActivity : Lum::ActivityConfig {
  std::vector<Ptr<Lum::ReactorBase>> scheduled;
  void lumSchedule(const Ptr<Lum::ReactorBase>& r) override { scheduled.push_back(r); }
};

// Guards queued notifications: changes collapse, the last value is seen once, keyed
// changes fall back to the catch-up, and a zombie's queue is dropped.
TEST_F(ReactorTest, QueuedChangesKeepTheLastValue) {
  Ptr<Link> a = dir_->linkIs("a");
  Ptr<LinkWatcherSm> sm(new LinkWatcherSm(dir_, settings_));
  Ptr<RecordingActivity> activity(new RecordingActivity);
  sm->lumFwkActivityIs(activity);
  log.clear();
  a->operStatusIs(1);
  a->operStatusIs(2);
  EXPECT_TRUE(log.empty());
  ASSERT_EQ(activity->scheduled.size(), 1u);
  activity->scheduled[0]->handleNotification();
  EXPECT_EQ(taken(), Log{"a operStatus=2"});
  activity->scheduled.clear();
  a->vlanVniIs(10, 1);
  a->operStatusIs(3);
  ASSERT_EQ(activity->scheduled.size(), 1u);
  activity->scheduled[0]->handleNotification();
  EXPECT_EQ(taken(), Log{"a catch-up"});
  activity->scheduled.clear();
  a->operStatusIs(4);
  sm->lumDoZombieReactors(true);
  activity->scheduled[0]->handleNotification();
  EXPECT_TRUE(log.empty());
  activity->scheduled.clear();  // the reactors hold the activity: break the cycle
}

}  // namespace
}  // namespace Demo
