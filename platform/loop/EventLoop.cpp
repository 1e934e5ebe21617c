#include "platform/loop/EventLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <exception>
#include <string>

#include "platform/core/Exception.h"
#include "platform/core/String8.h"
#include "platform/os/TimeSource.h"

namespace Lum {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "stop() must be async-signal-safe");

// The callback running now, so that its facility can still be asked for after it threw,
// unless it destroyed itself first (its destructor clears the pointer). Saved and
// restored around each call, as a callback may run another loop.
ReadableHandler* readableInCall = nullptr;
EventLoop::Timer* timerInCall = nullptr;

constexpr std::string_view kLoopFacility = "EventLoop";
constexpr std::string_view kGoneFacility = "(destroyed handler)";

// epoll data of a registration: generation in the high half, descriptor in the low.
uint64_t tokenOf(int fd, uint32_t generation) {
  return (static_cast<uint64_t>(generation) << 32) | static_cast<uint32_t>(fd);
}

void reportToStderr(std::string_view facility, std::string_view text) {
  // One write, so that lines from several processes sharing stderr do not interleave.
  std::string line = "exception in ";
  line.append(facility).append(": ").append(text).append("\n");
  ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  (void)written;
}

}  // namespace

ReadableHandler::~ReadableHandler() {
  if (readableInCall == this) readableInCall = nullptr;
  for (const Registration& r : std::exchange(registrations_, {})) {
    r.loop->dropRegistration(r.fd, this);
  }
}

void ReadableHandler::forget(EventLoop* loop, int fd) {
  for (auto it = registrations_.begin(); it != registrations_.end(); ++it) {
    if (it->loop == loop && it->fd == fd) {
      *it = registrations_.back();
      registrations_.pop_back();
      return;
    }
  }
}

EventLoop::Timer::Timer(TimerHandler& handler, EventLoop& loop) : loop_(&loop), handler_(&handler) {
  next_ = loop.timers_;
  if (next_) next_->prev_ = this;
  loop.timers_ = this;
}

EventLoop::Timer::~Timer() {
  if (timerInCall == this) timerInCall = nullptr;
  if (!loop_) return;
  disarm();
  if (prev_) {
    prev_->next_ = next_;
  } else {
    loop_->timers_ = next_;
  }
  if (next_) next_->prev_ = prev_;
}

void EventLoop::Timer::arm(double when) {
  if (std::isnan(when)) throwRangeException("timer armed at NaN");
  if (!loop_) throw Exception("timer armed after its event loop was destroyed");
  disarm();
  when_ = when;
  sequence_ = ++loop_->lastArmSequence_;
  loop_->armedTimers_.emplace(TimerKey{when_, sequence_}, this);
  armed_ = true;
}

void EventLoop::Timer::disarm() {
  if (!armed_) return;
  loop_->armedTimers_.erase(TimerKey{when_, sequence_});
  armed_ = false;
}

EventLoop::EventLoop() {
  epollFd_ = ::epoll_create1(EPOLL_CLOEXEC);
  if (epollFd_ < 0) throw ErrnoException(errno, "epoll_create1 for the event loop");
  wakeFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wakeFd_ < 0) {
    int err = errno;
    ::close(epollFd_);
    throw ErrnoException(err, "eventfd for the event loop wake-up");
  }
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = tokenOf(wakeFd_, 0);
  if (::epoll_ctl(epollFd_, EPOLL_CTL_ADD, wakeFd_, &ev) < 0) {
    int err = errno;
    ::close(wakeFd_);
    ::close(epollFd_);
    throw ErrnoException(err, "epoll_ctl add of the event loop wake-up");
  }
}

EventLoop::~EventLoop() {
  for (size_t fd = 0; fd < registrations_.size(); ++fd) {
    if (registrations_[fd].handler) registrations_[fd].handler->forget(this, static_cast<int>(fd));
  }
  for (Timer* t = timers_; t; t = t->next_) {
    t->loop_ = nullptr;
    t->armed_ = false;
    t->prev_ = nullptr;
  }
  // Deferred work never runs; its captures are released with the queue.
  ::close(wakeFd_);
  ::close(epollFd_);
}

