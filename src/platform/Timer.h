// One-shot timers served by one process-wide timer thread.
#ifndef VELMOR_PLATFORM_TIMER_H_
#define VELMOR_PLATFORM_TIMER_H_

#include <chrono>
#include <functional>
#include <memory>

namespace velmor {

// A timer that runs its action once, on the library's timer thread, at its
// fire date. Fire dates are wall-clock times, so a moment that passed while
// the machine slept is due as soon as the thread looks again.
//
// The timer thread is started with the first scheduled timer and serves
// every timer of the process, one action at a time: an action must be short
// and must not wait for another timer. The scheduler holds each timer until
// it fires or is invalidated.
//
// All members may be called from any thread, including from within the
// action. After `invalidate` returns, the action is not started again; an
// action already running on the timer thread finishes.
class Timer final : public std::enable_shared_from_this<Timer> {
 public:
  using Clock = std::chrono::system_clock;
  using TimePoint = Clock::time_point;
  using Action = std::function<void(Timer& timer)>;

  // A valid timer firing `seconds` from now (at once when zero or negative).
  static std::shared_ptr<Timer> scheduledTimerWithTimeInterval(double seconds, Action action);

  TimePoint fireDate() const;
  // Moves a valid timer's fire date; ignored once it fired or was invalidated.
  void setFireDate(TimePoint fireDate);

  // Runs the action now on the calling thread; the timer is then spent
  // (invalid). Does nothing on an invalid timer.
  void fire();
  void invalidate();
  bool isValid() const;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_TIMER_H_
