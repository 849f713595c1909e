#include "platform/TimerScheduler.h"

#include <system_error>
#include <thread>

#include "platform/CurrentException.h"
#include "support/Format.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

void logError(const std::string& message) {
  VelmorAuthorizationLogger::sharedLogger().log(message, VelmorAuthorizationLogger::kLevelError);
}

}  // namespace

TimerScheduler& TimerScheduler::shared() {
  // Never destroyed: see the class comment.
  static TimerScheduler* const scheduler = std::make_unique<TimerScheduler>().release();
  return *scheduler;
}

std::uint64_t TimerScheduler::schedule(TimePoint fireDate, std::shared_ptr<Timer> timer) {
  MutexLock lock(mutex_);
  return insert(fireDate, std::move(timer));
}

void TimerScheduler::unschedule(TimePoint fireDate, std::uint64_t id) {
  std::shared_ptr<Timer> removed;
  MutexLock lock(mutex_);
  removed = remove(fireDate, id);
}

std::uint64_t TimerScheduler::reschedule(TimePoint fireDate, std::uint64_t id,
                                         TimePoint newFireDate, std::shared_ptr<Timer> timer) {
  std::shared_ptr<Timer> replaced;
  MutexLock lock(mutex_);
  replaced = remove(fireDate, id);
  return insert(newFireDate, std::move(timer));
}

std::uint64_t TimerScheduler::insert(TimePoint fireDate, std::shared_ptr<Timer> timer) {
  const std::uint64_t id = ++lastId_;
  const auto entry = timers_.emplace(Key(fireDate, id), std::move(timer)).first;
  if (!threadStarted_) startThread();
  // Only a new earliest entry changes how long the thread must sleep.
  if (entry == timers_.begin()) changed_.signal();
  return id;
}

std::shared_ptr<Timer> TimerScheduler::remove(TimePoint fireDate, std::uint64_t id) {
  const auto entry = timers_.find(Key(fireDate, id));
  if (entry == timers_.end()) return nullptr;
  // Handed back so that the caller lets go of it after unlocking.
  std::shared_ptr<Timer> timer = std::move(entry->second);
  timers_.erase(entry);
  return timer;
}

void TimerScheduler::startThread() {
  try {
    std::thread([this] { serve(); }).detach();
    threadStarted_ = true;
  } catch (const std::system_error& e) {
    logError(stringWithFormat("Cannot start the timer thread: %s", e.what()));
  }
}

void TimerScheduler::serve() {
  mutex_.lock();
  for (;;) {
    if (timers_.empty()) {
      changed_.wait(mutex_);
      continue;
    }
    const auto first = timers_.begin();
    const TimePoint fireDate = first->first.first;
    if (Timer::Clock::now() < fireDate) {
      changed_.waitUntil(mutex_, fireDate);
      continue;
    }
    const std::uint64_t id = first->first.second;
    std::shared_ptr<Timer> timer = std::move(first->second);
    timers_.erase(first);
    mutex_.unlock();

    // The thread serves every timer of the process: one failing action must
    // not stop the others.
    try {
      timer->fireScheduled(id);
    } catch (...) {
      logError(stringWithFormat("<Timer: %p> action ended with %@",
                                static_cast<const void*>(timer.get()),
                                currentExceptionDescription()));
    }
    timer.reset();
    mutex_.lock();
  }
}

}  // namespace velmor