uint32_t EventLoop::nextGeneration() {
  // 0 is the wake-up eventfd's. After 2^32 registrations the numbers wrap; a stale
  // event would then need the same descriptor, the same generation and the same
  // epoll_wait batch to be misdelivered.
  if (++lastGeneration_ == 0) ++lastGeneration_;
  return lastGeneration_;
}

void EventLoop::readableHandlerIs(int fd, ReadableHandler* handler) {
  if (!handler) {
    readableHandlerDel(fd);
    return;
  }
  if (fd < 0 || fd == epollFd_ || fd == wakeFd_) {
    throwRangeException(format("readable handler for descriptor %d", fd).view());
  }
  const size_t index = static_cast<size_t>(fd);
  ReadableHandler* old = index < registrations_.size() ? registrations_[index].handler : nullptr;
  const uint32_t generation = nextGeneration();
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = tokenOf(fd, generation);
  int op = old ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  int rc = ::epoll_ctl(epollFd_, op, fd, &ev);
  if (rc < 0 && op == EPOLL_CTL_MOD && errno == ENOENT) {
    // The old descriptor was closed without readableHandlerDel and the kernel dropped
    // it; this number now names another file.
    rc = ::epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &ev);
  }
  if (rc < 0) throw ErrnoException(errno, format("epoll_ctl for descriptor %d", fd).view());

  if (old) old->forget(this, fd);
  if (index >= registrations_.size()) registrations_.resize(index + 1);
  registrations_[index] = Registration{handler, generation};
  handler->registrations_.push_back({this, fd});
}

void EventLoop::readableHandlerDel(int fd) noexcept {
  if (fd < 0 || static_cast<size_t>(fd) >= registrations_.size()) return;
  ReadableHandler* handler = registrations_[static_cast<size_t>(fd)].handler;
  if (!handler) return;
  handler->forget(this, fd);
  dropRegistration(fd, handler);
}

void EventLoop::dropRegistration(int fd, const ReadableHandler* handler) noexcept {
  Registration& r = registrations_[static_cast<size_t>(fd)];
  if (r.handler != handler) return;
  // Fails with EBADF or ENOENT when the descriptor was closed first; the kernel has
  // dropped it then, which is all this call is for.
  ::epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
  r = Registration{};
}

ReadableHandler* EventLoop::readableHandler(int fd) const {
  if (fd < 0 || static_cast<size_t>(fd) >= registrations_.size()) return nullptr;
  return registrations_[static_cast<size_t>(fd)].handler;
}

void EventLoop::defer(std::function<void()> work, std::string_view facility) {
  deferred_.push_back(Deferred{std::move(work), facility});
}

void EventLoop::run() {
  // exchange() consumes exactly the stop that ends this run; a stop() from a signal
  // arriving after the check is kept for the next run.
  while (!stopRequested_.exchange(false)) runOnce(-1.0);
}

void EventLoop::stop() noexcept {
  stopRequested_.store(true);
  const int savedErrno = errno;
  const uint64_t one = 1;
  // Can only fail with EAGAIN once the counter is near 2^64: the loop is awake then.
  ssize_t written = ::write(wakeFd_, &one, sizeof one);
  (void)written;
  errno = savedErrno;
}

void EventLoop::drainWakeFd() noexcept {
  uint64_t count;
  ssize_t got = ::read(wakeFd_, &count, sizeof count);
  (void)got;
}

void EventLoop::exceptionReporterIs(ExceptionReporter reporter) {
  reporter_ = std::move(reporter);
}

void EventLoop::report(std::string_view facility, std::string_view text) noexcept {
  if (reporter_) {
    try {
      reporter_(facility, text);
      return;
    } catch (...) {
      // A reporter that fails must not take the loop down; fall back to stderr.
    }
  }
  try {
    reportToStderr(facility, text);
  } catch (...) {
  }
}

template <typename Call, typename FacilityOf>
void EventLoop::callGuarded(Call&& call, FacilityOf&& facilityOf) noexcept {
  std::string text;
  try {
    call();
    return;
  } catch (const std::exception& e) {
    try {
      text = e.what();
    } catch (...) {
    }
  } catch (...) {
    text = "unknown exception";
  }
  std::string_view facility = kLoopFacility;
  try {
    facility = facilityOf();
  } catch (...) {
  }
  report(facility, text);
}

