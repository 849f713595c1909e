// Keeps the process-wide timer thread busy, as a sleeping machine would.
#ifndef VELMOR_TESTS_CLIENT_BUSY_TIMER_THREAD_H_
#define VELMOR_TESTS_CLIENT_BUSY_TIMER_THREAD_H_

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>

#include "platform/Timer.h"

namespace velmor::test {

// Holds the timer thread inside one action from construction until
// destruction, so that fire dates pass without anything firing; what
// applicationDidBecomeActive does then is what a waking application sees.
class BusyTimerThread final {
 public:
  BusyTimerThread() {
    // The action keeps its own handle on the release: the destructor may
    // release it before the action gets to wait.
    std::shared_future<void> released = release_.get_future().share();
    blocker_ = Timer::scheduledTimerWithTimeInterval(0, [this, released](Timer&) {
      entered_.set_value();
      released.wait();
    });
    EXPECT_EQ(entered_.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  }
  ~BusyTimerThread() { release_.set_value(); }

  BusyTimerThread(const BusyTimerThread&) = delete;
  BusyTimerThread& operator=(const BusyTimerThread&) = delete;

 private:
  std::promise<void> entered_;
  std::promise<void> release_;
  std::shared_ptr<Timer> blocker_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTS_CLIENT_BUSY_TIMER_THREAD_H_
