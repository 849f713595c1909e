#include "client/RefreshTokenExpiryTimer.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace velmor {

// The path from timer actions to the owner's action. Closing it is what
// keeps an action that fires late from reaching a destroyed owner.
class RefreshTokenExpiryTimer::Gate {
 public:
  explicit Gate(Action action) : action_(std::move(action)) {}

  void run() EXCLUDES(mutex_) {
    const std::thread::id self = std::this_thread::get_id();
    {
      MutexLock lock(mutex_);
      if (closed_) return;
      running_.push_back(self);
    }
    // Leaves the gate even when the application's delegate throws.
    struct Leave {
      Gate& gate;
      std::thread::id self;
      ~Leave() { gate.leave(self); }
    } leave{*this, self};
    action_();
  }

  void close() EXCLUDES(mutex_) {
    const std::thread::id self = std::this_thread::get_id();
    MutexLock lock(mutex_);
    closed_ = true;
    // An action that destroys the owner closes the gate from inside run();
    // waiting for itself would never end.
    while (!std::all_of(running_.begin(), running_.end(),
                        [&](std::thread::id id) { return id == self; })) {
      idle_.wait(mutex_);
    }
  }

 private:
  void leave(std::thread::id self) EXCLUDES(mutex_) {
    {
      MutexLock lock(mutex_);
      running_.erase(std::find(running_.begin(), running_.end(), self));
    }
    idle_.signalAll();
  }

  const Action action_;
  Mutex mutex_;
  CondVar idle_;
  bool closed_ GUARDED_BY(mutex_) = false;
  // The threads inside the action; one thread may appear more than once.
  std::vector<std::thread::id> running_ GUARDED_BY(mutex_);
};

RefreshTokenExpiryTimer::RefreshTokenExpiryTimer(Action onExpiry)
    : gate_(std::make_shared<Gate>(std::move(onExpiry))) {}

RefreshTokenExpiryTimer::~RefreshTokenExpiryTimer() { stop(); }

void RefreshTokenExpiryTimer::rearm(double seconds) {
  std::weak_ptr<Gate> gate = gate_;
  MutexLock lock(mutex_);
  if (stopped_) return;
  // Neither call runs the action on this thread, so holding the lock here
  // cannot meet the action.
  if (timer_ && timer_->isValid()) timer_->invalidate();
  timer_ = Timer::scheduledTimerWithTimeInterval(seconds, [gate](Timer&) {
    if (std::shared_ptr<Gate> open = gate.lock()) open->run();
  });
}

void RefreshTokenExpiryTimer::applicationDidBecomeActive() {
  const std::shared_ptr<Timer> timer = currentTimer();
  if (!timer || !timer->isValid()) return;
  const Timer::TimePoint fireDate = timer->fireDate();
  const std::chrono::duration<double> overdue = Timer::Clock::now() - fireDate;
  if (overdue.count() > 0) {
    timer->fire();
  } else {
    timer->setFireDate(fireDate);
  }
}

void RefreshTokenExpiryTimer::stop() {
  std::shared_ptr<Timer> timer;
  {
    MutexLock lock(mutex_);
    stopped_ = true;
    timer = std::move(timer_);
  }
  if (timer) timer->invalidate();
  gate_->close();
}

std::shared_ptr<Timer> RefreshTokenExpiryTimer::currentTimer() const {
  MutexLock lock(mutex_);
  return timer_;
}

}  // namespace velmor