int EventLoop::waitMillis(double maxWaitSeconds) const {
  double wait = std::isnan(maxWaitSeconds) ? 0.0 : maxWaitSeconds;
  if (!deferred_.empty() || stopRequested_.load()) {
    wait = 0.0;
  } else if (!armedTimers_.empty()) {
    double untilDue = armedTimers_.begin()->first.first - now();
    if (!(untilDue > 0.0)) untilDue = 0.0;
    if (wait < 0.0 || untilDue < wait) wait = untilDue;
  }
  if (wait < 0.0) return -1;
  // Rounded up: waking before the timer is due would only spin.
  double millis = std::ceil(wait * 1000.0);
  return millis >= static_cast<double>(INT_MAX) ? INT_MAX : static_cast<int>(millis);
}

size_t EventLoop::runOnce(double maxWaitSeconds) {
  if (dispatching_) throw Exception("EventLoop::runOnce called from a callback of the same loop");
  dispatching_ = true;
  struct Reset {
    bool& flag;
    ~Reset() { flag = false; }
  } reset{dispatching_};

  int count = ::epoll_wait(epollFd_, events_.data(), static_cast<int>(events_.size()),
                           waitMillis(maxWaitSeconds));
  if (count < 0) {
    // EINTR: a signal came; its handler may have called stop(). Anything else is a
    // fault of this loop's own descriptor, reported and not rethrown.
    if (errno != EINTR) report(kLoopFacility, ErrnoException(errno, "epoll_wait").what());
    count = 0;
  }
  size_t ran = dispatchReadable(count);
  ran += fireTimers();
  ran += runDeferred();
  return ran;
}

size_t EventLoop::dispatchReadable(int count) {
  size_t ran = 0;
  for (int i = 0; i < count; ++i) {
    const uint64_t token = events_[static_cast<size_t>(i)].data.u64;
    const uint32_t generation = static_cast<uint32_t>(token >> 32);
    const int fd = static_cast<int>(static_cast<uint32_t>(token));
    if (generation == 0) {
      drainWakeFd();
      continue;
    }
    // Looked up afresh for every event: earlier handlers of this batch may have
    // removed, replaced or destroyed this registration.
    if (static_cast<size_t>(fd) >= registrations_.size()) continue;
    const Registration& r = registrations_[static_cast<size_t>(fd)];
    if (!r.handler || r.generation != generation) continue;

    ReadableHandler* handler = r.handler;
    ReadableHandler* outer = std::exchange(readableInCall, handler);
    ++ran;
    callGuarded([&] { handler->onReadable(fd); },
                [&] { return readableInCall ? readableInCall->facility() : kGoneFacility; });
    readableInCall = outer;
  }
  return ran;
}

size_t EventLoop::fireTimers() {
  if (armedTimers_.empty()) return 0;
  const double t = now();
  // Timers armed after this point (by the handlers below) wait for a later pass.
  const uint64_t lastBefore = lastArmSequence_;
  size_t ran = 0;
  auto it = armedTimers_.begin();
  while (it != armedTimers_.end() && it->first.first <= t) {
    if (it->first.second > lastBefore) {
      ++it;
      continue;
    }
    const TimerKey key = it->first;
    Timer* timer = it->second;
    armedTimers_.erase(it);
    timer->armed_ = false;

    Timer* outer = std::exchange(timerInCall, timer);
    ++ran;
    callGuarded([&] { timer->handler_->onTimer(); },
                [&] { return timerInCall ? timerInCall->handler_->facility() : kGoneFacility; });
    timerInCall = outer;
    // Handlers may have armed, disarmed or destroyed any timer. Every entry before
    // `key` that was armed before this phase has been visited already.
    it = armedTimers_.upper_bound(key);
  }
  return ran;
}

size_t EventLoop::runDeferred() {
  // Only what is queued now; work queued by this work waits for the next pass.
  size_t count = deferred_.size();
  for (size_t i = 0; i < count; ++i) {
    Deferred d = std::move(deferred_.front());
    deferred_.pop_front();
    callGuarded([&] { d.work(); }, [&] { return d.facility; });
  }
  return count;
}

EventLoop& eventLoop() {
  static EventLoop* loop = new EventLoop;
  return *loop;
}

}  // namespace Lum
