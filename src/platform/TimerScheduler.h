// The process-wide timer thread and the timers waiting on it.
#ifndef VELMOR_PLATFORM_TIMER_SCHEDULER_H_
#define VELMOR_PLATFORM_TIMER_SCHEDULER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "platform/Mutex.h"
#include "platform/Timer.h"

namespace velmor {

// Holds scheduled timers ordered by fire date and runs each one's action on
// its own thread when the date comes. The thread waits on the wall clock, so
// time spent suspended counts, and calls the timers with no lock held, so
// that an action may use its own timer or schedule others.
//
// There is one scheduler per process, made on first use. It and its thread
// are deliberately never destroyed or joined: at exit the thread is parked
// in a wait and simply ends with the process. Joining it from a static
// destructor could wait on a running action, would deadlock when exit is
// called from an action, and would let timers armed by other static
// destructors reach a destroyed scheduler. Leak checkers see the scheduler
// reachable through its static pointer.
//
// Entries are keyed by (fire date, id); ids are never reused, so a timer
// whose entry was replaced recognises the stale one. Timers call in holding
// their own mutex; the scheduler never calls a timer holding its mutex.
class TimerScheduler final {
 public:
  using TimePoint = Timer::TimePoint;

  static TimerScheduler& shared();

  TimerScheduler() = default;
  TimerScheduler(const TimerScheduler&) = delete;
  TimerScheduler& operator=(const TimerScheduler&) = delete;

  // Holds `timer` until `fireDate`; returns the entry's id. Starts the
  // thread when there is none yet (a refusal is logged, and tried again
  // with the next timer).
  std::uint64_t schedule(TimePoint fireDate, std::shared_ptr<Timer> timer) EXCLUDES(mutex_);
  // Drops the entry if it is still waiting.
  void unschedule(TimePoint fireDate, std::uint64_t id) EXCLUDES(mutex_);
  // Replaces an entry by one at `newFireDate`; returns the new id.
  std::uint64_t reschedule(TimePoint fireDate, std::uint64_t id, TimePoint newFireDate,
                           std::shared_ptr<Timer> timer) EXCLUDES(mutex_);

 private:
  using Key = std::pair<TimePoint, std::uint64_t>;

  std::uint64_t insert(TimePoint fireDate, std::shared_ptr<Timer> timer) REQUIRES(mutex_);
  std::shared_ptr<Timer> remove(TimePoint fireDate, std::uint64_t id) REQUIRES(mutex_);
  void startThread() REQUIRES(mutex_);
  void serve() EXCLUDES(mutex_);

  Mutex mutex_;
  // Signalled when the earliest entry may have changed.
  CondVar changed_;
  std::map<Key, std::shared_ptr<Timer>> timers_ GUARDED_BY(mutex_);
  std::uint64_t lastId_ GUARDED_BY(mutex_) = 0;
  bool threadStarted_ GUARDED_BY(mutex_) = false;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_TIMER_SCHEDULER_H_
