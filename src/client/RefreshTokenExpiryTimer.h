// The one-shot timer that tells a client when its refresh token lapses.
#ifndef VELMOR_CLIENT_REFRESH_TOKEN_EXPIRY_TIMER_H_
#define VELMOR_CLIENT_REFRESH_TOKEN_EXPIRY_TIMER_H_

#include <functional>
#include <memory>

#include "platform/Mutex.h"
#include "platform/Timer.h"

namespace velmor {

// Holds at most one armed Timer. `rearm` replaces it (the client does so
// after every sign-in, code exchange and refresh, from its queue's worker
// thread); `applicationDidBecomeActive` lets a moment that passed while the
// machine slept act at once (from the application's thread). Both may run
// at the same time: the timer field is guarded by a mutex, which is never
// held while the expiry action runs.
//
// The expiry action runs on the library's timer thread, or on the thread
// that calls `applicationDidBecomeActive` when that fires the timer. Timer
// actions reach the action only through a weak reference, and `stop` (also
// run by the destructor) closes that path and waits until an action running
// on another thread has returned, so the action never runs on an owner that
// is being destroyed. `stop` called from within the action itself (an owner
// destroyed by its own delegate) does not wait for itself.
class RefreshTokenExpiryTimer final {
 public:
  using Action = std::function<void()>;

  explicit RefreshTokenExpiryTimer(Action onExpiry);
  ~RefreshTokenExpiryTimer();

  RefreshTokenExpiryTimer(const RefreshTokenExpiryTimer&) = delete;
  RefreshTokenExpiryTimer& operator=(const RefreshTokenExpiryTimer&) = delete;

  // Invalidates the timer held, if any, and arms a new one `seconds` from
  // now; zero or less fires at the timer thread's first opportunity. Does
  // nothing once stopped.
  void rearm(double seconds) EXCLUDES(mutex_);

  // Fires a valid timer whose fire date has passed, on the calling thread;
  // otherwise re-schedules it at its own fire date. Does nothing without a
  // valid timer.
  void applicationDidBecomeActive() EXCLUDES(mutex_);

  // Invalidates the timer and makes sure the action never starts again,
  // also through a later rearm.
  void stop() EXCLUDES(mutex_);

 private:
  class Gate;

  std::shared_ptr<Timer> currentTimer() const EXCLUDES(mutex_);

  std::shared_ptr<Gate> gate_;
  mutable Mutex mutex_;
  std::shared_ptr<Timer> timer_ GUARDED_BY(mutex_);
  bool stopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_REFRESH_TOKEN_EXPIRY_TIMER_H_
