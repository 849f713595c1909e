#include "platform/Timer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/TimerScheduler.h"

namespace velmor {

namespace {

// Far beyond any token's life, and well inside what the clock can add.
constexpr double kLongestInterval = 100.0 * 365 * 24 * 60 * 60;

Timer::TimePoint dateAfter(double seconds) {
  if (std::isnan(seconds)) seconds = 0;
  seconds = std::clamp(seconds, -kLongestInterval, kLongestInterval);
  return Timer::Clock::now() +
         std::chrono::duration_cast<Timer::Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

std::shared_ptr<Timer> Timer::scheduledTimerWithTimeInterval(double seconds, Action action) {
  auto timer = std::make_shared<Timer>(ConstructionKey(), std::move(action));
  const TimePoint fireDate = dateAfter(seconds);
  // Held while scheduling, so that the thread, should the timer be due at
  // once, finds it complete.
  MutexLock lock(timer->mutex_);
  timer->fireDate_ = fireDate;
  timer->scheduleId_ = TimerScheduler::shared().schedule(fireDate, timer);
  return timer;
}

Timer::Timer(ConstructionKey, Action action) : action_(std::move(action)) {}

Timer::TimePoint Timer::fireDate() const {
  MutexLock lock(mutex_);
  return fireDate_;
}

void Timer::setFireDate(TimePoint fireDate) {
  const std::shared_ptr<Timer> self = shared_from_this();
  MutexLock lock(mutex_);
  if (!valid_) return;
  scheduleId_ = TimerScheduler::shared().reschedule(fireDate_, scheduleId_, fireDate, self);
  fireDate_ = fireDate;
}

void Timer::fire() {
  // The action may drop the caller's last reference to this timer.
  const std::shared_ptr<Timer> self = shared_from_this();
  Action action;
  {
    MutexLock lock(mutex_);
    if (!valid_) return;
    valid_ = false;
    action = std::move(action_);
    TimerScheduler::shared().unschedule(fireDate_, scheduleId_);
  }
  if (action) action(*this);
}

void Timer::fireScheduled(std::uint64_t scheduleId) {
  Action action;
  {
    MutexLock lock(mutex_);
    if (!valid_ || scheduleId != scheduleId_) return;
    valid_ = false;
    action = std::move(action_);
  }
  if (action) action(*this);
}

void Timer::invalidate() {
  const std::shared_ptr<Timer> self = shared_from_this();
  // Destroyed after the lock is released: its captures may use timers too.
  Action dropped;
  MutexLock lock(mutex_);
  if (!valid_) return;
  valid_ = false;
  dropped = std::move(action_);
  TimerScheduler::shared().unschedule(fireDate_, scheduleId_);
}

bool Timer::isValid() const {
  MutexLock lock(mutex_);
  return valid_;
}

}  // namespace velmor
