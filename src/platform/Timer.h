// One-shot timers served by one process-wide timer thread.
#ifndef VELMOR_PLATFORM_TIMER_H_
#define VELMOR_PLATFORM_TIMER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/Mutex.h"

namespace velmor {

// A timer that runs its action once, on the library's timer thread, at its
// fire date. Fire dates are wall-clock times, so a moment that passed while
// the machine slept is due as soon as the thread looks again.
//
// The timer thread is started with the first scheduled timer and serves
// every timer of the process, one action at a time: an action must be short
// and must not wait for another timer. The scheduler holds each timer until
// it fires or is invalidated, so a timer nobody else keeps still fires. An
// action runs at most once, whoever fires it: the timer thread or `fire`,
// even when both try at the same moment. The action is released once it has
// run or the timer was invalidated, so what it captured does not live on
// with the timer. An exception escaping an action on the timer thread is
// logged at the error level and otherwise ignored; one escaping an action
// run by `fire` reaches fire's caller.
//
// All members may be called from any thread, including from within the
// action. After `invalidate` returns, the action is not started again; an
// action already running on the timer thread finishes.
class Timer final : public std::enable_shared_from_this<Timer> {
  // Lets only scheduledTimerWithTimeInterval construct, through make_shared.
  struct ConstructionKey {
    explicit ConstructionKey() = default;
  };

 public:
  using Clock = std::chrono::system_clock;
  using TimePoint = Clock::time_point;
  using Action = std::function<void(Timer& timer)>;

  // A valid timer firing `seconds` from now (at once when zero or negative).
  // Intervals beyond a hundred years are cut to a hundred years.
  static std::shared_ptr<Timer> scheduledTimerWithTimeInterval(double seconds, Action action);

  Timer(ConstructionKey, Action action);
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  TimePoint fireDate() const;
  // Moves a valid timer's fire date; ignored once it fired or was invalidated.
  void setFireDate(TimePoint fireDate);

  // Runs the action now on the calling thread; the timer is then spent
  // (invalid). Does nothing on an invalid timer.
  void fire();
  void invalidate();
  bool isValid() const;

 private:
  friend class TimerScheduler;

  // The timer thread's way in: runs the action if the timer is valid and
  // still scheduled as `scheduleId` (a later setFireDate replaces the id).
  void fireScheduled(std::uint64_t scheduleId);

  // Taken before the scheduler's own mutex, never after it.
  mutable Mutex mutex_;
  TimePoint fireDate_ GUARDED_BY(mutex_);
  // Names this timer's entry in the scheduler, together with fireDate_.
  std::uint64_t scheduleId_ GUARDED_BY(mutex_) = 0;
  bool valid_ GUARDED_BY(mutex_) = true;
  // Moved out by whoever spends the timer.
  Action action_ GUARDED_BY(mutex_);
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_TIMER_H_
